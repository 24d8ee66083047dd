// The displacement field: for every offset from the centre that reaches the
// frame, its polar position and its radial and angular displacement.

#include <math.h>

#include <algorithm>

#include "call_ops.h"
#include "fixed_point.h"
#include "ripple_renderer.h"
#include "table_reads.h"

namespace tarvo {

namespace {

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

  // angular × f to the power twirl + 1.
  double FadeAngular(double angular, double f) const {
    angular *= f;
    for (int32_t k = 0; k < twirl; ++k) angular *= f;
    return angular;
  }

  // The angular part in degrees by twirl level.
  double Twirl(double angular, float d) const {
    switch (twirl) {
      case 0:  // an arc length in pixels turned into the angle at distance d
        return d > 0.1f ? angular * kDegreesPerRadian / d : 0.0;
      case 1:
        return angular * twirlScale;
      case 2:
        return (angular * twirlScale) * (twirlGrowth * d);
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
    if (d > radiusF) {
      double f = (outer - d) / (outer - radius);
      if (f < 0.0) f = 0.0;
      radial *= f;
      angular = FadeAngular(angular, f);
    }
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
    if (e > r) {
      double f = (limit - e) / (limit - r);
      if (clampFade && f < 0.0) f = 0.0;
      radial *= f;
      angular = FadeAngular(angular, f);
    }
    return {static_cast<float>(radial), static_cast<float>(Twirl(angular, d))};
  }
};

FieldKernel MakeKernel(const RippleRenderer& rr) {
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

// √radicand truncated, no more than limit; a negative radicand gives 0.
int32_t RowLength(double radicand, int32_t limit) {
  if (radicand < 0.0) return 0;
  return std::max(0, std::min(TruncToInt32(sqrt(radicand)), limit));
}

}  // namespace

void RippleRenderer::ComputeField() {
  const FieldBranch branch = Branch();
  for (int32_t j = 0; j < quadRows; ++j) {
    if (CheckAbort()) {
      aborted = true;
      return;
    }
    if (branch == FieldBranch::kRotated) {
      ComputeRotatedRow(j);
    } else {
      ComputeSymmetricRow(j, branch);
    }
  }
}

void RippleRenderer::ComputeSymmetricRow(int32_t j, FieldBranch branch) {
  const float y = static_cast<float>(j + 0.5);
  const double yy = static_cast<double>(y) * y;
  const double outer = outerRadiusPx;
  const bool acrossRows = branch == FieldBranch::kAxisStretched && (stretchAngle == 90 || stretchAngle == 270);
  const double radicand =
      acrossRows ? outer * outer - yy * (static_cast<double>(stretch) * stretch) : outer * outer - yy;
  const int32_t n = RowLength(radicand, quadCols);
  quadrant->rowLength[j] = n;

  const ColumnRange reach = SymmetricReach(j, n);
  if (reach.begin >= reach.end) return;
  const FieldKernel kernel = MakeKernel(*this);
  Polar* polar = quadrant->polar + quadrant->Index(j, 0);
  Displacement* disp = quadrant->displacement + quadrant->Index(j, 0);
  float x = static_cast<float>(0.5 + reach.begin);
  if (branch == FieldBranch::kCircular) {
    for (int32_t i = reach.begin; i < reach.end; ++i, x += 1.0f) {
      const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
      polar[i] = {d, static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian)};
      disp[i] = kernel.Circular(d);
    }
  } else {
    for (int32_t i = reach.begin; i < reach.end; ++i, x += 1.0f) {
      const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
      const float a = static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian);
      polar[i] = {d, a};
      disp[i] = kernel.Stretched(d, a, false);
    }
  }
}

void RippleRenderer::ComputeRotatedRow(int32_t j) {
  // Rows without a span stay uncomputed; so do columns whose two grid
  // points both fall outside the frame.
  const ColumnRange reach = RotatedReach(j);
  if (reach.begin >= reach.end) return;
  const float y = static_cast<float>(j + 0.5);
  const double yy = static_cast<double>(y) * y;
  const FieldKernel kernel = MakeKernel(*this);
  Polar* polar = quadrant->polar + quadrant->Index(j, 0);
  Displacement* disp = quadrant->displacement + quadrant->Index(j, 0);
  for (int32_t c = reach.begin; c < reach.end; ++c) {
    const float x = static_cast<float>(c - 0.5 - width);
    const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
    const float a = static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian);
    polar[c] = {d, a};
    disp[c] = kernel.Stretched(d, a, true);
  }
}

}  // namespace tarvo
