// The per-call context: the host's six arguments of the current call, the
// downsampled frame size and the call's error word, plus the messages that
// reach the user through return_msg.
//
// One process-wide instance, overwritten at the start of every host call
// (the host never re-enters the plug-in), so nothing here is locked. Every
// accessor tolerates a host that left a record or callback null: a null
// progress means "continue", a null sprintf/strcpy falls back to a bounded
// local copy, a null record is simply not read or written.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "call_ops.h"
#include "host_api.h"

namespace tarvo {

struct CallContext {
  PF_Cmd g_cmd;
  PF_InData* g_inData;
  PF_OutData* g_outData;
  PF_ParamDef** g_params;  // index 0 is the input layer
  PF_LayerDef* g_output;
  void* g_extra;           // kept, never read
  int32_t g_scaledWidth;   // width × downsample_x, truncated
  int32_t g_scaledHeight;  // height × downsample_y, truncated
  int16_t g_callError;     // 0, or the first error recorded in this call
};

extern CallContext g_callContext;

// Records the call, computes the downsampled size and clears the error word.
// A zero denominator gives an infinite or NaN quotient (never a trap); the
// size is then whatever TruncToInt32 makes of it.
void StoreHostCall(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef** params, PF_LayerDef* output,
                   void* extra);

// Framework messages: message n is string-table entry kMessageGroup × 100 + n.
constexpr int16_t kMessageGroup = 420;
constexpr int16_t kMsgOutOfMemory = 3;

// Puts message n into return_msg, sets PF_OutFlag_DISPLAY_ERROR_MESSAGE and
// records n as the call's error.
void ReportMessage(int16_t n);

// Loads entry group × 100 + index as a length-prefixed string (length byte,
// then at most capacity − 1 characters). Unknown entries load as empty.
void LoadMessage(int16_t group, int16_t index, uint8_t* buffer, int16_t capacity);

// Length-prefixed → zero-terminated: min(length, n − 1) characters and a zero.
void LenStrToCStr(const uint8_t* src, char* dst, int16_t n);
// Zero-terminated → length-prefixed: min(strlen, n, 255) characters; dst holds
// n + 1 bytes.
void CStrToLenStr(const char* src, uint8_t* dst, int16_t n);

// --- Host helpers for the framework and the worlds -------------------------

// The host's parameter record at index in the current call, or null.
PF_ParamDef* HostParam(int32_t index);

// The host's utility callbacks, or null.
PF_UtilCallbacks* HostUtils();

// The host's ANSI sprintf when it has one, else a bounded local format into
// capacity bytes. Texts handed to the user never reach this as a format.
template <class... Args>
void HostSprintf(char* dst, size_t capacity, const char* format, Args... args) {
  PF_UtilCallbacks* utils = HostUtils();
  if (utils && utils->ansi.sprintf) {
    utils->ansi.sprintf(dst, format, args...);
  } else if (capacity > 0) {
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
    snprintf(dst, capacity, format, args...);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
  }
}

// The host's ANSI strcpy when it has one, else a bounded local copy.
void HostStrcpy(char* dst, size_t capacity, const char* src);

}  // namespace tarvo
