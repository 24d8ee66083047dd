// Wave tables: the shapes' tabulated values at their pieces' ends, and
// lookup with range reduction, wrapping and interpolation. Every shape's
// table is pinned by its golden, waveforms outside the menu render as Sine
// (tests/robustness).
#include <math.h>

#include <algorithm>
#include <array>
#include <vector>

#include <gtest/gtest.h>

#include "wave_table.h"

namespace tarvo {
namespace {

constexpr float kFix = 1.0f / 65536.0f;

WaveTable Built(uint32_t index) {
  WaveTable t{};
  t.Build(index, true);
  return t;
}

// Entries at the ends of each shape's pieces: which side a boundary degree
// belongs to, truncation of the 16.16 values. Spectrum 5's values come from
// a separate evaluation of its harmonic recipe in single precision.
TEST(WaveTableShapes, EntriesAtThePieceBoundaries) {
  const struct {
    uint32_t shape;
    std::vector<std::array<int32_t, 2>> entries;  // index, 16.16 value
  } shapes[] = {
      {kSine, {{0, 0}, {90, 65536}, {180, 0}, {270, -65536}}},
      {kTriangle, {{0, -65536}, {180, 65536}, {359, -64807}}},
      {kSquare, {{0, 65536}, {180, 65536}, {181, -65536}, {359, -65536}}},
      {kSawtooth, {{0, -65536}, {359, 65171}, {360, -65536}}},
      {kCircle, {{0, 0}, {1, 9742}, {90, 65536}, {180, 0}, {181, -9742}}},
      {kSemicircle, {{0, -65536}, {1, -51739}, {90, 47975}, {180, 65536}}},
      {kUncircle, {{0, 65536}, {90, 0}, {180, 65536}, {181, -55793}, {270, 0}}},
      {kHalfSine, {{0, -65536}, {1, -64392}, {90, 27145}, {180, 65536}}},
      {RampPulse180, {{0, -65536}, {90, -32768}, {179, -364}, {180, 0}, {359, 0}}},
      {RampPulse90, {{0, -65536}, {45, -32768}, {89, -728}, {90, 0}}},
      {kSpectrum5, {{37, 39447}, {90, 51709}, {123, 44258}, {200, -28170}, {333, -34282}}},
  };
  for (const auto& s : shapes) {
    const WaveTable t = Built(s.shape);
    for (const auto& [index, value] : s.entries) EXPECT_EQ(t.entries[index], value) << s.shape << "@" << index;
  }

  // The spectra are normalised so that none reaches full scale.
  const int32_t peaks[][2] = {{kSpectrum1, 56755}, {kSpectrum4, 48146}, {kSpectrum7, 45001}, {kSpectrum14, 42415}};
  for (const auto& p : peaks) {
    const WaveTable t = Built(static_cast<uint32_t>(p[0]));
    const auto [lo, hi] = std::minmax_element(t.entries, t.entries + 360);
    EXPECT_EQ(*hi, p[1]) << p[0];
    EXPECT_EQ(*lo, -p[1]) << p[0];
  }
}

TEST(WaveLookup, PeriodsInterpolationAndRangeReduction) {
  const WaveTable sine = Built(kSine);
  ASSERT_EQ(sine.entries[1], 1143);
  const struct {
    float angle, value;
  } cases[] = {
      {90.0f, 1.0f},
      {-90.0f, -1.0f},
      {450.0f, 1.0f},
      {-270.0f, 1.0f},
      {360.0f, 0.0f},
      {30.0f, 0.5f},
      {0.5f, 571 * kFix},     // f = 128, halfway between entries 0 and 1
      {1.0f / 512.0f, 0.0f},  // the lowest 8 bits of the 16.16 angle are dropped
      {-0.5f, -572 * kFix},   // 359.5°: −146304 >> 8 is −572 (arithmetic shift)
      {32000.0f, sine.entries[320] * kFix},
      {-32000.0f, sine.entries[40] * kFix},      // used as they are
      {32400.5f, 571 * kFix},                    // beyond 32000: fmod by 360
      {-32400.5f, ((-1143 * 131) >> 8) * kFix},  // below −32000: 360 − fmod − 0.01 reads 359.49 (f = 125)
      {NAN, sine.entries[352] * kFix},
      {INFINITY, sine.entries[352] * kFix},
      {-INFINITY, sine.entries[352] * kFix},
  };
  for (const auto& c : cases) EXPECT_EQ(WaveTableLookup(c.angle, sine), c.value) << c.angle;
  EXPECT_EQ(WaveTableLookup(1.0e9f, sine), WaveTableLookup(fmodf(1.0e9f, 360.0f), sine));

  // −360° wraps to exactly one period: the guard entries 360 and 361 are read.
  WaveTable marked{};
  marked.entries[360] = 65536;
  EXPECT_EQ(WaveTableLookup(-360.0f, marked), 1.0f);
  EXPECT_EQ(WaveTableLookup(-720.0f, marked), 1.0f);
  EXPECT_EQ(WaveTableLookup(360.0f, marked), 0.0f);
}

}  // namespace
}  // namespace tarvo
