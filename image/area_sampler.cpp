// The area sampler. Edges are 16.16 fixed point; coverage is kept to 1/256
// of a pixel per row and per column. The sums are 64-bit: inside the classic
// limits (256 columns, 32,896 whole pixels) every step gives exactly what
// 32-bit sums give, and larger boxes still average instead of wrapping.
// Box edge sums (y + h, x + w) are taken in 64 bits so extreme boxes cannot
// wrap, and every row and column loop is clipped to the image.
#include "area_sampler.h"

#include <string.h>

#include <algorithm>
#include <cmath>

#include "simd_level.h"
#ifdef TARVO_SSE2_PATHS
#include <emmintrin.h>
#endif

#include "area_span_avx2.h"
#include "fixed_point.h"
#include "plugin_alloc.h"
#include "simd_level.h"

namespace tarvo {
namespace {

inline int32_t Frac8(int64_t f) { return static_cast<int32_t>((f & 0xFFFF) >> 8); }
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

#if defined(__GNUC__)
#define TARVO_HOT_INLINE inline __attribute__((always_inline))
#elif defined(_MSC_VER)
#define TARVO_HOT_INLINE __forceinline
#else
#define TARVO_HOT_INLINE inline
#endif

// The two accumulation steps, inlined into the per-row and per-box loops.
TARVO_HOT_INLINE void AccumulateWeighted(PixelSum& sum, const PF_Pixel& pixel, int32_t weight) {
  const uint64_t w = static_cast<uint32_t>(CountedWeight(weight));
  sum.alpha += pixel.alpha * w;
  sum.red += pixel.red * w;
  sum.green += pixel.green * w;
  sum.blue += pixel.blue * w;
}

TARVO_HOT_INLINE void AccumulateScaled(PixelSum& sum, const PixelSum& row, int32_t weight) {
  if (weight == 255) {
    sum.alpha += row.alpha;
    sum.red += row.red;
    sum.green += row.green;
    sum.blue += row.blue;
    return;
  }
  // Within the classic limits the product stays below 2^32, as in 32 bits.
  const uint64_t w = static_cast<uint32_t>(weight);
  sum.alpha += (row.alpha * w) >> 8;
  sum.red += (row.red * w) >> 8;
  sum.green += (row.green * w) >> 8;
  sum.blue += (row.blue * w) >> 8;
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

  const int32_t leftCut = Frac8(x);
  const int32_t rightCut = 256 - Frac8(xEnd);
  auto edgeWeight = [&](int64_t column) {
    int32_t weight = 256;
    if (column == c0) weight -= leftCut;
    if (column == c1) weight -= rightCut;
    return weight;
  };

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
    const int32_t topCut = Frac8(y);
    const int32_t bottomCut = 256 - Frac8(yEnd);
    const ColumnPlan plan = PlanColumns(x, w, imageWidth);
    auto rowWeight = [&](int64_t row) {
      int32_t weight = 256;
      if (row == r0) weight -= topCut;
      if (row == r1) weight -= bottomCut;
      return weight;
    };
    const int64_t columns = (plan.innerEnd - plan.innerFirst) + (plan.leftColumn >= 0) + (plan.rightColumn >= 0);
    const int64_t cells = (last - first + 1) * columns;
    if (cache != nullptr && cache->Covers(image, cells)) {
      // Only the end rows can weigh less than 255; every row between them
      // weighs 256. Rows of weight 255 or 256 are added unscaled, so they
      // are summed as one block: Σ over its rows of the column-weighted
      // row sums, in the same 64-bit arithmetic. An end row of weight
      // 1..254 is scaled and truncated on its own, as a row at a time does.
      auto blockSum = [&](int64_t rowA, int64_t rowB) {
        PixelSum block;
        uint64_t v[4];
        const int32_t a = static_cast<int32_t>(rowA), b = static_cast<int32_t>(rowB);
        if (plan.innerEnd > plan.innerFirst) {
          cache->RectSum(a, b, plan.innerFirst, plan.innerEnd - 1, v);
          block.alpha = v[0] << 8;
          block.red = v[1] << 8;
          block.green = v[2] << 8;
          block.blue = v[3] << 8;
        }
        auto column = [&](int32_t c, int32_t weight) {
          if (c < 0) return;
          cache->RectSum(a, b, c, c, v);
          const uint64_t wt = static_cast<uint32_t>(CountedWeight(weight));
          block.alpha += v[0] * wt;
          block.red += v[1] * wt;
          block.green += v[2] * wt;
          block.blue += v[3] * wt;
        };
        column(plan.leftColumn, plan.leftWeight);
        column(plan.rightColumn, plan.rightWeight);
        return block;
      };
      int64_t fullFirst = first, fullLast = last;
      const int32_t firstWeight = rowWeight(first);
      if (firstWeight < 255) {
        if (firstWeight > 0) AccumulateScaled(sum, blockSum(first, first), firstWeight);
        ++fullFirst;
      }
      if (last >= fullFirst) {
        const int32_t lastWeight = rowWeight(last);
        if (lastWeight < 255) {
          if (lastWeight > 0) AccumulateScaled(sum, blockSum(last, last), lastWeight);
          --fullLast;
        }
      }
      if (fullLast >= fullFirst) AccumulateScaled(sum, blockSum(fullFirst, fullLast), 255);
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

// --- Summed-area tables for large boxes ---------------------------------------

namespace {

// Boxes of fewer clipped pixels than this are always summed directly.
constexpr int64_t kTableMinCells = 256;

// Entry (r, c) holds, per channel, the sum over rows < r and columns < c.
// T is chosen so that the frame's whole sum (at most 255 × its pixels) fits
// it; a rectangle's sum from four entries is then exact.
template <class T>
void FillTable(const PixelImage& image, T* table) {
  const int32_t width = image.Width(), height = image.Height();
  const size_t stride = 4 * (static_cast<size_t>(width) + 1);
  memset(table, 0, stride * sizeof(T));
  RowCursor cursor = image.RowAt(0);
  for (int32_t r = 0; r < height; ++r, cursor.Next()) {
    const T* above = table + stride * static_cast<size_t>(r);
    T* entry = table + stride * (static_cast<size_t>(r) + 1);
    entry[0] = entry[1] = entry[2] = entry[3] = 0;
    const PF_Pixel* p = cursor.Pixels();
#ifdef TARVO_SSE2_PATHS
    if constexpr (sizeof(T) == 4) {
      const __m128i zero = _mm_setzero_si128();
      __m128i run = zero;
      for (int32_t c = 1; c <= width; ++c, ++p) {
        int32_t word;
        memcpy(&word, p, 4);
        run = _mm_add_epi32(run, _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero));
        const __m128i up = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + 4 * c));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(entry + 4 * c), _mm_add_epi32(up, run));
      }
      continue;
    }
#endif
    T a = 0, rd = 0, g = 0, b = 0;
    for (int32_t c = 1; c <= width; ++c, ++p) {
      a += p->alpha;
      rd += p->red;
      g += p->green;
      b += p->blue;
      entry[4 * c] = above[4 * c] + a;
      entry[4 * c + 1] = above[4 * c + 1] + rd;
      entry[4 * c + 2] = above[4 * c + 2] + g;
      entry[4 * c + 3] = above[4 * c + 3] + b;
    }
  }
}

template <class T>
void TableRect(const T* table, size_t stride, int32_t rowA, int32_t rowB, int32_t colA, int32_t colB, uint64_t out[4]) {
  const T* top = table + stride * static_cast<size_t>(rowA);
  const T* bottom = table + stride * (static_cast<size_t>(rowB) + 1);
  const size_t left = 4 * static_cast<size_t>(colA), right = 4 * (static_cast<size_t>(colB) + 1);
  for (int k = 0; k < 4; ++k) {
    out[k] = static_cast<T>(static_cast<T>(bottom[right + k] - bottom[left + k]) -
                            static_cast<T>(top[right + k] - top[left + k]));
  }
}

}  // namespace

AreaSampleCache::~AreaSampleCache() { PluginFree(table_); }

// Rows of a render may be sampled on several threads at once: the call
// whose boxes take the debt past the frame's size builds the tables, and
// the others sum directly until they are there.
bool AreaSampleCache::Covers(const PixelImage& image, int64_t cells) {
  if (&image != image_ || cells < kTableMinCells) return false;
  if (ready_.load(std::memory_order_acquire)) return true;
  if (failed_.load(std::memory_order_relaxed)) return false;
  // Building costs about one pass over the frame: worth it once the large
  // boxes summed directly have cost that much.
  const int64_t frame = static_cast<int64_t>(image.Width()) * image.Height();
  const int64_t before = debt_.fetch_add(cells, std::memory_order_relaxed);
  if (before + cells < frame || (before >= frame && before > 0)) return false;
  return Build();
}

bool AreaSampleCache::Build() {
  const int64_t width = image_->Width(), height = image_->Height();
  const int64_t entries = 4 * (width + 1) * (height + 1);
  wide_ = forceWide_ || 255 * width * height > static_cast<int64_t>(UINT32_MAX);
  table_ = wide_ ? static_cast<void*>(PluginAllocArray<uint64_t>(entries))
                 : static_cast<void*>(PluginAllocArray<uint32_t>(entries));
  if (table_ == nullptr) {
    failed_.store(true, std::memory_order_relaxed);
    return false;
  }
  if (wide_) {
    FillTable(*image_, static_cast<uint64_t*>(table_));
  } else {
    FillTable(*image_, static_cast<uint32_t*>(table_));
  }
  ready_.store(true, std::memory_order_release);
  return true;
}

void AreaSampleCache::RectSum(int32_t rowA, int32_t rowB, int32_t colA, int32_t colB, uint64_t out[4]) const {
  const size_t stride = 4 * (static_cast<size_t>(image_->Width()) + 1);
  if (wide_) {
    TableRect(static_cast<const uint64_t*>(table_), stride, rowA, rowB, colA, colB, out);
  } else {
    TableRect(static_cast<const uint32_t*>(table_), stride, rowA, rowB, colA, colB, out);
  }
}

// --- A row of pixels at a time ------------------------------------------------

#ifdef TARVO_SSE2_PATHS
namespace {

// One pixel's channels as four 32-bit lanes: alpha, red, green, blue.
TARVO_HOT_INLINE __m128i SpanWiden(const uint8_t* pixel) {
  int32_t word;
  memcpy(&word, pixel, 4);
  const __m128i zero = _mm_setzero_si128();
  return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
}

// A pixel times a weight (broadcast to 16-bit lanes), as 32-bit lanes.
TARVO_HOT_INLINE __m128i SpanWeighted(const uint8_t* pixel, __m128i weight) {
  int32_t word;
  memcpy(&word, pixel, 4);
  const __m128i zero = _mm_setzero_si128();
  const __m128i px = _mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero);
  return _mm_unpacklo_epi16(_mm_mullo_epi16(px, weight), zero);
}

// Σ pixel × column weight over one row's columns 0 .. columns − 1: the
// first and last columns with their own weights, the ones between at 256.
TARVO_HOT_INLINE __m128i SpanRowSum(const uint8_t* row, int32_t columns, __m128i firstWeight, __m128i lastWeight) {
  __m128i sum = SpanWeighted(row, firstWeight);
  if (columns < 2) return sum;
  const int32_t last = columns - 1;
  sum = _mm_add_epi32(sum, SpanWeighted(row + 4 * last, lastWeight));
  if (columns < 3) return sum;
  const __m128i zero = _mm_setzero_si128();
  __m128i inner = zero;
  int32_t k = 1;
  for (; k + 2 <= last; k += 2) {
    const __m128i px = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + 4 * k)), zero);
    inner = _mm_add_epi32(inner, _mm_add_epi32(_mm_unpacklo_epi16(px, zero), _mm_unpackhi_epi16(px, zero)));
  }
  if (k < last) inner = _mm_add_epi32(inner, SpanWiden(row + 4 * k));
  return _mm_add_epi32(sum, _mm_slli_epi32(inner, 8));
}

// (sum × weight) >> 8 per lane, for products below 2^32.
TARVO_HOT_INLINE __m128i SpanScale(__m128i sum, int32_t weight) {
  const __m128i w = _mm_set1_epi32(weight);
  const __m128i even = _mm_srli_epi64(_mm_mul_epu32(sum, w), 8);
  const __m128i odd = _mm_srli_epi64(_mm_mul_epu32(_mm_srli_epi64(sum, 32), w), 8);
  return _mm_or_si128(even, _mm_slli_epi64(odd, 32));
}

// Σ pixel × column weight over four adjacent pixels of a row, as 32-bit
// lanes: the pixels' bytes interleaved in pairs, (px0, px1) and (px2, px3),
// so that one multiply-add per pair gives p0 × w0 + p1 × w1 per channel.
// w01 and w23 hold the column weights w0, w1 (w2, w3) alternating.
TARVO_HOT_INLINE __m128i SpanRowSum4(const uint8_t* row, __m128i w01, __m128i w23) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i px = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
  const __m128i order = _mm_shuffle_epi32(px, _MM_SHUFFLE(3, 1, 2, 0));  // px0 px2 px1 px3
  const __m128i pairs = _mm_unpacklo_epi8(order, _mm_unpackhi_epi64(order, order));
  const __m128i s01 = _mm_madd_epi16(_mm_unpacklo_epi8(pairs, zero), w01);
  const __m128i s23 = _mm_madd_epi16(_mm_unpackhi_epi8(pairs, zero), w23);
  return _mm_add_epi32(s01, s23);
}

// A row sum times a row weight: (sum × weight) >> 8, with 255 and 256
// leaving the sum as it is.
TARVO_HOT_INLINE __m128i SpanRowWeighted(__m128i sum, int32_t weight) {
  return weight >= 255 ? sum : SpanScale(sum, weight);
}

// NormalizeSum of channel sums below 2^31: alpha over a (covered × 255),
// colour over b (area × 255), both divisions of a pair at once.
TARVO_HOT_INLINE void SpanNormalize(__m128i total, double a, double b, PF_Pixel* out) {
  const __m128d alphaRed = _mm_div_pd(_mm_cvtepi32_pd(total), _mm_setr_pd(a, b));
  const __m128d greenBlue = _mm_div_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(total, _MM_SHUFFLE(3, 2, 3, 2))),
                                       _mm_set1_pd(b));
  // ClampChannel: 255 and above give 255. The sums are not negative and
  // the divisors are positive, so no quotient lies below 0.
  const __m128d top = _mm_set1_pd(255.0);
  const __m128i ar = _mm_cvttpd_epi32(_mm_min_pd(alphaRed, top));
  const __m128i gb = _mm_cvttpd_epi32(_mm_min_pd(greenBlue, top));
  const __m128i channels = _mm_unpacklo_epi64(ar, gb);
  const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(channels, channels), channels);
  const int32_t word = _mm_cvtsi128_si32(bytes);
  memcpy(out, &word, 4);
}

// The channel sums of a box inside the image and at most four columns
// wide, rows r0 .. r1 starting at row (column c0), weights w01 and w23 as
// SpanRowSum4 takes them; the end rows weighted by top and bottom.
TARVO_HOT_INLINE __m128i SpanSmallBox(const uint8_t* row, intptr_t stride, int32_t rows, int32_t topWeight,
                                      int32_t bottomWeight, __m128i w01, __m128i w23) {
  if (rows == 1) return SpanRowWeighted(SpanRowSum4(row, w01, w23), topWeight - (256 - bottomWeight));
  __m128i total = SpanRowWeighted(SpanRowSum4(row, w01, w23), topWeight);
  for (int32_t r = 2; r < rows; ++r) {
    row += stride;
    total = _mm_add_epi32(total, SpanRowSum4(row, w01, w23));
  }
  row += stride;
  return _mm_add_epi32(total, SpanRowWeighted(SpanRowSum4(row, w01, w23), bottomWeight));
}

// The channel sums of a box by the general integer path: any box within
// the path's limits, clipped to the image. y, x are the box's top and left
// edges and yEnd, xEnd its bottom and right edges, in 16.16.
__m128i SpanBoxSum(const uint8_t* base, intptr_t stride, int32_t imageHeight, int32_t imageWidth, int32_t y, int32_t x,
                   int32_t yEnd, int32_t xEnd) {
  const int32_t r0 = y >> 16, r1 = yEnd >> 16, c0 = x >> 16, c1 = xEnd >> 16;
  const int32_t firstRow = std::max(r0, 0), lastRow = r1 >= imageHeight ? imageHeight - 1 : r1;
  const int32_t firstCol = std::max(c0, 0), lastCol = std::min(c1, imageWidth - 1);
  __m128i total = _mm_setzero_si128();
  if (firstRow >= imageHeight || firstRow > lastRow || firstCol > lastCol) return total;

  // Column weights, 255 counting as 256: the end columns carry the cuts,
  // the columns between them weigh 256.
  const int32_t columns = lastCol - firstCol + 1;
  const int32_t leftCut = Frac8(x), rightCut = 256 - Frac8(xEnd);
  auto columnWeight = [&](int32_t c) {
    int32_t weight = 256;
    if (c == c0) weight -= leftCut;
    if (c == c1) weight -= rightCut;
    return CountedWeight(weight);
  };
  const __m128i firstWeight = _mm_set1_epi16(static_cast<int16_t>(columnWeight(firstCol)));
  const __m128i lastWeight = _mm_set1_epi16(static_cast<int16_t>(columnWeight(lastCol)));

  const int32_t topCut = Frac8(y), bottomCut = 256 - Frac8(yEnd);
  const uint8_t* row = base + stride * firstRow + 4 * static_cast<intptr_t>(firstCol);
  for (int32_t r = firstRow; r <= lastRow; ++r, row += stride) {
    int32_t rowWeight = 256;
    if (r == r0) rowWeight -= topCut;
    if (r == r1) rowWeight -= bottomCut;
    if (rowWeight <= 0) continue;
    total = _mm_add_epi32(total, SpanRowWeighted(SpanRowSum(row, columns, firstWeight, lastWeight), rowWeight));
  }
  return total;
}

// One pixel of the span by the integer path. Returns false (writing
// nothing) when the box is outside the path's limits.
TARVO_HOT_INLINE bool SpanPixel(const uint8_t* base, intptr_t stride, int32_t imageHeight, int32_t imageWidth,
                                __m128 size, const float* up, const float* lo, PF_Pixel* out) {
  // QuadAxisExtent of both axes at once, lanes 0 vertical and 1 horizontal.
  // std::min(a, b) is _mm_min_ps(b, a) and std::max(a, b) is
  // _mm_max_ps(b, a), even for NaN and signed zeros.
  const __m128 u = _mm_loadu_ps(up);  // P1.v P1.h P2.v P2.h
  const __m128 l = _mm_loadu_ps(lo);  // P3.v P3.h P4.v P4.h
  const __m128 uSwap = _mm_movehl_ps(u, u);
  const __m128 lSwap = _mm_movehl_ps(l, l);
  const __m128 low = _mm_min_ps(_mm_min_ps(lSwap, l), _mm_min_ps(uSwap, u));
  const __m128 high = _mm_max_ps(_mm_max_ps(lSwap, l), _mm_max_ps(uSwap, u));
  const __m128 extent = _mm_sub_ps(high, low);
  const __m128 clipped = _mm_sub_ps(_mm_min_ps(size, high), _mm_max_ps(_mm_setzero_ps(), low));

  const __m128 edges = _mm_movelh_ps(low, extent);  // y, x, h, w in pixels
  const __m128 inside = _mm_and_ps(
      _mm_cmpgt_ps(edges, _mm_setr_ps(-kSpanEdgeLimit, -kSpanEdgeLimit, -1.0f, -1.0f)),
      _mm_cmplt_ps(edges, _mm_setr_ps(kSpanEdgeLimit, kSpanEdgeLimit, kSpanExtentLimit, kSpanExtentLimit)));
  if (_mm_movemask_ps(inside) != 15) return false;

  // FloatToFixed (the products are exact in single precision here), then
  // the box's edges y, x, y + h, x + w, their cells and their fractions.
  const __m128i fixed = _mm_cvttps_epi32(_mm_mul_ps(edges, _mm_set1_ps(65536.0f)));
  const __m128i ends = _mm_add_epi32(fixed, _mm_slli_si128(fixed, 8));
  alignas(16) int32_t edge[4], cell[4], frac[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(edge), ends);
  _mm_store_si128(reinterpret_cast<__m128i*>(cell), _mm_srai_epi32(ends, 16));
  _mm_store_si128(reinterpret_cast<__m128i*>(frac), _mm_srli_epi32(_mm_and_si128(ends, _mm_set1_epi32(0xFFFF)), 8));

  // The box's area as the weights see it (edges cut to 1/256) and as the
  // clipped extents give it.
  const __m128i cut = _mm_and_si128(ends, _mm_set1_epi32(~0xFF));
  const __m128 span = _mm_mul_ps(_mm_cvtepi32_ps(_mm_sub_epi32(_mm_unpackhi_epi64(cut, cut), cut)),
                                 _mm_set1_ps(1.0f / 65536.0f));  // height, width
  alignas(16) float boxSpan[4], clip[4];
  _mm_store_ps(boxSpan, span);
  _mm_store_ps(clip, clipped);
  float covered = std::fabs(boxSpan[1] * boxSpan[0]);
  float boxArea = std::fabs(clip[0] * clip[1]);

  const int32_t r0 = cell[0], c0 = cell[1], r1 = cell[2], c1 = cell[3];
  __m128i total;
  if (r0 >= 0 && r1 < imageHeight && c0 >= 0 && c1 - c0 < 4 && c0 + 4 <= imageWidth) {
    // The whole box inside the image, at most four columns wide: each row
    // is one load. Column weights: the first cut by the left fraction, the
    // last by the right one, those between 256, those past the box 0.
    const __m128i k = _mm_setr_epi32(0, 1, 2, 3);
    const __m128i lastK = _mm_set1_epi32(c1 - c0);
    __m128i weights = _mm_and_si128(_mm_cmpgt_epi32(_mm_add_epi32(lastK, _mm_set1_epi32(1)), k), _mm_set1_epi32(256));
    weights = _mm_sub_epi32(weights, _mm_and_si128(_mm_cmpeq_epi32(k, _mm_setzero_si128()), _mm_set1_epi32(frac[1])));
    weights = _mm_sub_epi32(weights, _mm_and_si128(_mm_cmpeq_epi32(k, lastK), _mm_set1_epi32(256 - frac[3])));
    weights = _mm_add_epi32(weights, _mm_and_si128(_mm_cmpeq_epi32(weights, _mm_set1_epi32(255)), _mm_set1_epi32(1)));
    const __m128i packed = _mm_packs_epi32(weights, weights);
    const __m128i w01 = _mm_shuffle_epi32(packed, _MM_SHUFFLE(0, 0, 0, 0));
    const __m128i w23 = _mm_shuffle_epi32(packed, _MM_SHUFFLE(1, 1, 1, 1));

    const uint8_t* row = base + stride * r0 + 4 * static_cast<intptr_t>(c0);
    total = SpanSmallBox(row, stride, r1 - r0 + 1, 256 - frac[0], frac[2], w01, w23);
  } else {
    total = SpanBoxSum(base, stride, imageHeight, imageWidth, edge[0], edge[1], edge[2], edge[3]);
  }

  if (covered == 0.0f) covered = 1.0f;
  if (boxArea == 0.0f) boxArea = 1.0f;
  SpanNormalize(total, static_cast<float>(static_cast<double>(covered) * 255.0),
                static_cast<float>(static_cast<double>(boxArea) * 255.0), out);
  return true;
}

// Four adjacent pixels of the span at once: bounding boxes, fixed-point
// edges, cells, fractions, areas and column weights worked out side by
// side (lane p for pixel p), then each pixel's rows summed and normalised.
// Returns false (writing nothing) unless all four boxes are within the
// integer path's limits.
TARVO_HOT_INLINE bool SpanQuad4(const uint8_t* base, intptr_t stride, int32_t imageHeight, int32_t imageWidth,
                                __m128 heightF, __m128 widthF, const float* up, const float* lo, PF_Pixel* out) {
  // Corner k of pixel p: P1 = up[p], P2 = up[p + 1], P3 = lo[p], P4 = lo[p + 1].
  auto split = [](const float* points, __m128& v, __m128& h, __m128& vNext, __m128& hNext) {
    const __m128 a = _mm_loadu_ps(points), b = _mm_loadu_ps(points + 4);
    const __m128 c = _mm_loadu_ps(points + 2), d = _mm_loadu_ps(points + 6);
    v = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    h = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    vNext = _mm_shuffle_ps(c, d, _MM_SHUFFLE(2, 0, 2, 0));
    hNext = _mm_shuffle_ps(c, d, _MM_SHUFFLE(3, 1, 3, 1));
  };
  __m128 uv, uh, uvn, uhn, lv, lh, lvn, lhn;
  split(up, uv, uh, uvn, uhn);
  split(lo, lv, lh, lvn, lhn);
  // QuadAxisExtent: lo = min(min(P1, P2), min(P3, P4)), hi likewise.
  const __m128 lowV = _mm_min_ps(_mm_min_ps(lvn, lv), _mm_min_ps(uvn, uv));
  const __m128 lowH = _mm_min_ps(_mm_min_ps(lhn, lh), _mm_min_ps(uhn, uh));
  const __m128 highV = _mm_max_ps(_mm_max_ps(lvn, lv), _mm_max_ps(uvn, uv));
  const __m128 highH = _mm_max_ps(_mm_max_ps(lhn, lh), _mm_max_ps(uhn, uh));
  const __m128 extV = _mm_sub_ps(highV, lowV), extH = _mm_sub_ps(highH, lowH);
  const __m128 zero = _mm_setzero_ps();
  const __m128 area = _mm_mul_ps(_mm_sub_ps(_mm_min_ps(heightF, highV), _mm_max_ps(zero, lowV)),
                                 _mm_sub_ps(_mm_min_ps(widthF, highH), _mm_max_ps(zero, lowH)));

  const __m128 edgeLow = _mm_set1_ps(-kSpanEdgeLimit), edgeHigh = _mm_set1_ps(kSpanEdgeLimit);
  const __m128 extLow = _mm_set1_ps(-1.0f), extHigh = _mm_set1_ps(kSpanExtentLimit);
  const __m128 ok = _mm_and_ps(_mm_and_ps(_mm_and_ps(_mm_cmpgt_ps(lowV, edgeLow), _mm_cmplt_ps(lowV, edgeHigh)),
                                          _mm_and_ps(_mm_cmpgt_ps(lowH, edgeLow), _mm_cmplt_ps(lowH, edgeHigh))),
                               _mm_and_ps(_mm_and_ps(_mm_cmpgt_ps(extV, extLow), _mm_cmplt_ps(extV, extHigh)),
                                          _mm_and_ps(_mm_cmpgt_ps(extH, extLow), _mm_cmplt_ps(extH, extHigh))));
  if (_mm_movemask_ps(ok) != 15) return false;

  const __m128 scale = _mm_set1_ps(65536.0f);
  const __m128i y = _mm_cvttps_epi32(_mm_mul_ps(lowV, scale)), x = _mm_cvttps_epi32(_mm_mul_ps(lowH, scale));
  const __m128i yEnd = _mm_add_epi32(y, _mm_cvttps_epi32(_mm_mul_ps(extV, scale)));
  const __m128i xEnd = _mm_add_epi32(x, _mm_cvttps_epi32(_mm_mul_ps(extH, scale)));
  const __m128i fracMask = _mm_set1_epi32(0xFFFF);
  auto frac8 = [&](__m128i f) { return _mm_srli_epi32(_mm_and_si128(f, fracMask), 8); };
  const __m128i r0 = _mm_srai_epi32(y, 16), r1 = _mm_srai_epi32(yEnd, 16);
  const __m128i c0 = _mm_srai_epi32(x, 16), c1 = _mm_srai_epi32(xEnd, 16);
  const __m128i fx = frac8(x), fxEnd = frac8(xEnd);

  // covered = width × height as the cut edges see them; then the divisors
  // a = covered × 255 and b = area × 255, exact in single precision.
  const __m128i cut = _mm_set1_epi32(~0xFF);
  const __m128 unit = _mm_set1_ps(1.0f / 65536.0f);
  const __m128 boxW = _mm_mul_ps(_mm_cvtepi32_ps(_mm_sub_epi32(_mm_and_si128(xEnd, cut), _mm_and_si128(x, cut))), unit);
  const __m128 boxH = _mm_mul_ps(_mm_cvtepi32_ps(_mm_sub_epi32(_mm_and_si128(yEnd, cut), _mm_and_si128(y, cut))), unit);
  const __m128 absMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
  const __m128 one = _mm_set1_ps(1.0f);
  auto orOne = [&](__m128 v) {  // |v|, 1 where that is 0
    v = _mm_and_ps(v, absMask);
    const __m128 isZero = _mm_cmpeq_ps(v, zero);
    return _mm_or_ps(_mm_andnot_ps(isZero, v), _mm_and_ps(isZero, one));
  };
  const __m128 scale255 = _mm_set1_ps(255.0f);
  const __m128 divA = _mm_mul_ps(orOne(_mm_mul_ps(boxW, boxH)), scale255);
  const __m128 divB = _mm_mul_ps(orOne(area), scale255);

  // Column weights of columns c0 .. c0 + 3 per pixel: 256 up to the last
  // column, 0 past it, the first cut by the left fraction, the last by the
  // right one, 255 counting as 256.
  const __m128i lastK = _mm_sub_epi32(c1, c0);
  const __m128i full = _mm_set1_epi32(256), rightCut = _mm_sub_epi32(full, fxEnd);
  auto weight = [&](int32_t k) {
    const __m128i kv = _mm_set1_epi32(k);
    __m128i w = k == 0 ? full : _mm_and_si128(_mm_cmpgt_epi32(lastK, _mm_set1_epi32(k - 1)), full);
    if (k == 0) w = _mm_sub_epi32(w, fx);
    w = _mm_sub_epi32(w, _mm_and_si128(_mm_cmpeq_epi32(lastK, kv), rightCut));
    return _mm_add_epi32(w, _mm_and_si128(_mm_cmpeq_epi32(w, _mm_set1_epi32(255)), _mm_set1_epi32(1)));
  };
  const __m128i w0 = weight(0), w1 = weight(1), w2 = weight(2), w3 = weight(3);
  // Transposed: pixel p's weights w0 .. w3 as 16-bit pairs (w0 w1) and (w2 w3).
  const __m128i t01lo = _mm_unpacklo_epi32(w0, w1), t01hi = _mm_unpackhi_epi32(w0, w1);  // p0 p1 | p2 p3
  const __m128i t23lo = _mm_unpacklo_epi32(w2, w3), t23hi = _mm_unpackhi_epi32(w2, w3);

  // Boxes inside the image and at most four columns wide take the one-load
  // rows; the others the general integer path.
  const __m128i minusOne = _mm_set1_epi32(-1);
  const __m128i small = _mm_and_si128(
      _mm_and_si128(_mm_cmpgt_epi32(r0, minusOne), _mm_cmplt_epi32(r1, _mm_set1_epi32(imageHeight))),
      _mm_and_si128(_mm_and_si128(_mm_cmpgt_epi32(c0, minusOne), _mm_cmplt_epi32(lastK, _mm_set1_epi32(4))),
                    _mm_cmplt_epi32(c0, _mm_set1_epi32(imageWidth - 3))));
  const int smallMask = _mm_movemask_ps(_mm_castsi128_ps(small));

  // Per pixel: the first source byte of its box, its rows and the weights
  // of its first and last rows; the general path needs the edges.
  const __m128i fy = frac8(y), fyEnd = frac8(yEnd);
  const __m128i rows = _mm_add_epi32(_mm_sub_epi32(r1, r0), _mm_set1_epi32(1));
  alignas(16) int32_t r0s[4], c0s[4], rowCount[4], topW[4], bottomW[4];
  alignas(16) float as[4], bs[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(r0s), r0);
  _mm_store_si128(reinterpret_cast<__m128i*>(c0s), c0);
  _mm_store_si128(reinterpret_cast<__m128i*>(rowCount), rows);
  _mm_store_si128(reinterpret_cast<__m128i*>(topW), _mm_sub_epi32(full, fy));
  _mm_store_si128(reinterpret_cast<__m128i*>(bottomW), fyEnd);
  _mm_store_ps(as, divA);
  _mm_store_ps(bs, divB);
  auto pixel = [&](int p, __m128i weights) {
    __m128i total;
    if (smallMask & (1 << p)) {
      const __m128i packed = _mm_packs_epi32(weights, weights);
      const __m128i w01 = _mm_shuffle_epi32(packed, _MM_SHUFFLE(0, 0, 0, 0));
      const __m128i w23 = _mm_shuffle_epi32(packed, _MM_SHUFFLE(1, 1, 1, 1));
      const uint8_t* row = base + stride * r0s[p] + 4 * static_cast<intptr_t>(c0s[p]);
      total = SpanSmallBox(row, stride, rowCount[p], topW[p], bottomW[p], w01, w23);
    } else {
      alignas(16) int32_t e[4][4];
      _mm_store_si128(reinterpret_cast<__m128i*>(e[0]), y);
      _mm_store_si128(reinterpret_cast<__m128i*>(e[1]), x);
      _mm_store_si128(reinterpret_cast<__m128i*>(e[2]), yEnd);
      _mm_store_si128(reinterpret_cast<__m128i*>(e[3]), xEnd);
      total = SpanBoxSum(base, stride, imageHeight, imageWidth, e[0][p], e[1][p], e[2][p], e[3][p]);
    }
    SpanNormalize(total, as[p], bs[p], out + p);
  };
  pixel(0, _mm_unpacklo_epi64(t01lo, t23lo));
  pixel(1, _mm_unpackhi_epi64(t01lo, t23lo));
  pixel(2, _mm_unpacklo_epi64(t01hi, t23hi));
  pixel(3, _mm_unpackhi_epi64(t01hi, t23hi));
  return true;
}

}  // namespace
#endif

void AreaSampleSpan(const PixelImage& image, const float* upper, const float* lower, int32_t count, PF_Pixel* out,
                    AreaSampleCache* cache, [[maybe_unused]] SimdLevel simd) {
#ifdef TARVO_SSE2_PATHS
  const int32_t imageHeight = image.Height(), imageWidth = image.Width();
  if (simd != SimdLevel::kScalar && image.HasPixels() && imageHeight > 0 && imageWidth > 0) {
    const uint8_t* base = image.BaseAddress();
    const intptr_t stride = image.RowBytes();
    const __m128 size = _mm_setr_ps(static_cast<float>(image.Height()), static_cast<float>(image.Width()), 0.0f, 0.0f);
    const __m128 heightF = _mm_set1_ps(static_cast<float>(image.Height()));
    const __m128 widthF = _mm_set1_ps(static_cast<float>(image.Width()));
    auto single = [&](int32_t k) {
      const float* up = upper + 2 * k;
      const float* lo = lower + 2 * k;
      if (!SpanPixel(base, stride, imageHeight, imageWidth, size, up, lo, out + k)) {
        out[k] = AreaSampleQuad(image, up, lo, cache);
      }
    };
    auto quad = [&](int32_t k) {
      if (!SpanQuad4(base, stride, imageHeight, imageWidth, heightF, widthF, upper + 2 * k, lower + 2 * k, out + k)) {
        for (int32_t p = 0; p < 4; ++p) single(k + p);
      }
    };
    int32_t k = 0;
#ifdef TARVO_AVX2_PATHS
    if (simd == SimdLevel::kAvx2) {
      // Up to 256 groups of eight per call; then the pixels they left.
      constexpr int32_t kMaxGroups = 256;
      uint8_t rest[kMaxGroups];
      while (k + 8 <= count) {
        const int32_t groups = std::min((count - k) / 8, kMaxGroups);
        avx2::AreaSampleGroups(base, stride, imageHeight, imageWidth, upper + 2 * k, lower + 2 * k, groups, out + k,
                               rest);
        for (int32_t g = 0; g < groups; ++g, k += 8) {
          if (rest[g] == 0xFF) {
            quad(k);
            quad(k + 4);
          } else {
            for (int32_t p = 0; rest[g] >> p; ++p) {
              if ((rest[g] >> p) & 1) single(k + p);
            }
          }
        }
      }
    }
#endif
    for (; k + 4 <= count; k += 4) quad(k);
    for (; k < count; ++k) single(k);
    return;
  }
#endif
  for (int32_t k = 0; k < count; ++k) {
    const float* up = upper + 2 * k;
    const float* lo = lower + 2 * k;
    out[k] = AreaSampleQuad(image, up, lo, cache);
  }
}

}  // namespace tarvo
