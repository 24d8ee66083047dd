// Wave tables: the shapes' tabulated values, the guard entries, building
// once, and lookup with range reduction, wrapping and interpolation.
#include <math.h>

#include <algorithm>

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

TEST(WaveTableShapes, Sine) {
  const WaveTable t = Built(kSine);
  EXPECT_EQ(t.entries[0], 0);
  EXPECT_EQ(t.entries[90], 65536);
  EXPECT_EQ(t.entries[180], 0);
  EXPECT_EQ(t.entries[270], -65536);
  EXPECT_EQ(t.entries[30], 32768);   // single-precision 2π puts sin just above 0.5
  EXPECT_EQ(t.entries[150], 32767);  // ... and here just below, truncated
}

TEST(WaveTableShapes, TriangleSquareSawtooth) {
  const WaveTable tri = Built(kTriangle);
  EXPECT_EQ(tri.entries[0], -65536);
  EXPECT_EQ(tri.entries[180], 65536);
  EXPECT_EQ(tri.entries[359], -64807);

  const WaveTable sq = Built(kSquare);
  EXPECT_EQ(sq.entries[180], 65536);  // 180 belongs to the positive half
  EXPECT_EQ(sq.entries[181], -65536);
  EXPECT_EQ(sq.entries[0], 65536);
  EXPECT_EQ(sq.entries[359], -65536);

  const WaveTable saw = Built(kSawtooth);
  EXPECT_EQ(saw.entries[359], 65171);
  EXPECT_EQ(saw.entries[360], -65536);
  EXPECT_EQ(saw.entries[0], -65536);
}

TEST(WaveTableShapes, CircleArcsAndHalfSine) {
  const WaveTable circle = Built(kCircle);
  EXPECT_EQ(circle.entries[0], 0);
  EXPECT_EQ(circle.entries[1], 9742);
  EXPECT_EQ(circle.entries[90], 65536);
  EXPECT_EQ(circle.entries[180], 0);
  EXPECT_EQ(circle.entries[181], -9742);

  const WaveTable semi = Built(kSemicircle);
  EXPECT_EQ(semi.entries[0], -65536);
  EXPECT_EQ(semi.entries[1], -51739);
  EXPECT_EQ(semi.entries[90], 47975);
  EXPECT_EQ(semi.entries[180], 65536);

  const WaveTable un = Built(kUncircle);
  EXPECT_EQ(un.entries[0], 65536);
  EXPECT_EQ(un.entries[90], 0);
  EXPECT_EQ(un.entries[180], 65536);  // inclusive: still the upper arc
  EXPECT_EQ(un.entries[181], -55793);
  EXPECT_EQ(un.entries[270], 0);

  const WaveTable half = Built(kHalfSine);
  EXPECT_EQ(half.entries[0], -65536);
  EXPECT_EQ(half.entries[1], -64392);
  EXPECT_EQ(half.entries[90], 27145);
  EXPECT_EQ(half.entries[180], 65536);
}

TEST(WaveTableShapes, RampPulses) {
  const WaveTable r180 = Built(RampPulse180);
  EXPECT_EQ(r180.entries[0], -65536);
  EXPECT_EQ(r180.entries[90], -32768);
  EXPECT_EQ(r180.entries[179], -364);  // (179 − 180) / 180, truncated
  EXPECT_EQ(r180.entries[180], 0);     // strict: 180 is already the flat part
  EXPECT_EQ(r180.entries[359], 0);

  const WaveTable r90 = Built(RampPulse90);
  EXPECT_EQ(r90.entries[0], -65536);
  EXPECT_EQ(r90.entries[45], -32768);
  EXPECT_EQ(r90.entries[89], -728);
  EXPECT_EQ(r90.entries[90], 0);
}

TEST(WaveTableShapes, SpectrumPeaksStayBelowFullScale) {
  struct Peak {
    uint32_t index;
    int32_t max;
  };
  for (const Peak p : {Peak{kSpectrum1, 56755}, Peak{kSpectrum4, 48146}, Peak{kSpectrum7, 45001},
                       Peak{kSpectrum14, 42415}}) {
    const WaveTable t = Built(p.index);
    const auto [lo, hi] = std::minmax_element(t.entries, t.entries + 360);
    EXPECT_EQ(*hi, p.max) << "shape " << p.index;
    EXPECT_EQ(*lo, -p.max) << "shape " << p.index;
  }
}

// Spectrum 5 evaluated by hand: each harmonic with the single-precision
// constants, the sum rounded to float, divided by 1.185f, rounded again.
int32_t Spectrum5ByHand(int degrees) {
  const double twoPi = static_cast<double>(6.2831855f);
  const double amp5 = static_cast<double>(0.06f);
  double sum = 0.0;
  sum += sin(degrees * 1 * twoPi / 360.0);
  sum += 0.125 * sin(degrees * 3 * twoPi / 360.0);
  sum += amp5 * sin(degrees * 5 * twoPi / 360.0);
  const float stored = static_cast<float>(sum);
  const float value = static_cast<float>(static_cast<double>(stored) / static_cast<double>(1.185f));
  return static_cast<int32_t>(static_cast<double>(value) * 65536.0);
}

TEST(WaveTableShapes, Spectrum5MatchesIndependentEvaluation) {
  const WaveTable t = Built(kSpectrum5);
  // Reference values from a separate evaluation of the same recipe.
  EXPECT_EQ(t.entries[37], 39447);
  EXPECT_EQ(t.entries[90], 51709);
  EXPECT_EQ(t.entries[123], 44258);
  EXPECT_EQ(t.entries[200], -28170);
  EXPECT_EQ(t.entries[333], -34282);
  for (int a : {0, 1, 17, 37, 90, 123, 179, 200, 271, 333, 359}) {
    EXPECT_EQ(t.entries[a], Spectrum5ByHand(a)) << a << " degrees";
  }
}

TEST(WaveTableShapes, EveryShapeInRangeWithGuardEntries) {
  for (uint32_t index = 0; index < kWaveformCount; ++index) {
    const WaveTable t = Built(index);
    for (int k = 0; k < WaveTable::kEntries; ++k) {
      ASSERT_GE(t.entries[k], -65536) << "shape " << index << " entry " << k;
      ASSERT_LE(t.entries[k], 65536) << "shape " << index << " entry " << k;
    }
    EXPECT_EQ(t.entries[360], t.entries[0]) << "shape " << index;
    EXPECT_EQ(t.entries[361], t.entries[1]) << "shape " << index;
    EXPECT_EQ(t.built, 1) << "shape " << index;
  }
}

TEST(WaveTableShapes, UnknownIndexBuildsSineInsideTheTable) {
  const WaveTable sine = Built(kSine);
  struct Fenced {
    int32_t before;
    WaveTable table;
    int32_t after;
  };
  for (uint32_t index : {24u, 1000u, 0xFFFFFFFFu}) {
    Fenced f{0x5A5A5A5A, {}, 0x5A5A5A5A};
    f.table.Build(index, true);
    EXPECT_EQ(f.before, 0x5A5A5A5A);
    EXPECT_EQ(f.after, 0x5A5A5A5A);
    EXPECT_TRUE(std::equal(sine.entries, sine.entries + WaveTable::kEntries, f.table.entries)) << index;
  }
}

TEST(WaveTableBuild, BuildsOnceUnlessForced) {
  WaveTable t{};
  EXPECT_EQ(t.built, 0);
  t.Build(kSine, false);
  EXPECT_EQ(t.built, 1);
  EXPECT_EQ(t.entries[90], 65536);

  t.entries[90] = 12345;  // a second unforced build must not recompute
  t.Build(kSine, false);
  EXPECT_EQ(t.entries[90], 12345);
  t.Build(kSquare, false);
  EXPECT_EQ(t.entries[90], 12345);

  t.Build(kSawtooth, true);  // forced: replaced by another shape
  EXPECT_EQ(t.entries[359], 65171);
  EXPECT_EQ(t.entries[90], -32768);
  EXPECT_EQ(t.built, 1);
}

class WaveTableLookupTest : public ::testing::Test {
 protected:
  void SetUp() override { sine_.Build(kSine, true); }
  WaveTable sine_{};
};

TEST_F(WaveTableLookupTest, WholeDegreesAndPeriods) {
  EXPECT_EQ(WaveTableLookup(90.0f, sine_), 1.0f);
  EXPECT_EQ(WaveTableLookup(-90.0f, sine_), -1.0f);
  EXPECT_EQ(WaveTableLookup(450.0f, sine_), 1.0f);
  EXPECT_EQ(WaveTableLookup(360.0f, sine_), WaveTableLookup(0.0f, sine_));
  EXPECT_EQ(WaveTableLookup(0.0f, sine_), 0.0f);
  EXPECT_EQ(WaveTableLookup(-270.0f, sine_), 1.0f);
  EXPECT_EQ(WaveTableLookup(30.0f, sine_), 0.5f);
}

TEST_F(WaveTableLookupTest, InterpolatesIn256thsOfADegree) {
  // 0.5° is f = 128: halfway between entries 0 and 1 (0 and 1143).
  EXPECT_EQ(sine_.entries[1], 1143);
  EXPECT_EQ(WaveTableLookup(0.5f, sine_), 571 * kFix);
  // The lowest 8 bits of the 16.16 angle are dropped: 1/512° reads entry 0.
  EXPECT_EQ(WaveTableLookup(1.0f / 512.0f, sine_), 0.0f);
  // Negative fractions interpolate with an arithmetic shift: −0.5° is 359.5°.
  EXPECT_EQ(sine_.entries[359], -1143);
  EXPECT_EQ(WaveTableLookup(-0.5f, sine_), -572 * kFix);  // −146304 >> 8 = −572
}

TEST_F(WaveTableLookupTest, NegativeWholePeriodReadsGuardEntries) {
  // −360° wraps to r = P exactly, i.e. entries 360 and 361, not 0 and 1.
  WaveTable marked{};
  std::fill(marked.entries, marked.entries + WaveTable::kEntries, 0);
  marked.entries[360] = 65536;
  EXPECT_EQ(WaveTableLookup(-360.0f, marked), 1.0f);
  EXPECT_EQ(WaveTableLookup(-720.0f, marked), 1.0f);
  EXPECT_EQ(WaveTableLookup(0.0f, marked), 0.0f);
  EXPECT_EQ(WaveTableLookup(360.0f, marked), 0.0f);
}

TEST_F(WaveTableLookupTest, RangeReductionBeyond32000Degrees) {
  // Up to 32000 the angle is used as it is.
  EXPECT_EQ(WaveTableLookup(32000.0f, sine_), WaveTableLookup(320.0f, sine_));
  EXPECT_EQ(WaveTableLookup(-32000.0f, sine_), WaveTableLookup(40.0f, sine_));
  // Above: fmod by 360, so 32400.5 reads like 0.5.
  EXPECT_EQ(WaveTableLookup(32400.5f, sine_), 571 * kFix);
  // Below −32000: 360 − fmod(−a, 360) − 0.01, so −32400.5 reads 359.49
  // (f = 125), not 359.5 (f = 128).
  EXPECT_EQ(WaveTableLookup(-32400.5f, sine_), ((-1143 * 131) >> 8) * kFix);
  EXPECT_NE(WaveTableLookup(-32400.5f, sine_), WaveTableLookup(-0.5f, sine_));
  EXPECT_EQ(WaveTableLookup(1.0e9f, sine_), WaveTableLookup(fmodf(1.0e9f, 360.0f), sine_));
}

TEST_F(WaveTableLookupTest, NonFiniteAnglesStayInsideTheTable) {
  const float at352 = sine_.entries[352] * kFix;
  EXPECT_EQ(WaveTableLookup(NAN, sine_), at352);
  EXPECT_EQ(WaveTableLookup(INFINITY, sine_), at352);
  EXPECT_EQ(WaveTableLookup(-INFINITY, sine_), at352);
  EXPECT_EQ(WaveTableLookup(352.0f, sine_), at352);
}

}  // namespace
}  // namespace tarvo
