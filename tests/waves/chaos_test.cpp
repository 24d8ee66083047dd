// Chaos: choosing and morphing the Spectrum shapes, and blending with 8-bit
// weights into the chosen waveform.
#include <math.h>

#include <gtest/gtest.h>

#include <vector>

#include "chaos.h"
#include "wave_table.h"

namespace tarvo {
namespace {

WaveTable Built(uint32_t index) {
  WaveTable t{};
  t.Build(index, true);
  return t;
}

WaveTable Spectrum(int n) { return Built(kSpectrum1 + static_cast<uint32_t>(n - 1)); }

// (a × (256 − w8) + b × w8) >> 8 for every entry, guard entries included.
WaveTable Mixed(const WaveTable& a, const WaveTable& b, int32_t w8) {
  WaveTable m{};
  for (int k = 0; k < WaveTable::kEntries; ++k) m.entries[k] = (a.entries[k] * (256 - w8) + b.entries[k] * w8) >> 8;
  return m;
}

std::vector<int32_t> Entries(const WaveTable& t) { return {t.entries, t.entries + WaveTable::kEntries}; }

// Fractions below 0.001 and above 0.999 snap to the whole position;
// positions outside 1..14 (and not-a-number) are held to the ends.
TEST(ChaosWave, PositionsPickOrMorphNeighbouringSpectra) {
  const struct {
    float position;
    int low, high, w8;
  } cases[] = {{3.0f, 3, 3, 0},    {3.0005f, 3, 3, 0}, {3.9995f, 4, 4, 0},  {14.0f, 14, 14, 0},
               {20.0f, 14, 14, 0}, {0.0f, 1, 1, 0},    {0.5f, 1, 1, 0},     {-7.0f, 1, 1, 0},
               {NAN, 1, 1, 0},     {2.5f, 2, 3, 128},  {13.25f, 13, 14, 64}};
  for (const auto& c : cases) {
    WaveTable out{};
    BuildChaosWave(out, c.position);
    EXPECT_EQ(Entries(out), Entries(Mixed(Spectrum(c.low), Spectrum(c.high), c.w8))) << c.position;
  }
}

// Blend 0 (and anything below 1/1000, or not a number) is the plain
// waveform; blend 1 (and above 0.999) the chaos wave whatever the waveform.
TEST(RippleWave, BlendWeightMixesWaveformAndChaosWave) {
  const struct {
    uint32_t waveform;
    float chaos, blend;
    int32_t w8;
  } cases[] = {{kTriangle, 7.3f, 0.0f, 0}, {kTriangle, 14.0f, 0.0009f, 0}, {kSawtooth, 4.0f, NAN, 0},
               {kSine, 3.0f, 1.0f, 256},   {kSquare, 3.9995f, 1.0f, 256},  {RampPulse90, 20.0f, 0.9995f, 256},
               {kSquare, 5.0f, 0.5f, 128}, {kSquare, 1.0f, 0.999f, 255}};
  for (const auto& c : cases) {
    WaveTable out{}, chaos{};
    BuildRippleWave(out, c.waveform, c.chaos, c.blend);
    BuildChaosWave(chaos, c.chaos);
    EXPECT_EQ(Entries(out), Entries(Mixed(Built(c.waveform), chaos, c.w8))) << c.waveform << " " << c.blend;
  }
}

// w8 is the 16.16 weight shifted right by 8, held to 0..256.
TEST(Blend, EightBitWeightsHeldToZeroToOne) {
  const WaveTable square = Built(kSquare), sine = Built(kSine);
  const struct {
    float weight;
    int32_t w8;
  } cases[] = {{0.0039f, 0}, {0.5f, 128}, {0.75f, 192}, {1.0f, 256}, {-3.0f, 0}, {1.0e9f, 256}, {NAN, 0}};
  for (const auto& c : cases) {
    WaveTable byIndex{}, byTable{};
    BlendWaves(byIndex, kSquare, kSine, c.weight);
    BlendWaveWithTable(byTable, kSquare, sine, c.weight);
    EXPECT_EQ(Entries(byIndex), Entries(Mixed(square, sine, c.w8))) << c.weight;
    EXPECT_EQ(Entries(byTable), Entries(Mixed(square, sine, c.w8))) << c.weight;
    EXPECT_EQ(byIndex.built, 0);  // blending does not mark a table built
  }
  // Square −65536 against Sine at 359° (−1143), w8 128: −33339.5 shifts to −33340.
  WaveTable out{};
  BlendWaves(out, kSquare, kSine, 0.5f);
  EXPECT_EQ(out.entries[359], -33340);
}

}  // namespace
}  // namespace tarvo
