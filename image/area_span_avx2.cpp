// Area sampling eight pixels at a time with AVX2: the arithmetic of the
// four-wide row sampler, with the bounding boxes, fixed-point edges, cells,
// fractions, areas and weights of eight pixels side by side, and each box's
// rows summed for two pixels at once (one pixel per 128-bit half).
#include "area_span_avx2.h"

#include "area_sampler.h"
#include "pixel_simd.h"

#ifdef TARVO_AVX2_PATHS

#include <immintrin.h>

namespace tarvo::avx2 {
namespace {

// The lanes hold pixels in the order 0 1 4 5 2 3 6 7, which the in-lane
// shuffles of Split give; kPixelOfPair[j] is the first pixel of the lane
// pair (2j, 2j + 1), whose second pixel follows it.
constexpr int kPixelOfPair[4] = {0, 4, 2, 6};

// Vertical and horizontal coordinates of points 0..7 and of points 1..8.
TARVO_AVX2_INLINE void Split(const float* points, __m256& v, __m256& h, __m256& vNext, __m256& hNext) {
  const __m256 a = _mm256_loadu_ps(points), b = _mm256_loadu_ps(points + 8);
  const __m256 c = _mm256_loadu_ps(points + 2), d = _mm256_loadu_ps(points + 10);
  v = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
  h = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
  vNext = _mm256_shuffle_ps(c, d, _MM_SHUFFLE(2, 0, 2, 0));
  hNext = _mm256_shuffle_ps(c, d, _MM_SHUFFLE(3, 1, 3, 1));
}

TARVO_AVX2_INLINE __m256 Within(__m256 v, float low, float high) {
  return _mm256_and_ps(_mm256_cmp_ps(v, _mm256_set1_ps(low), _CMP_GT_OQ),
                       _mm256_cmp_ps(v, _mm256_set1_ps(high), _CMP_LT_OQ));
}

// CountedWeight in each 32-bit lane: 255 counts as 256.
TARVO_AVX2_INLINE __m256i CountedWeights(__m256i weights) {
  return _mm256_sub_epi32(weights, _mm256_cmpeq_epi32(weights, _mm256_set1_epi32(255)));
}

// Coverage weight of cell k (0..3, counted from the box's first cell) in
// 1/256 of a pixel: the part of [256k, 256k + 256) that the box covers,
// the box running from frac to end (its far edge, from the first cell's
// start); 255 counts as 256. Columns and rows alike.
TARVO_AVX2_INLINE __m256i Weight(int k, __m256i frac, __m256i end) {
  const __m256i full = _mm256_set1_epi32(256);
  const __m256i w = k == 0 ? _mm256_sub_epi32(_mm256_min_epi32(end, full), frac)
                           : _mm256_max_epi32(_mm256_min_epi32(_mm256_sub_epi32(end, _mm256_set1_epi32(256 * k)), full),
                                              _mm256_setzero_si256());
  return CountedWeights(w);
}

// |v|, and 1 where that is 0.
TARVO_AVX2_INLINE __m256 AbsOrOne(__m256 v) {
  v = _mm256_and_ps(v, _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF)));
  return _mm256_blendv_ps(v, _mm256_set1_ps(1.0f), _mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_EQ_OQ));
}

// Σ pixel × column weight over the four pixels at row (one row of a box),
// as two halves: columns 0 and 1 in the low 128 bits, 2 and 3 in the high.
// The pixels widened to 16 bits are reordered within each half to
// (a0 a1 r0 r1 g0 g1 b0 b1) so that one multiply-add pairs the columns.
TARVO_AVX2_INLINE __m256i RowHalves(const uint8_t* row, __m256i order, __m256i weights) {
  const __m256i wide = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row)));
  return _mm256_madd_epi16(_mm256_shuffle_epi8(wide, order), weights);
}

// Four channel sums divided by (a, b, b, b), clamped at 255 and truncated.
TARVO_AVX2_INLINE __m128i Normalize(__m128i sums, float a, float b) {
  const __m256d divisor = _mm256_cvtps_pd(_mm_blend_ps(_mm_set1_ps(b), _mm_set_ss(a), 1));
  const __m256d quotient = _mm256_div_pd(_mm256_cvtepi32_pd(sums), divisor);
  // No quotient lies below 0.
  return ClampChannels(quotient);
}

// One group of eight pixels; returns the bits of the pixels not written.
TARVO_AVX2_INLINE uint32_t Group(const uint8_t* base, int32_t stride, __m256 heightF, __m256 widthF, __m256i height,
                                 __m256i widthLess3, const float* up, const float* lo, PF_Pixel* out) {
  // Corners of pixel p: P1 = up[p], P2 = up[p + 1], P3 = lo[p], P4 = lo[p + 1].
  __m256 uv, uh, uvn, uhn, lv, lh, lvn, lhn;
  Split(up, uv, uh, uvn, uhn);
  Split(lo, lv, lh, lvn, lhn);
  // QuadAxisExtent: std::min(a, b) is _mm256_min_ps(b, a) and std::max(a,
  // b) is _mm256_max_ps(b, a), even for NaN and signed zeros.
  const __m256 lowV = _mm256_min_ps(_mm256_min_ps(lvn, lv), _mm256_min_ps(uvn, uv));
  const __m256 lowH = _mm256_min_ps(_mm256_min_ps(lhn, lh), _mm256_min_ps(uhn, uh));
  const __m256 highV = _mm256_max_ps(_mm256_max_ps(lvn, lv), _mm256_max_ps(uvn, uv));
  const __m256 highH = _mm256_max_ps(_mm256_max_ps(lhn, lh), _mm256_max_ps(uhn, uh));
  const __m256 extV = _mm256_sub_ps(highV, lowV), extH = _mm256_sub_ps(highH, lowH);
  const __m256 zero = _mm256_setzero_ps();
  const __m256 area = _mm256_mul_ps(_mm256_sub_ps(_mm256_min_ps(heightF, highV), _mm256_max_ps(zero, lowV)),
                                    _mm256_sub_ps(_mm256_min_ps(widthF, highH), _mm256_max_ps(zero, lowH)));

  const __m256 ok = _mm256_and_ps(
      _mm256_and_ps(Within(lowV, -kSpanEdgeLimit, kSpanEdgeLimit), Within(lowH, -kSpanEdgeLimit, kSpanEdgeLimit)),
      _mm256_and_ps(Within(extV, -1.0f, kSpanExtentLimit), Within(extH, -1.0f, kSpanExtentLimit)));
  if (_mm256_movemask_ps(ok) != 0xFF) return 0xFF;

  // FloatToFixed (the products are exact in single precision here), the
  // far edges and the cells.
  const __m256 scale = _mm256_set1_ps(65536.0f);
  const __m256i y = _mm256_cvttps_epi32(_mm256_mul_ps(lowV, scale));
  const __m256i x = _mm256_cvttps_epi32(_mm256_mul_ps(lowH, scale));
  const __m256i yEnd = _mm256_add_epi32(y, _mm256_cvttps_epi32(_mm256_mul_ps(extV, scale)));
  const __m256i xEnd = _mm256_add_epi32(x, _mm256_cvttps_epi32(_mm256_mul_ps(extH, scale)));
  const __m256i r0 = _mm256_srai_epi32(y, 16), c0 = _mm256_srai_epi32(x, 16);
  // Edges in 1/256 from the start of the first cell: the near one is the
  // fraction, the far one (last cell − first cell) × 256 + its fraction.
  const __m256i fracMask = _mm256_set1_epi32(0xFF);
  const __m256i top = _mm256_and_si256(_mm256_srai_epi32(y, 8), fracMask);
  const __m256i left = _mm256_and_si256(_mm256_srai_epi32(x, 8), fracMask);
  const __m256i bottom = _mm256_sub_epi32(_mm256_srai_epi32(yEnd, 8), _mm256_slli_epi32(r0, 8));
  const __m256i right = _mm256_sub_epi32(_mm256_srai_epi32(xEnd, 8), _mm256_slli_epi32(c0, 8));
  const __m256i lastRow = _mm256_srai_epi32(bottom, 8), lastColumn = _mm256_srai_epi32(right, 8);

  // covered = width × height as the cut edges see them; the divisors
  // a = covered × 255 and b = area × 255, exact in single precision.
  const __m256i cut = _mm256_set1_epi32(~0xFF);
  const __m256 unit = _mm256_set1_ps(1.0f / 65536.0f);
  const __m256 boxW = _mm256_mul_ps(
      _mm256_cvtepi32_ps(_mm256_sub_epi32(_mm256_and_si256(xEnd, cut), _mm256_and_si256(x, cut))), unit);
  const __m256 boxH = _mm256_mul_ps(
      _mm256_cvtepi32_ps(_mm256_sub_epi32(_mm256_and_si256(yEnd, cut), _mm256_and_si256(y, cut))), unit);
  const __m256 scale255 = _mm256_set1_ps(255.0f);
  alignas(32) float divA[8], divB[8];
  _mm256_store_ps(divA, _mm256_mul_ps(AbsOrOne(_mm256_mul_ps(boxW, boxH)), scale255));
  _mm256_store_ps(divB, _mm256_mul_ps(AbsOrOne(area), scale255));

  // Boxes inside the image, at most four columns and four rows, whose
  // rows can be read as four pixels from their first column.
  const __m256i minusOne = _mm256_set1_epi32(-1), four = _mm256_set1_epi32(4);
  const __m256i small = _mm256_and_si256(
      _mm256_and_si256(
          _mm256_and_si256(_mm256_cmpgt_epi32(r0, minusOne), _mm256_cmpgt_epi32(height, _mm256_add_epi32(r0, lastRow))),
          _mm256_and_si256(_mm256_cmpgt_epi32(c0, minusOne), _mm256_cmpgt_epi32(widthLess3, c0))),
      _mm256_and_si256(_mm256_cmpgt_epi32(four, lastColumn), _mm256_cmpgt_epi32(four, lastRow)));
  const uint32_t smallLanes = static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(small)));
  if (smallLanes == 0) return 0xFF;

  // Column weights as 16-bit pairs (w0 w1) and (w2 w3) per lane; row
  // weights per row; each box's first byte (offsets stay below 2^29:
  // rows and columns below 2^15, strides below 2^14).
  const __m256i w01 = _mm256_or_si256(Weight(0, left, right), _mm256_slli_epi32(Weight(1, left, right), 16));
  const __m256i w23 = _mm256_or_si256(Weight(2, left, right), _mm256_slli_epi32(Weight(3, left, right), 16));
  alignas(32) int32_t rowWeight[4][8], offset[8], lastRows[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(rowWeight[0]), Weight(0, top, bottom));
  _mm256_store_si256(reinterpret_cast<__m256i*>(rowWeight[1]), Weight(1, top, bottom));
  _mm256_store_si256(reinterpret_cast<__m256i*>(rowWeight[2]), Weight(2, top, bottom));
  _mm256_store_si256(reinterpret_cast<__m256i*>(rowWeight[3]), Weight(3, top, bottom));
  _mm256_store_si256(reinterpret_cast<__m256i*>(offset),
                     _mm256_add_epi32(_mm256_mullo_epi32(r0, _mm256_set1_epi32(stride)), _mm256_slli_epi32(c0, 2)));
  _mm256_store_si256(reinterpret_cast<__m256i*>(lastRows), lastRow);

  const __m256i order = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                                         0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
  // The pixels of lanes la and lb as eight bytes.
  auto pair = [&](int la, int lb) __attribute__((target("avx2"), always_inline)) {
    const __m256i laneA = _mm256_set1_epi32(la), laneB = _mm256_set1_epi32(lb);
    const __m256i weightsA = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(w01, laneA),
                                                _mm256_permutevar8x32_epi32(w23, laneA), 0xF0);
    const __m256i weightsB = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(w01, laneB),
                                                _mm256_permutevar8x32_epi32(w23, laneB), 0xF0);
    const __m256i rowLanes = _mm256_blend_epi32(laneA, laneB, 0xF0);
    const uint8_t* const rowA = base + offset[la];
    const uint8_t* const rowB = base + offset[lb];
    const int32_t lastA = lastRows[la], lastB = lastRows[lb];
    // Σ over rows of (row sum × row weight) >> 8. Every box has a row 1
    // (of weight 0 past its last row); rows past a box's last one reread
    // that row with weight 0.
    auto row = [&](int32_t i) __attribute__((target("avx2"), always_inline)) {
      const __m256i a = RowHalves(rowA + stride * (i < lastA ? i : lastA), order, weightsA);
      const __m256i b = RowHalves(rowB + stride * (i < lastB ? i : lastB), order, weightsB);
      const __m256i sums = _mm256_add_epi32(_mm256_permute2x128_si256(a, b, 0x21), _mm256_blend_epi32(a, b, 0xF0));
      const __m256i weight = _mm256_permutevar8x32_epi32(
          _mm256_load_si256(reinterpret_cast<const __m256i*>(rowWeight[i])), rowLanes);
      return _mm256_srli_epi32(_mm256_mullo_epi32(sums, weight), 8);
    };
    __m256i total = _mm256_add_epi32(row(0), row(1));
    const int32_t rows = (lastA > lastB ? lastA : lastB) + 1;
    for (int32_t i = 2; i < rows; ++i) total = _mm256_add_epi32(total, row(i));

    const __m128i channelsA = Normalize(_mm256_castsi256_si128(total), divA[la], divB[la]);
    const __m128i channelsB = Normalize(_mm256_extracti128_si256(total, 1), divA[lb], divB[lb]);
    const __m128i words = _mm_packs_epi32(channelsA, channelsB);
    return _mm_packus_epi16(words, words);
  };
  if (smallLanes == 0xFF) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + kPixelOfPair[0]), pair(0, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + kPixelOfPair[1]), pair(2, 3));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + kPixelOfPair[2]), pair(4, 5));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + kPixelOfPair[3]), pair(6, 7));
    return 0;
  }
  for (int j = 0; j < 4; ++j) {
    const uint32_t lanes = (smallLanes >> (2 * j)) & 3;
    if (lanes == 0) continue;
    // A lane whose box is not small borrows its neighbour's box and is not
    // stored.
    const __m128i bytes = pair(lanes & 1 ? 2 * j : 2 * j + 1, lanes & 2 ? 2 * j + 1 : 2 * j);
    PF_Pixel* const target = out + kPixelOfPair[j];
    if (lanes == 3) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(target), bytes);
    } else if (lanes == 1) {
      _mm_storeu_si32(target, bytes);
    } else {
      _mm_storeu_si32(target + 1, _mm_srli_si128(bytes, 4));
    }
  }

  // Lanes 2..5 hold pixels 4, 5, 2, 3.
  const uint32_t written = (smallLanes & 0xC3u) | ((smallLanes & 0x0Cu) << 2) | ((smallLanes & 0x30u) >> 2);
  return ~written & 0xFFu;
}

}  // namespace

TARVO_AVX2 void AreaSampleGroups(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* up,
                                 const float* lo, int32_t groups, PF_Pixel* out, uint8_t* rest) {
  if (stride <= -(1 << 14) || stride >= (1 << 14) || height >= (1 << 15) || width >= (1 << 15)) {
    for (int32_t g = 0; g < groups; ++g) rest[g] = 0xFF;
    return;
  }
  const __m256 heightF = _mm256_set1_ps(static_cast<float>(height)), widthF = _mm256_set1_ps(static_cast<float>(width));
  const __m256i heightV = _mm256_set1_epi32(height), widthLess3 = _mm256_set1_epi32(width - 3);
  for (int32_t g = 0; g < groups; ++g) {
    rest[g] = static_cast<uint8_t>(Group(base, static_cast<int32_t>(stride), heightF, widthF, heightV, widthLess3,
                                         up + 16 * g, lo + 16 * g, out + 8 * g));
  }
}

}  // namespace tarvo::avx2

#endif
