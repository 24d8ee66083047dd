// Waveform tables: one period of a wave shape at every whole degree, in
// 16.16 fixed point, read back with 1/256-degree linear interpolation.
#pragma once

#include <stdint.h>

namespace tarvo {

enum WaveformKind : uint32_t {
  kSine = 0,
  kTriangle = 1,
  kSquare = 2,
  kSawtooth = 3,
  kCircle = 4,
  kSemicircle = 5,
  kUncircle = 6,
  kHalfSine = 7,
  kSpectrum1 = 8,
  kSpectrum2,
  kSpectrum3,
  kSpectrum4,
  kSpectrum5,
  kSpectrum6,
  kSpectrum7,
  kSpectrum8,
  kSpectrum9,
  kSpectrum10,
  kSpectrum11,
  kSpectrum12,
  kSpectrum13,
  kSpectrum14 = 21,
  RampPulse180 = 22,
  RampPulse90 = 23,
  kWaveformCount = 24
};

struct WaveTable {
  static constexpr int kEntries = 362;  // 360 degrees + 2 guard entries (= entries 0 and 1)

  uint8_t built;  // 0 until the first Build (static storage starts at 0)
  int32_t entries[kEntries];

  // Tabulates waveform `index`; without force a built table is left alone.
  // An index outside 0..23 tabulates Sine.
  void Build(uint32_t index, bool force);
};

// The shape's value at any angle in degrees, in [−1, +1], interpolated in
// 1/256-degree steps. Not-a-number and infinite angles read the value at 352°.
float WaveTableLookup(float angle, const WaveTable& table);

// The process-wide plain sine, built on first use. The ripple's own (possibly
// morphed) wave belongs to each render.
extern WaveTable g_sineTable;

}  // namespace tarvo
