// Chaos: choosing and morphing the Spectrum shapes, and blending with 8-bit
// weights into the chosen waveform.
#include <math.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "chaos.h"
#include "wave_table.h"

namespace tarvo {
namespace {

WaveTable Built(uint32_t index) {
  WaveTable t{};
  t.Build(index, true);
  return t;
}

// Spectrum n (1..14).
WaveTable Spectrum(int n) { return Built(kSpectrum1 + static_cast<uint32_t>(n - 1)); }

::testing::AssertionResult SameEntries(const WaveTable& a, const WaveTable& b) {
  for (int k = 0; k < WaveTable::kEntries; ++k) {
    if (a.entries[k] != b.entries[k]) {
      return ::testing::AssertionFailure() << "entry " << k << ": " << a.entries[k] << " vs " << b.entries[k];
    }
  }
  return ::testing::AssertionSuccess();
}

// (a × (256 − w8) + b × w8) >> 8 for every entry.
WaveTable Mixed(const WaveTable& a, const WaveTable& b, int32_t w8) {
  WaveTable m{};
  for (int k = 0; k < WaveTable::kEntries; ++k) m.entries[k] = (a.entries[k] * (256 - w8) + b.entries[k] * w8) >> 8;
  return m;
}

TEST(ChaosSpectra, ListsSpectrum1To14InMenuOrder) {
  for (int n = 0; n < 14; ++n) EXPECT_EQ(kChaosSpectra[n], static_cast<uint32_t>(8 + n));
}

TEST(ChaosWave, WholePositionsPickOneSpectrum) {
  struct Case {
    float position;
    int spectrum;
  };
  for (const Case c : {Case{3.0f, 3}, Case{3.0005f, 3}, Case{3.9995f, 4}, Case{14.0f, 14}, Case{20.0f, 14},
                       Case{0.0f, 1}, Case{0.5f, 1}, Case{1.0f, 1}, Case{-7.0f, 1}, Case{NAN, 1}}) {
    WaveTable out{};
    BuildChaosWave(out, c.position);
    EXPECT_TRUE(SameEntries(out, Spectrum(c.spectrum))) << "position " << c.position;
  }
}

TEST(ChaosWave, BetweenPositionsMorphsNeighbours) {
  WaveTable out{};
  BuildChaosWave(out, 2.5f);
  EXPECT_TRUE(SameEntries(out, Mixed(Spectrum(2), Spectrum(3), 128)));

  // 13.25: a quarter of the way from Spectrum 13 to 14 (w8 = 64).
  BuildChaosWave(out, 13.25f);
  EXPECT_TRUE(SameEntries(out, Mixed(Spectrum(13), Spectrum(14), 64)));
}

TEST(RippleWave, BlendZeroIsThePlainWaveform) {
  for (float chaos : {1.0f, 7.3f, 14.0f}) {
    for (float blend : {0.0f, 0.0009f}) {
      WaveTable out{};
      BuildRippleWave(out, kTriangle, chaos, blend);
      EXPECT_TRUE(SameEntries(out, Built(kTriangle))) << chaos << " " << blend;
    }
  }
}

TEST(RippleWave, BlendOneIsThePureChaosWave) {
  for (uint32_t waveform : {static_cast<uint32_t>(kSine), static_cast<uint32_t>(kSquare),
                            static_cast<uint32_t>(RampPulse90)}) {
    WaveTable out{};
    BuildRippleWave(out, waveform, 3.0f, 1.0f);
    EXPECT_TRUE(SameEntries(out, Spectrum(3))) << waveform;
    BuildRippleWave(out, waveform, 3.9995f, 1.0f);
    EXPECT_TRUE(SameEntries(out, Spectrum(4))) << waveform;
    BuildRippleWave(out, waveform, 20.0f, 0.9995f);
    EXPECT_TRUE(SameEntries(out, Spectrum(14))) << waveform;
  }
}

TEST(RippleWave, HalfBlendWithSquare) {
  WaveTable out{};
  BuildRippleWave(out, kSquare, 5.0f, 0.5f);
  const WaveTable chaos = Spectrum(5);
  for (int k = 0; k < WaveTable::kEntries; ++k) {
    const int32_t square = (k % 360) <= 180 ? 65536 : -65536;
    ASSERT_EQ(out.entries[k], (square * 128 + chaos.entries[k] * 128) >> 8) << "entry " << k;
  }
  EXPECT_EQ(out.entries[360], out.entries[0]);
  EXPECT_EQ(out.entries[361], out.entries[1]);
}

TEST(RippleWave, BlendJustBelowUpperLimitStillMixes) {
  // 0.999 itself is not above the limit: w8 = FloatToFixed(0.999) >> 8 = 255.
  WaveTable out{};
  BuildRippleWave(out, kSquare, 1.0f, 0.999f);
  EXPECT_TRUE(SameEntries(out, Mixed(Built(kSquare), Spectrum(1), 255)));
}

TEST(RippleWave, NotANumberBlendKeepsTheWaveform) {
  WaveTable out{};
  BuildRippleWave(out, kSawtooth, 4.0f, NAN);
  EXPECT_TRUE(SameEntries(out, Built(kSawtooth)));
}

TEST(Blend, EightBitWeights) {
  const WaveTable square = Built(kSquare);
  const WaveTable sine = Built(kSine);
  WaveTable out{};
  BlendWaves(out, kSquare, kSine, 0.0039f);  // w8 = 255 >> 8 = 0
  EXPECT_TRUE(SameEntries(out, square));
  BlendWaves(out, kSquare, kSine, 0.5f);
  EXPECT_TRUE(SameEntries(out, Mixed(square, sine, 128)));
  BlendWaves(out, kSquare, kSine, 1.0f);
  EXPECT_TRUE(SameEntries(out, sine));

  BlendWaveWithTable(out, kSquare, sine, 0.0039f);
  EXPECT_TRUE(SameEntries(out, square));
  BlendWaveWithTable(out, kSquare, sine, 0.75f);
  EXPECT_TRUE(SameEntries(out, Mixed(square, sine, 192)));
}

TEST(Blend, NegativeProductsShiftArithmetically) {
  // Square −65536 against Sine at 359° (−1143) with w8 = 128:
  // (−65536 × 128 − 1143 × 128) >> 8 = −33339.5 → −33340.
  WaveTable out{};
  BlendWaves(out, kSquare, kSine, 0.5f);
  EXPECT_EQ(out.entries[359], -33340);
}

TEST(Blend, LeavesTheBuiltFlagAlone) {
  WaveTable out{};
  BlendWaves(out, kSquare, kSine, 0.5f);
  EXPECT_EQ(out.built, 0);
  out.built = 1;
  BlendWaveWithTable(out, kSquare, Built(kSine), 0.5f);
  EXPECT_EQ(out.built, 1);
}

TEST(Blend, WeightsOutsideZeroToOneAreHeld) {
  const WaveTable square = Built(kSquare);
  const WaveTable sine = Built(kSine);
  WaveTable out{};
  BlendWaves(out, kSquare, kSine, -3.0f);
  EXPECT_TRUE(SameEntries(out, square));
  BlendWaves(out, kSquare, kSine, 1.0e9f);
  EXPECT_TRUE(SameEntries(out, sine));
  BlendWaveWithTable(out, kSquare, sine, NAN);
  EXPECT_TRUE(SameEntries(out, square));
}

}  // namespace
}  // namespace tarvo
