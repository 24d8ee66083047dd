// The area sampler. Edges are 16.16 fixed point; coverage is kept to 1/256
// of a pixel per row and per column. The sums are 64-bit: inside the classic
// limits (256 columns, 32,896 whole pixels) every step gives exactly what
// 32-bit sums give, and larger boxes still average instead of wrapping.
// Box edge sums (y + h, x + w) are taken in 64 bits so extreme boxes cannot
// wrap, and every row and column loop is clipped to the image. The rows of
// pixels at a time (AreaSampleSpan) take the four- or eight-wide integer
// path where it reaches.
#include "area_sampler.h"

#include <algorithm>
#include <cmath>

#include "area_span_avx2.h"
#include "area_span_sse2.h"
#include "fixed_point.h"
#include "simd_level.h"

namespace tarvo {
namespace {

inline int64_t Trunc8(int64_t f) { return f & ~static_cast<int64_t>(0xFF); }
// Integer part of a 16.16 value: arithmetic shift, so −0.25 is in row −1.
inline int64_t IntPart(int64_t f) { return f >> 16; }

inline double FixedToFloat64(int64_t f) { return static_cast<double>(f) / 65536.0; }

}  // namespace

AxisExtent QuadAxisExtent(float a, float b, float c, float d, int16_t size) {
  const float lo = std::min(std::min(a, b), std::min(c, d));
  const float hi = std::max(std::max(a, b), std::max(c, d));
  AxisExtent e;
  e.lo = lo;
  e.extent = hi - lo;
  e.clipped = std::min(hi, static_cast<float>(size)) - std::max(lo, 0.0f);
  return e;
}

namespace {

// The two accumulation steps, inlined into the per-row and per-box loops.
TARVO_HOT_INLINE void AccumulateWeighted(PixelSum& sum, const PF_Pixel& pixel, int32_t weight) {
  const uint64_t w = static_cast<uint32_t>(CountedWeight(weight));
  sum.alpha += pixel.alpha * w;
  sum.red += pixel.red * w;
  sum.green += pixel.green * w;
  sum.blue += pixel.blue * w;
}

// A full weight (256, or 255 counted as 256) adds the row sum unchanged.
// Within the classic limits the product stays below 2^32, as in 32 bits.
TARVO_HOT_INLINE void AccumulateScaled(PixelSum& sum, const PixelSum& row, int32_t weight) {
  const uint64_t scale = static_cast<uint32_t>(CountedWeight(weight));
  sum.alpha += (row.alpha * scale) >> 8;
  sum.red += (row.red * scale) >> 8;
  sum.green += (row.green * scale) >> 8;
  sum.blue += (row.blue * scale) >> 8;
}

}  // namespace

void AddWeighted(PixelSum& sum, const PF_Pixel& pixel, int32_t weight) { AccumulateWeighted(sum, pixel, weight); }

void AddScaled(PixelSum& sum, const PixelSum& row, int32_t weight) { AccumulateScaled(sum, row, weight); }

namespace {

// Which columns of a row a box touches, and with what weights: the end
// columns carry their own weights (0 skips them), every column between them
// weighs 256. Worked out once per box and applied to each of its rows.
struct ColumnPlan {
  int32_t innerFirst = 0, innerEnd = 0;  // full-weight columns [innerFirst, innerEnd)
  int32_t leftColumn = -1, leftWeight = 0;
  int32_t rightColumn = -1, rightWeight = 0;
};

ColumnPlan PlanColumns(int32_t x, int32_t w, int32_t width) {
  ColumnPlan plan;
  const int64_t xEnd = static_cast<int64_t>(x) + w;
  const int64_t c0 = IntPart(x);
  const int64_t c1 = IntPart(xEnd);
  const int64_t first = std::max<int64_t>(c0, 0);
  const int64_t last = std::min<int64_t>(c1, static_cast<int64_t>(width) - 1);
  if (last < first) return plan;

  auto edgeWeight = [&](int64_t column) { return CellWeight(column, x, xEnd); };

  int64_t innerFirst = first;
  int64_t innerLast = last;
  const int32_t firstWeight = edgeWeight(first);
  if (firstWeight != 256) {
    if (firstWeight != 0) {
      plan.leftColumn = static_cast<int32_t>(first);
      plan.leftWeight = firstWeight;
    }
    ++innerFirst;
  }
  if (last >= innerFirst) {
    const int32_t lastWeight = edgeWeight(last);
    if (lastWeight != 256) {
      if (lastWeight != 0) {
        plan.rightColumn = static_cast<int32_t>(last);
        plan.rightWeight = lastWeight;
      }
      --innerLast;
    }
  }
  plan.innerFirst = static_cast<int32_t>(innerFirst);
  plan.innerEnd = static_cast<int32_t>(std::max(innerLast + 1, innerFirst));
  return plan;
}

TARVO_HOT_INLINE PixelSum SumRow(const PF_Pixel* row, const ColumnPlan& plan) {
  PixelSum sum;
  if (plan.leftColumn >= 0) AccumulateWeighted(sum, row[plan.leftColumn], plan.leftWeight);
  if (plan.rightColumn >= 0) AccumulateWeighted(sum, row[plan.rightColumn], plan.rightWeight);
  // Full-weight columns are summed plainly and scaled by 256 once.
  uint64_t a = 0, r = 0, g = 0, b = 0;
  const PF_Pixel* p = row + plan.innerFirst;
  const PF_Pixel* const end = row + plan.innerEnd;
  for (; p < end; ++p) {
    a += p->alpha;
    r += p->red;
    g += p->green;
    b += p->blue;
  }
  sum.alpha += a << 8;
  sum.red += r << 8;
  sum.green += g << 8;
  sum.blue += b << 8;
  return sum;
}

}  // namespace

PixelSum RowBoxSum(const PF_Pixel* row, int32_t x, int32_t w, int32_t width) {
  return SumRow(row, PlanColumns(x, w, width));
}

PF_Pixel NormalizeSum(const PixelSum& sum, float covered, float area) {
  if (covered == 0.0f) covered = 1.0f;
  if (area == 0.0f) area = 1.0f;
  const double a = static_cast<float>(static_cast<double>(covered) * 255.0);
  const double b = static_cast<float>(static_cast<double>(area) * 255.0);
  PF_Pixel out;
  out.red = ClampChannel(static_cast<double>(sum.red) / b);
  out.green = ClampChannel(static_cast<double>(sum.green) / b);
  out.blue = ClampChannel(static_cast<double>(sum.blue) / b);
  out.alpha = ClampChannel(static_cast<double>(sum.alpha) / a);
  return out;
}

PixelSum BoxSum(const PixelImage& image, int32_t x, int32_t w, int32_t y, int32_t h, AreaSampleCache* cache) {
  PixelSum sum;
  const int32_t imageHeight = image.Height();
  const int32_t imageWidth = image.Width();
  const int64_t yEnd = static_cast<int64_t>(y) + h;
  const int64_t r0 = IntPart(y);
  const int64_t r1 = IntPart(yEnd);
  const int64_t first = std::max<int64_t>(r0, 0);
  const int64_t last = r1 >= imageHeight ? imageHeight - 1 : r1;

  if (first < imageHeight && first <= last && imageWidth > 0 && image.HasPixels()) {
    const ColumnPlan plan = PlanColumns(x, w, imageWidth);
    auto rowWeight = [&](int64_t row) { return CellWeight(row, y, yEnd); };
    const int64_t columns = (plan.innerEnd - plan.innerFirst) + (plan.leftColumn >= 0) + (plan.rightColumn >= 0);
    const int64_t cells = (last - first + 1) * columns;
    if (cache != nullptr && cache->Covers(image, cells)) {
      // Only the end rows can weigh less than a full row; every row
      // between them weighs 256. Full rows are added unscaled, so they are
      // summed as one block: Σ over its rows of the column-weighted row
      // sums, in the same 64-bit arithmetic. An end row of a lesser weight
      // is scaled and truncated on its own, as a row at a time does.
      auto blockSum = [&](int64_t rowA, int64_t rowB) {
        PixelSum block;
        auto add = [&](int32_t colA, int32_t colB, int32_t weight) {
          uint64_t v[4];
          cache->RectSum(static_cast<int32_t>(rowA), static_cast<int32_t>(rowB), colA, colB, v);
          const uint64_t scale = static_cast<uint32_t>(CountedWeight(weight));
          block.alpha += v[0] * scale;
          block.red += v[1] * scale;
          block.green += v[2] * scale;
          block.blue += v[3] * scale;
        };
        if (plan.innerEnd > plan.innerFirst) add(plan.innerFirst, plan.innerEnd - 1, 256);
        if (plan.leftColumn >= 0) add(plan.leftColumn, plan.leftColumn, plan.leftWeight);
        if (plan.rightColumn >= 0) add(plan.rightColumn, plan.rightColumn, plan.rightWeight);
        return block;
      };
      int64_t fullFirst = first, fullLast = last;
      const int32_t firstWeight = rowWeight(first);
      if (CountedWeight(firstWeight) < 256) {
        if (firstWeight > 0) AccumulateScaled(sum, blockSum(first, first), firstWeight);
        ++fullFirst;
      }
      if (last >= fullFirst) {
        const int32_t lastWeight = rowWeight(last);
        if (CountedWeight(lastWeight) < 256) {
          if (lastWeight > 0) AccumulateScaled(sum, blockSum(last, last), lastWeight);
          --fullLast;
        }
      }
      if (fullLast >= fullFirst) AccumulateScaled(sum, blockSum(fullFirst, fullLast), 256);
    } else {
      RowCursor cursor = image.RowAt(static_cast<int16_t>(first));
      for (int64_t row = first; row <= last; ++row, cursor.Next()) {
        const int32_t weight = rowWeight(row);
        if (weight > 0) AccumulateScaled(sum, SumRow(cursor.Pixels(), plan), weight);
      }
    }
  }
  return sum;
}

PF_Pixel BoxSample(const PixelImage& image, int32_t x, int32_t w, int32_t y, int32_t h, float area,
                   AreaSampleCache* cache) {
  const PixelSum sum = BoxSum(image, x, w, y, h, cache);
  const int64_t yEnd = static_cast<int64_t>(y) + h;
  const int64_t xEnd = static_cast<int64_t>(x) + w;
  const float boxWidth = static_cast<float>(FixedToFloat64(Trunc8(xEnd) - Trunc8(x)));
  const float boxHeight = static_cast<float>(FixedToFloat64(Trunc8(yEnd) - Trunc8(y)));
  const float covered = boxWidth * boxHeight;
  return NormalizeSum(sum, std::fabs(covered), std::fabs(area));
}

PF_Pixel AreaSampleQuad(const PixelImage& image, const float* upper, const float* lower, AreaSampleCache* cache) {
  const AxisExtent v = QuadAxisExtent(upper[0], upper[2], lower[0], lower[2], image.Height());
  const AxisExtent hz = QuadAxisExtent(upper[1], upper[3], lower[1], lower[3], image.Width());
  const float area = v.clipped * hz.clipped;
  return BoxSample(image, FloatToFixed(hz.lo), FloatToFixed(hz.extent), FloatToFixed(v.lo), FloatToFixed(v.extent),
                   area, cache);
}

void AreaSampleSpan(const PixelImage& image, const float* upper, const float* lower, int32_t count, PF_Pixel* out,
                    AreaSampleCache* cache, [[maybe_unused]] SimdLevel simd) {
  int32_t k = 0;
#ifdef TARVO_SSE2_PATHS
  const int32_t height = image.Height(), width = image.Width();
  if (simd != SimdLevel::kScalar && image.HasPixels() && height > 0 && width > 0) {
    const uint8_t* base = image.BaseAddress();
    const intptr_t stride = image.RowBytes();
    // A pixel the wider loops leave: by the integer path, else exactly.
    auto single = [&](int32_t p) {
      const float* up = upper + 2 * p;
      const float* lo = lower + 2 * p;
      if (!sse2::AreaSamplePixel(base, stride, height, width, up, lo, out + p)) {
        out[p] = AreaSampleQuad(image, up, lo, cache);
      }
    };
    auto four = [&](int32_t p) {
      if (!sse2::AreaSampleFour(base, stride, height, width, upper + 2 * p, lower + 2 * p, out + p)) {
        for (int32_t q = p; q < p + 4; ++q) single(q);
      }
    };
#ifdef TARVO_AVX2_PATHS
    if (simd == SimdLevel::kAvx2) {
      // Up to 256 groups of eight per call; then the pixels they left.
      constexpr int32_t kMaxGroups = 256;
      uint8_t rest[kMaxGroups];
      while (k + 8 <= count) {
        const int32_t groups = std::min((count - k) / 8, kMaxGroups);
        avx2::AreaSampleGroups(base, stride, height, width, upper + 2 * k, lower + 2 * k, groups, out + k, rest);
        for (int32_t g = 0; g < groups; ++g, k += 8) {
          if (rest[g] == 0xFF) {
            four(k);
            four(k + 4);
          } else {
            for (int32_t p = 0; rest[g] >> p; ++p) {
              if ((rest[g] >> p) & 1) single(k + p);
            }
          }
        }
      }
    }
#endif
    for (; k + 4 <= count; k += 4) four(k);
    for (; k < count; ++k) single(k);
    return;
  }
#endif
  for (; k < count; ++k) out[k] = AreaSampleQuad(image, upper + 2 * k, lower + 2 * k, cache);
}

}  // namespace tarvo
