// The displacement field: for every offset from the centre that reaches the
// frame, its polar position and its radial and angular displacement.

#include <math.h>

#include <algorithm>

#include "call_ops.h"
#include "field_kernel.h"
#include "fixed_point.h"
#include "ripple_renderer.h"
#include "table_reads.h"

namespace tarvo {

namespace {

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
