// Waveform tables: 24 shapes tabulated at whole degrees in 16.16 fixed point.
//
// The arithmetic is deliberately exact: each shape is evaluated in double
// from a single-precision angle, stored as a float, then truncated to 16.16.
// The constants are the single-precision values of 2π and π, widened.
#include "wave_table.h"

#include <math.h>

#include <type_traits>

#include "fixed_point.h"

namespace tarvo {

// Zero-initialised static storage: no constructor runs, `built` starts at 0.
static_assert(std::is_trivially_default_constructible_v<WaveTable>);
WaveTable g_sineTable;

namespace {

constexpr double kTwoPi = 6.2831855f;  // single-precision 2π, widened
constexpr double kPi = 3.1415927f;     // single-precision π, widened

// A·sin(n·x) for the angle a in degrees, evaluated as a × n × 2π / 360.
double Harmonic(double amplitude, double a, int n) { return amplitude * sin(a * n * kTwoPi / 360.0); }

// Sum of harmonics stored as float, divided by a float divisor, stored again.
float Spectrum(double sum, float divisor) {
  float s = static_cast<float>(sum);
  return static_cast<float>(s / static_cast<double>(divisor));
}

// Half-circle of radius 90 degrees around centre, as a fraction of its radius.
double Arc(double a, double centre) {
  const double d = a - centre;
  return sqrt(8100.0 - d * d) / 90.0;
}

// The shape's value at whole degree a (0..359), stored as single precision.
float ShapeValue(uint32_t index, float af) {
  const double a = af;
  const double x = a * kTwoPi / 360.0;
  switch (index) {
    default:  // unknown shapes are tabulated as Sine; hosts never send one
    case kSine: return static_cast<float>(sin(x));
    case kTriangle: return static_cast<float>(a <= 180.0 ? (a - 90.0) * 2.0 / 180.0 : (270.0 - a) * 2.0 / 180.0);
    case kSquare: return a <= 180.0 ? 1.0f : -1.0f;
    case kSawtooth: return static_cast<float>((a - 180.0) / 180.0);
    case kCircle: return static_cast<float>(a <= 180.0 ? Arc(a, 90.0) : -Arc(a, 270.0));
    case kSemicircle: return static_cast<float>(sqrt(32400.0 - (a - 180.0) * (a - 180.0)) / 90.0 - 1.0);
    case kUncircle: return static_cast<float>(a <= 180.0 ? 1.0 - Arc(a, 90.0) : Arc(a, 270.0) - 1.0);
    case kHalfSine: return static_cast<float>(2.0 * sin(a * kPi / 360.0) - 1.0);
    case kSpectrum1: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 2), 1.5f);
    case kSpectrum2: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.25, a, 3), 1.25f);
    case kSpectrum3: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.25, a, 2), 1.25f);
    case kSpectrum4:  // divided by 1.55, not by the amplitude sum
      return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.25, a, 2) + Harmonic(0.25, a, 3), 1.55f);
    case kSpectrum5:
      return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.125, a, 3) + Harmonic(static_cast<double>(0.06f), a, 5), 1.185f);
    case kSpectrum6: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 3), 1.5f);
    case kSpectrum7: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 4) + Harmonic(0.5, a, 2), 2.0f);
    case kSpectrum8: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(1.0, a, 2), 2.0f);
    case kSpectrum9: return Spectrum(Harmonic(0.5, a, 1) + Harmonic(1.0, a, 2), 1.5f);
    case kSpectrum10: return Spectrum(Harmonic(0.5, a, 1) + Harmonic(1.0, a, 3), 1.5f);
    case kSpectrum11: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(1.0, a, 3), 2.0f);
    case kSpectrum12: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 3) + Harmonic(0.5, a, 2), 2.0f);
    case kSpectrum13: return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 3) + Harmonic(0.5, a, 5), 2.0f);
    case kSpectrum14:
      return Spectrum(Harmonic(1.0, a, 1) + Harmonic(0.5, a, 7) + Harmonic(0.5, a, 5) + Harmonic(0.5, a, 3), 2.5f);
    case RampPulse180: return static_cast<float>(a < 180.0 ? (a - 180.0) / 180.0 : 0.0);
    case RampPulse90: return static_cast<float>(a < 90.0 ? (a - 90.0) / 90.0 : 0.0);
  }
}

}  // namespace

void WaveTable::Build(uint32_t index, bool force) {
  if (!force && built) return;  // forced builds never read the flag (temporaries leave it unset)
  for (int k = 0; k < kEntries; ++k) {
    const float a = static_cast<float>(k % 360);
    entries[k] = FloatToFixed(ShapeValue(index, a));
  }
  entries[360] = entries[0];
  built = 1;
}

float WaveTableLookup(float angle, const WaveTable& table) {
  constexpr int32_t kPeriod = 360 * 65536;
  float a = angle;
  // Large angles are reduced to one period first so that a × 65536 fits in
  // 32 bits. Not-a-number and infinities come out of fmod as NaN, which
  // FloatToFixed turns into INT32_MIN: read below as −32768° (352°).
  if (!(fabsf(a) <= 32000.0f)) {
    if (a >= 0.0f) {
      a = static_cast<float>(fmod(static_cast<double>(a), 360.0));
    } else {
      a = static_cast<float>(360.0 - fmod(-static_cast<double>(a), 360.0) - static_cast<double>(0.01f));
    }
  }
  const int32_t t = FloatToFixed(a);
  int32_t r;
  if (t >= 0) {
    r = t % kPeriod;
  } else {
    // 64-bit negation: −INT32_MIN does not fit in 32 bits. r may equal the
    // period and then reads the guard entries 360 and 361.
    r = kPeriod - static_cast<int32_t>(-static_cast<int64_t>(t) % kPeriod);
  }
  const int32_t i = r >> 16;
  const int32_t f = (r >> 8) & 255;
  const int32_t v = (table.entries[i] * (256 - f) + table.entries[i + 1] * f) >> 8;
  return static_cast<float>(v) * 1.52587890625e-05f;
}

}  // namespace tarvo
