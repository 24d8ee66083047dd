// The displacement of one offset from the centre, by branch: the wave
// phase from the distance, the fade between radius and outer radius, the
// ellipse factor of the stretched branches and the twirl conversion.
#pragma once

#include <math.h>
#include <stdint.h>

#include "ripple_renderer.h"
#include "table_reads.h"

namespace tarvo {

constexpr double kDegreesPerRadian = 57.2957763671875;  // single-precision 180/π

// The per-render constants of the field, widened once.
struct FieldKernel {
  const int32_t* wave;
  const int32_t* sine;
  double waveHeight;
  double angularHeight;
  double degreesPerPixel;
  double radius;
  double outer;
  double phase;
  double stretchSq;
  double twirlScale;
  double twirlGrowth;
  float radiusF;
  int32_t angle;
  int32_t twirl;

  // The fade at position `at` (a distance, scaled in the stretched
  // branches) past `inner`, to nothing at `limit`: radial × f and angular ×
  // f to the power twirl + 1, f = (limit − at) / (limit − inner);
  // clampFade raises a negative f to 0.
  void Fade(double limit, double at, double inner, bool clampFade, double& radial, double& angular) const {
    double f = (limit - at) / (limit - inner);
    if (clampFade && f < 0.0) f = 0.0;
    radial *= f;
    angular *= f;
    for (int32_t k = 0; k < twirl; ++k) angular *= f;
  }

  // The angular part in degrees by twirl level.
  double Twirl(double angular, float d) const {
    switch (twirl) {
      case 0:  // an arc length in pixels turned into the angle at distance d
        if (!(d > 0.1f)) return 0.0;
        // A zero stays the same zero: no division needed.
        return angular == 0.0 ? angular : angular * kDegreesPerRadian / d;
      case 1: return angular * twirlScale;
      case 2: return (angular * twirlScale) * (twirlGrowth * d);
      default: {
        const double g = twirlGrowth * d;
        return (angular * twirlScale) * (g * g);
      }
    }
  }

  Displacement Circular(float d) const {
    const float w = ReadWave(static_cast<float>(d * degreesPerPixel + phase), wave);
    double radial = waveHeight * w;
    double angular = -(angularHeight * w);  // this branch swirls the other way
    if (d > radiusF) Fade(outer, d, radius, true, radial, angular);
    return {static_cast<float>(radial), static_cast<float>(Twirl(angular, d))};
  }

  // AxisStretched and Rotated; only Rotated raises a negative fade to 0.
  Displacement Stretched(float d, float a, bool clampFade) const {
    const double t = static_cast<double>(a) - angle;
    const double s = ReadWave(static_cast<float>(t), sine);
    const double c = ReadWave(static_cast<float>(t + 90.0), sine);
    // Radius at direction t of the ellipse with semi-axis S along the
    // stretch angle and 1 across it.
    const double k = sqrt(stretchSq / (c * c + stretchSq * (s * s)));
    const double e = d * k;
    const double limit = k * outer;
    if (!(e < limit)) return {0.0f, 0.0f};
    const float w = ReadWave(static_cast<float>((degreesPerPixel * d) / k + phase), wave);
    double radial = waveHeight * w * k;
    double angular = angularHeight * w;
    const double r = radius * k;
    if (e > r) Fade(limit, e, r, clampFade, radial, angular);
    return {static_cast<float>(radial), static_cast<float>(Twirl(angular, d))};
  }

  // One entry at offset (x, y) from the centre, yy = y²: its polar position
  // and displacement. Every vector width falls back on these.
  void CircularEntry(float y, double yy, float x, Polar& polar, Displacement& disp) const {
    const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
    polar = {d, static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian)};
    disp = Circular(d);
  }
  void StretchedEntry(float y, double yy, float x, bool clampFade, Polar& polar, Displacement& disp) const {
    const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
    const float a = static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian);
    polar = {d, a};
    disp = Stretched(d, a, clampFade);
  }
};

inline FieldKernel MakeKernel(const RippleRenderer& rr) {
  FieldKernel k;
  k.wave = rr.wave->entries;
  k.sine = g_sineTable.entries;
  k.waveHeight = rr.waveHeightPx;
  k.angularHeight = rr.angularHeightPx;
  k.degreesPerPixel = rr.degreesPerPixel;
  k.radius = rr.radiusPx;
  k.outer = rr.outerRadiusPx;
  k.phase = rr.phase;
  k.stretchSq = static_cast<double>(rr.stretch) * rr.stretch;
  k.twirlScale = rr.twirlScale;
  k.twirlGrowth = rr.twirlGrowth;
  k.radiusF = rr.radiusPx;
  k.angle = rr.stretchAngle;
  k.twirl = rr.twirl;
  return k;
}

}  // namespace tarvo
