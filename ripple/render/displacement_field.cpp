// The displacement field: for every offset from the centre that reaches the
// frame, its polar position and its radial and angular displacement.

#include <math.h>

#include <algorithm>

#include "call_ops.h"
#include "field_kernel.h"
#include "field_simd.h"
#include "fixed_point.h"
#include "render_bands.h"
#include "ripple_renderer.h"
#include "table_reads.h"
#include "wave_table.h"

namespace tarvo {

namespace {

// √radicand truncated, no more than limit; a negative radicand gives 0.
int32_t RowLength(double radicand, int32_t limit) {
  if (radicand < 0.0) return 0;
  return std::max(0, std::min(TruncToInt32(sqrt(radicand)), limit));
}

// Entries begin .. end − 1 of a circular row, entry i at horizontal offset
// 0.5 + i: at the field's vector width, the rest one at a time.
void CircularEntries(const FieldKernel& kernel, [[maybe_unused]] SimdLevel simd, float y, double yy, int32_t begin,
                     int32_t end, Polar* polar, Displacement* disp) {
  int32_t i = begin;
#ifdef TARVO_AVX2_PATHS
  if (simd == SimdLevel::kAvx2) i = avx2::CircularRow(kernel, y, yy, i, end, polar, disp);
#endif
#ifdef TARVO_SSE2_PATHS
  if (simd >= SimdLevel::kSse2) i = sse2::CircularRow(kernel, y, yy, i, end, polar, disp);
#endif
  for (; i < end; ++i) kernel.CircularEntry(y, yy, static_cast<float>(0.5 + i), polar[i], disp[i]);
}

// Entries begin .. end − 1 of a stretched branch's row, entry i at
// horizontal offset (i + columnShift) − 0.5: at the field's vector width,
// the rest one at a time.
void StretchedEntries(const FieldKernel& kernel, [[maybe_unused]] SimdLevel simd, float y, double yy, int32_t begin,
                      int32_t end, int32_t columnShift, bool clampFade, Polar* polar, Displacement* disp) {
  int32_t i = begin;
#ifdef TARVO_AVX2_PATHS
  if (simd == SimdLevel::kAvx2) i = avx2::StretchedRow(kernel, y, yy, i, end, columnShift, clampFade, polar, disp);
#endif
#ifdef TARVO_SSE2_PATHS
  if (simd >= SimdLevel::kSse2) i = sse2::StretchedRow(kernel, y, yy, i, end, columnShift, clampFade, polar, disp);
#endif
  for (; i < end; ++i) {
    kernel.StretchedEntry(y, yy, static_cast<float>(i + columnShift - 0.5), clampFade, polar[i], disp[i]);
  }
}

}  // namespace

void RippleRenderer::ComputeField() {
  const FieldBranch branch = Branch();
  fieldSimd = FieldSimd(setup->simd, *wave);
  // The host is asked before each band (one row a band on one thread).
  // Rows write only their own entries; the tables are read-only by now.
  auto rows = [&](int32_t begin, int32_t end) {
    for (int32_t j = begin; j < end; ++j) {
      if (branch == FieldBranch::kRotated) {
        ComputeRotatedRow(j);
      } else {
        ComputeSymmetricRow(j, branch);
      }
    }
  };
  aborted = !RunRowBands(quadRows, rows);
}

void RippleRenderer::ComputeSymmetricRow(int32_t j, FieldBranch branch) {
  const float y = static_cast<float>(j + 0.5);
  const double yy = static_cast<double>(y) * y;
  const double outer = outerRadiusPx;
  const bool acrossRows = branch == FieldBranch::kAxisStretched && (stretchAngle == 90 || stretchAngle == 270);
  const double radicand = acrossRows ? outer * outer - yy * (static_cast<double>(stretch) * stretch)
                                     : outer * outer - yy;
  const int32_t n = RowLength(radicand, quadCols);
  quadrant->rowLength[j] = n;

  const ColumnRange reach = SymmetricReach(j, n);
  if (reach.begin >= reach.end) return;
  const FieldKernel kernel = MakeKernel(*this);
  Polar* polar = quadrant->polar + quadrant->Index(j, 0);
  Displacement* disp = quadrant->displacement + quadrant->Index(j, 0);
  if (branch == FieldBranch::kCircular) {
    CircularEntries(kernel, fieldSimd, y, yy, reach.begin, reach.end, polar, disp);
  } else {
    StretchedEntries(kernel, fieldSimd, y, yy, reach.begin, reach.end, 1, false, polar, disp);
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
  StretchedEntries(kernel, fieldSimd, y, yy, reach.begin, reach.end, -width, true, polar, disp);
}

}  // namespace tarvo
