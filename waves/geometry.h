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
  // arctan(x) for 0 ≤ x ≤ 1, in radians.
  float Lookup(float x) const;
};

extern ArcTanTable g_arcTanTable;

float SinDeg(float degrees);  // from g_sineTable
float CosDeg(float degrees);

float FrameIndex();                         // current_time ÷ time_step (0 when time_step is 0)
float FrequencyPhaseOffset(float frequency);  // degrees the rings have travelled
int32_t RenderQualityLevel();               // 2 at the host's high quality, else 1

}  // namespace tarvo
