// Inline table reads for the per-offset loops: the same arithmetic as
// WaveTableLookup and ArcTanTable::Lookup, without a call per read.
#pragma once

#include <math.h>
#include <stdint.h>

#include "fixed_point.h"
#include "geometry.h"
#include "simd_level.h"
#include "wave_table.h"

namespace tarvo {

// The vector loops interpolate the tables in single precision, which gives
// the integer arithmetic's bits when every entry is at most 2^16 in
// magnitude: each product and the sum are then integers of at most 2^24.
// The sine and arctangent tables always are; a chaos-blended ripple wave
// may not be.
inline bool TablesFitSingle(const WaveTable& wave) {
  auto fits = [](const int32_t* entries, int n) {
    for (int k = 0; k < n; ++k)
      if (entries[k] > 65536 || entries[k] < -65536) return false;
    return true;
  };
  return fits(wave.entries, WaveTable::kEntries) && fits(g_arcTanTable.entries, ArcTanTable::kEntries);
}

// The field's vector width for a render of width simd with this ripple
// wave: one entry at a time unless its tables fit single precision.
inline SimdLevel FieldSimd(SimdLevel simd, const WaveTable& wave) {
  return TablesFitSingle(wave) ? simd : SimdLevel::kScalar;
}

// One period of degrees in 16.16.
constexpr int64_t kWavePeriodFixed = 360 * 65536;

// Whole degrees w of 0..65535 divided by 360 as (w × 46604) >> 24: in
// vector code a 16-bit multiply-high and a shift, exact over that range.
constexpr int32_t kDegreeQuotientFactor = 46604;
constexpr int kDegreeQuotientShift = 8;  // after the multiply-high's 16

constexpr bool DegreeQuotientExact() {
  for (uint32_t w = 0; w < 65536; ++w) {
    if (((w * static_cast<uint32_t>(kDegreeQuotientFactor)) >> (16 + kDegreeQuotientShift)) != w / 360) return false;
  }
  return true;
}
static_assert(DegreeQuotientExact());

// An angle beyond ±32000° (or not finite) in 16.16 after reduction to one
// period; anything non-finite ends as a defined index through FloatToFixed.
[[gnu::noinline, gnu::cold]] inline int32_t ReduceLargeAngle(float angle) {
  if (angle >= 0.0f) {
    angle = static_cast<float>(fmod(static_cast<double>(angle), 360.0));
  } else {
    angle = static_cast<float>(360.0 - fmod(-static_cast<double>(angle), 360.0) - static_cast<double>(0.01f));
  }
  return FloatToFixed(static_cast<double>(angle));
}

// The table's value at any angle in degrees, in [−1, +1].
inline float ReadWave(float angle, const int32_t* entries) {
  // Within the first period the index needs no reduction, and the
  // products angle × 65536 and v / 65536 are exact in single precision.
  if (angle >= 0.0f && angle < 360.0f) {
    const int32_t t = static_cast<int32_t>(angle * 65536.0f);
    const int32_t i = t >> 16;
    const int32_t f = (t >> 8) & 255;
    const int32_t v = (entries[i] * (256 - f) + entries[i + 1] * f) >> 8;
    return static_cast<float>(v) * (1.0f / 65536.0f);
  }
  // Up to ±32000° the product fits in 32 bits and truncates directly.
  const int64_t t = fabsf(angle) <= 32000.0f ? static_cast<int32_t>(static_cast<double>(angle) * 65536.0)
                                             : ReduceLargeAngle(angle);
  // Within one period either side of 0 the remainder needs no division.
  int64_t r;
  if (t >= 0) {
    r = t < kWavePeriodFixed ? t : t % kWavePeriodFixed;
  } else {
    r = t > -kWavePeriodFixed ? kWavePeriodFixed + t : kWavePeriodFixed - (-t) % kWavePeriodFixed;
  }
  const int32_t i = static_cast<int32_t>(r >> 16);
  const int32_t f = static_cast<int32_t>((r >> 8) & 255);
  const int32_t v = (entries[i] * (256 - f) + entries[i + 1] * f) >> 8;
  return static_cast<float>(v * 1.52587890625e-05);
}

inline float ReadWave(float angle, const WaveTable& table) { return ReadWave(angle, table.entries); }

// arctan(x) in radians for 0 ≤ x ≤ 1 from g_arcTanTable.
inline float ReadArcTan(float x) {
  const ArcTanTable& t = g_arcTanTable;
  const float s = static_cast<float>((static_cast<double>(x) + t.offset) * t.invStep);
  // Outside the table (never for FastAtan2's ratios) the ends are read, as
  // ArcTanTable::Lookup does.
  if (!(s > 0.0f)) return static_cast<float>(FixedToFloat(t.entries[0]));
  if (s >= static_cast<float>(ArcTanTable::kEntries - 1)) {
    return static_cast<float>(FixedToFloat(t.entries[ArcTanTable::kEntries - 1]));
  }
  // 0 < s < 400: s × 65536 and v / 65536 are exact in single precision.
  const int32_t fixed = static_cast<int32_t>(s * 65536.0f);
  const int32_t i = fixed >> 16;
  const int32_t f = (fixed & 0xFFFF) >> 8;
  const int32_t v = (t.entries[i] * (256 - f) + t.entries[i + 1] * f) >> 8;
  return static_cast<float>(v) * (1.0f / 65536.0f);
}

// The angle of the point (x, y) in radians, −π..π, folded onto the [0, 1]
// arctangent table.
inline float FastAtan2(float y, float x) {
  const bool yNegative = y < 0.0f;
  const bool xNegative = x < 0.0f;
  y = fabsf(y);
  x = fabsf(x);
  double r;
  if (y > x) {
    r = 1.5707963705062866 - static_cast<double>(ReadArcTan(x / y));
  } else if (x > 0.0f) {
    r = ReadArcTan(y / x);
  } else {
    r = 0.0;
  }
  if (xNegative) r = 3.1415927410125732 - r;
  if (yNegative) r = -r;
  return static_cast<float>(r);
}

}  // namespace tarvo
