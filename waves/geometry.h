// Arctangent table, sine and cosine in degrees, and the host's frame timing.
#pragma once

#include <stdint.h>

namespace tarvo {

struct ArcTanTable {
  static constexpr int kEntries = 401;  // arctan(i / 400), i = 0..400, 16.16 radians

  int32_t entries[kEntries];
  float step;
  float invStep;
  float offset;
  uint8_t built;

  ArcTanTable() : built(0) {}
  void Build();
  // arctan(x) for 0 ≤ x ≤ 1, in radians. Below 0 (and not-a-number) gives 0,
  // above 1 gives arctan(1); the table is never read outside its entries.
  float Lookup(float x) const;
};

extern ArcTanTable g_arcTanTable;

float SinDeg(float degrees);  // from g_sineTable
float CosDeg(float degrees);

float FrameIndex();  // current_time ÷ time_step (0 when time_step is 0)
// Degrees the rings have travelled: FrameIndex × frequency × 360 / time_scale
// (time_scale 0 gives ±infinity or not-a-number).
float FrequencyPhaseOffset(float frequency);
int32_t RenderQualityLevel();  // 2 at the host's high quality, else 1

}  // namespace tarvo
