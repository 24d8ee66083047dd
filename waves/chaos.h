// Chaos: morphing between the fourteen Spectrum waveforms and blending the
// result into the chosen waveform. Weights are 8-bit fixed point.
#pragma once

#include <stdint.h>

#include "wave_table.h"

namespace tarvo {

extern const uint32_t kChaosSpectra[14];

void BuildRippleWave(WaveTable& out, uint32_t waveform, float chaos, float blend);
void BuildChaosWave(WaveTable& out, float chaos);
void BlendWaves(WaveTable& out, uint32_t a, uint32_t b, float w);
void BlendWaveWithTable(WaveTable& out, uint32_t a, const WaveTable& b, float w);

}  // namespace tarvo
