// Area sampling with SSE2: the exact sampler's integer arithmetic for boxes
// within the integer path's limits (area_sampler.h), one pixel or four
// adjacent pixels at a time, with the bounding boxes, fixed-point edges,
// weights and divisions in vector registers. The same bytes as
// AreaSampleQuad.
#include "area_span_sse2.h"

#ifdef TARVO_SSE2_PATHS

#include <emmintrin.h>
#include <string.h>

#include <algorithm>
#include <cmath>

#include "area_sampler.h"
#include "pixel_simd.h"

namespace tarvo::sse2 {
namespace {

// One pixel's channels as four 32-bit lanes: alpha, red, green, blue.
TARVO_HOT_INLINE __m128i SpanWiden(const uint8_t* pixel) {
  const __m128i zero = _mm_setzero_si128();
  return _mm_unpacklo_epi16(_mm_unpacklo_epi8(LoadPixel(pixel), zero), zero);
}

// A pixel times a weight (broadcast to 16-bit lanes), as 32-bit lanes.
TARVO_HOT_INLINE __m128i SpanWeighted(const uint8_t* pixel, __m128i weight) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i px = _mm_unpacklo_epi8(LoadPixel(pixel), zero);
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

// CountedWeight in each 32-bit lane: 255 counts as 256.
TARVO_HOT_INLINE __m128i CountedWeights(__m128i weights) {
  return _mm_sub_epi32(weights, _mm_cmpeq_epi32(weights, _mm_set1_epi32(255)));
}

// A row sum times a row weight: (sum × weight) >> 8, a full weight leaving
// the sum as it is.
TARVO_HOT_INLINE __m128i SpanRowWeighted(__m128i sum, int32_t weight) {
  return CountedWeight(weight) == 256 ? sum : SpanScale(sum, weight);
}

// NormalizeSum of channel sums below 2^31: alpha over a (covered × 255),
// colour over b (area × 255), both divisions of a pair at once.
TARVO_HOT_INLINE void SpanNormalize(__m128i total, double a, double b, PF_Pixel* out) {
  const __m128d alphaRed = _mm_div_pd(_mm_cvtepi32_pd(total), _mm_setr_pd(a, b));
  const __m128d greenBlue = _mm_div_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(total, _MM_SHUFFLE(3, 2, 3, 2))),
                                       _mm_set1_pd(b));
  // The sums are not negative and the divisors positive: no quotient lies
  // below 0.
  const __m128i channels = _mm_unpacklo_epi64(ClampChannels(alphaRed), ClampChannels(greenBlue));
  const int32_t word = _mm_cvtsi128_si32(PackChannels(channels));
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
  auto columnWeight = [&](int32_t c) { return CountedWeight(CellWeight(c, x, xEnd)); };
  const __m128i firstWeight = _mm_set1_epi16(static_cast<int16_t>(columnWeight(firstCol)));
  const __m128i lastWeight = _mm_set1_epi16(static_cast<int16_t>(columnWeight(lastCol)));

  const uint8_t* row = base + stride * firstRow + 4 * static_cast<intptr_t>(firstCol);
  for (int32_t r = firstRow; r <= lastRow; ++r, row += stride) {
    const int32_t rowWeight = CellWeight(r, y, yEnd);
    if (rowWeight <= 0) continue;
    total = _mm_add_epi32(total, SpanRowWeighted(SpanRowSum(row, columns, firstWeight, lastWeight), rowWeight));
  }
  return total;
}

}  // namespace

bool AreaSamplePixel(const uint8_t* base, intptr_t stride, int32_t imageHeight, int32_t imageWidth, const float* up,
                     const float* lo, PF_Pixel* out) {
  const __m128 size = _mm_setr_ps(static_cast<float>(imageHeight), static_cast<float>(imageWidth), 0.0f, 0.0f);
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
    weights = CountedWeights(weights);
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

// Bounding boxes, fixed-point edges, cells, fractions, areas and column
// weights of the four pixels side by side (lane p for pixel p), then each
// pixel's rows summed and normalized.
bool AreaSampleFour(const uint8_t* base, intptr_t stride, int32_t imageHeight, int32_t imageWidth, const float* up,
                    const float* lo, PF_Pixel* out) {
  const __m128 heightF = _mm_set1_ps(static_cast<float>(imageHeight));
  const __m128 widthF = _mm_set1_ps(static_cast<float>(imageWidth));
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
    return CountedWeights(w);
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

void SummedRow(const PF_Pixel* pixels, int32_t width, const uint32_t* above, uint32_t* entry) {
  __m128i run = _mm_setzero_si128();
  for (int32_t c = 1; c <= width; ++c, ++pixels) {
    run = _mm_add_epi32(run, SpanWiden(reinterpret_cast<const uint8_t*>(pixels)));
    const __m128i up = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + 4 * c));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(entry + 4 * c), _mm_add_epi32(up, run));
  }
}

}  // namespace tarvo::sse2

#endif
