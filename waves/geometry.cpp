// Arctangent table on [0, 1], sine and cosine in degrees from the sine
// table, and the frame timing read from the current host call.
#include "geometry.h"

#include <math.h>

#include "call_ops.h"
#include "fixed_point.h"
#include "wave_table.h"

namespace tarvo {

ArcTanTable g_arcTanTable;

void ArcTanTable::Build() {
  if (built) return;
  for (int i = 0; i < kEntries; ++i) {
    float x = static_cast<float>(i) / 400.0f;
    if (x > 1.0f) x = 1.0f;
    entries[i] = FloatToFixed(static_cast<float>(atan(static_cast<double>(x))));
  }
  step = static_cast<float>(1.0 / 400);
  invStep = static_cast<float>(1.0 / static_cast<double>(step));
  offset = 0.0f;
  built = 1;
}

float ArcTanTable::Lookup(float x) const {
  const float s = static_cast<float>((static_cast<double>(x) + offset) * invStep);
  // Only 0 ≤ x ≤ 1 is meaningful. Anything below (and not-a-number) reads as
  // 0, anything from the last entry up as arctan(1): the table is never left,
  // and at x = 1 the result is the last entry, as interpolation with weight
  // 0 would give.
  if (!(s > 0.0f)) return static_cast<float>(FixedToFloat(entries[0]));
  if (s >= static_cast<float>(kEntries - 1)) return static_cast<float>(FixedToFloat(entries[kEntries - 1]));
  const int32_t t = FloatToFixed(s);
  const int32_t i = static_cast<int32_t>((static_cast<uint32_t>(t) >> 16) & 0xFFFF);
  const int32_t f = (t & 0xFFFF) >> 8;
  const int32_t v = (entries[i] * (256 - f) + entries[i + 1] * f) >> 8;
  return static_cast<float>(FixedToFloat(v));
}

float SinDeg(float degrees) { return WaveTableLookup(degrees, g_sineTable); }

float CosDeg(float degrees) { return WaveTableLookup(degrees + 90.0f, g_sineTable); }

float FrameIndex() {
  const HostTime time = CurrentHostTime();
  if (time.time_step == 0) return 0.0f;
  // The one quotient that does not fit in 32 bits.
  if (time.current_time == INT32_MIN && time.time_step == -1) return 2147483648.0f;
  return static_cast<float>(time.current_time / time.time_step);
}

float FrequencyPhaseOffset(float frequency) {
  const int32_t scale = static_cast<int32_t>(CurrentHostTime().time_scale);
  const double travelled = static_cast<double>(FrameIndex()) * frequency * 360.0;
  if (scale == 0) {
    // What IEEE division by zero gives, without dividing by zero.
    if (travelled == 0.0 || isnan(travelled)) return NAN;
    return travelled > 0.0 ? INFINITY : -INFINITY;
  }
  return static_cast<float>(travelled / scale);
}

int32_t RenderQualityLevel() { return CurrentHostQuality() == 1 ? 2 : 1; }

}  // namespace tarvo
