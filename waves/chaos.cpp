// Chaos: a position along the fourteen Spectrum shapes, morphed linearly
// between neighbours, then mixed into the chosen waveform. All mixing is
// integer arithmetic with 8-bit weights.
#include "chaos.h"

#include <math.h>

#include "fixed_point.h"

namespace tarvo {

const uint32_t kChaosSpectra[14] = {8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21};

namespace {

// w8 = FloatToFixed(w) >> 8: 1.0 gives 256, 0.5 gives 128. Weights outside
// [0, 1] (never passed by the renderer) are held to it first, not-a-number
// counts as 0, so the mix cannot overflow.
int32_t Weight8(float w) {
  if (!(w > 0.0f)) return 0;
  if (w > 1.0f) w = 1.0f;
  return FloatToFixed(w) >> 8;
}

// out = a × (256 − w8) + b × w8, >> 8 with an arithmetic shift, all 362 entries.
// The built flag of out is left as it is.
void Mix(WaveTable& out, const WaveTable& a, const WaveTable& b, int32_t w8) {
  for (int k = 0; k < WaveTable::kEntries; ++k) {
    out.entries[k] = (a.entries[k] * (256 - w8) + b.entries[k] * w8) >> 8;
  }
}

}  // namespace

void BuildRippleWave(WaveTable& out, uint32_t waveform, float chaos, float blend) {
  if (blend < 0.001f) {
    out.Build(waveform, true);
  } else if (blend > 0.999f) {
    BuildChaosWave(out, chaos);
  } else {
    WaveTable chaosWave;
    BuildChaosWave(chaosWave, chaos);
    BlendWaveWithTable(out, waveform, chaosWave, blend);
  }
}

void BuildChaosWave(WaveTable& out, float chaos) {
  float p = static_cast<float>(static_cast<double>(chaos) - 1.0);
  if (!(p >= 0.0f)) p = 0.0f;  // also catches not-a-number: Spectrum 1
  if (p > 13.0f) p = 13.0f;
  const float frac = static_cast<float>(fmod(static_cast<double>(p), 1.0));
  const int32_t n = TruncToInt32(p);  // 0..13
  if (frac < 0.001f) {
    out.Build(kChaosSpectra[n], true);
  } else if (frac > 0.999f) {
    out.Build(kChaosSpectra[n + 1], true);  // n ≤ 12 here: p = 13 has no fraction
  } else {
    BlendWaves(out, kChaosSpectra[n], kChaosSpectra[n + 1], frac);
  }
}

void BlendWaves(WaveTable& out, uint32_t a, uint32_t b, float w) {
  const int32_t w8 = Weight8(w);
  WaveTable ta;
  WaveTable tb;
  ta.Build(a, true);
  tb.Build(b, true);
  Mix(out, ta, tb, w8);
}

void BlendWaveWithTable(WaveTable& out, uint32_t a, const WaveTable& b, float w) {
  const int32_t w8 = Weight8(w);
  WaveTable ta;
  ta.Build(a, true);
  Mix(out, ta, b, w8);
}

}  // namespace tarvo
