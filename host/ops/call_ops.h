// The few operations of the current host call that pixel code may use:
// the stop check, the error report and the frame time. Everything else
// about the host stays behind host/ and framework/.
#pragma once

#include <stdint.h>

namespace tarvo {

// Records code as the call's error unless an earlier one is already recorded.
void SetCallError(int16_t code);
int16_t CallError();

// Asks the host's progress callback whether to stop; a stop is recorded as
// the call's error and returned as true.
bool CheckAbort();

// Reports "Memory Allocation Failure!" once per call.
void ReportOutOfMemory();

// Timing fields of the current call's in data.
struct HostTime {
  int32_t current_time;
  int32_t time_step;
  uint32_t time_scale;
};
HostTime CurrentHostTime();

// The host's render quality field (PF_Quality_HI is 1).
int32_t CurrentHostQuality();

}  // namespace tarvo
