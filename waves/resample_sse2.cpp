// Point sampling with SSE2: nearest four points at a time, and the
// bilinear mix of one pixel's four neighbours with each pair of channels
// side by side. The same bytes as the per-pixel code.
#include "resample_sse2.h"

#ifdef TARVO_SSE2_PATHS

#include <emmintrin.h>
#include <string.h>

#include "pixel_simd.h"

namespace tarvo::sse2 {

int32_t NearestPoints(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const MapPoint* p,
                      int32_t first, int32_t end, PF_Pixel background, PF_Pixel* out) {
  int32_t x = first;
  // Four points at a time: the bounds compared in single precision (the
  // size is exact there), the rounding r + 0.5 in double as below; only
  // the pixel reads one at a time.
  const __m128 heightF = _mm_set1_ps(static_cast<float>(height)), widthF = _mm_set1_ps(static_cast<float>(width));
  const __m128d half = _mm_set1_pd(0.5);
  for (; x + 4 <= end; x += 4) {
    const __m128 a = _mm_loadu_ps(&p[x].row), b = _mm_loadu_ps(&p[x + 2].row);
    const __m128 rows = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    const __m128 columns = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    const __m128 zero = _mm_setzero_ps();
    const __m128 inside = _mm_and_ps(_mm_and_ps(_mm_cmpge_ps(rows, zero), _mm_cmple_ps(rows, heightF)),
                                     _mm_and_ps(_mm_cmpge_ps(columns, zero), _mm_cmple_ps(columns, widthF)));
    auto rounded = [&](__m128 v) {
      const __m128i low = _mm_cvttpd_epi32(_mm_add_pd(_mm_cvtps_pd(v), half));
      const __m128i high = _mm_cvttpd_epi32(_mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(v, v)), half));
      return _mm_unpacklo_epi64(low, high);
    };
    const __m128i ri = rounded(rows), ci = rounded(columns);
    const __m128i inRange = _mm_and_si128(_mm_cmplt_epi32(ri, _mm_set1_epi32(height)),
                                          _mm_cmplt_epi32(ci, _mm_set1_epi32(width)));
    const int mask = _mm_movemask_ps(_mm_and_ps(inside, _mm_castsi128_ps(inRange)));
    alignas(16) int32_t rs[4], cs[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(rs), ri);
    _mm_store_si128(reinterpret_cast<__m128i*>(cs), ci);
    for (int k = 0; k < 4; ++k) {
      out[x + k] = (mask >> k) & 1 ? reinterpret_cast<const PF_Pixel*>(base + stride * rs[k])[cs[k]] : background;
    }
  }
  return x;
}

PF_Pixel MixBilinear(const PF_Pixel* upperPair, const PF_Pixel* lowerPair, double w00, double w01, double w10,
                     double w11) {
  // The four neighbours' channels as 32-bit lanes (alpha, red, green,
  // blue); each channel mixed in double precision in the scalar order, the
  // pairs (alpha, red) and (green, blue) side by side.
  const __m128i zero = _mm_setzero_si128();
  const __m128i upper = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(upperPair));
  const __m128i lower = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(lowerPair));
  const __m128i up16 = _mm_unpacklo_epi8(upper, zero), lo16 = _mm_unpacklo_epi8(lower, zero);
  const __m128i tl = _mm_unpacklo_epi16(up16, zero), tr = _mm_unpackhi_epi16(up16, zero);
  const __m128i bl = _mm_unpacklo_epi16(lo16, zero), br = _mm_unpackhi_epi16(lo16, zero);
  const __m128d k00 = _mm_set1_pd(w00), k01 = _mm_set1_pd(w01), k10 = _mm_set1_pd(w10), k11 = _mm_set1_pd(w11);
  auto mix = [&](__m128i a, __m128i b, __m128i c, __m128i d) {
    __m128d v = _mm_mul_pd(_mm_cvtepi32_pd(a), k00);
    v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(b), k01));
    v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(c), k10));
    v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(d), k11));
    // The weights are at least −2^-24 or so: a mix below 0 lies above −1.
    return ClampChannels(v);
  };
  auto high = [](__m128i v) { return _mm_unpackhi_epi64(v, v); };
  const __m128i alphaRed = mix(tl, tr, bl, br);
  const __m128i greenBlue = mix(high(tl), high(tr), high(bl), high(br));
  const __m128i channels = _mm_unpacklo_epi64(alphaRed, greenBlue);
  const int32_t word = _mm_cvtsi128_si32(PackChannels(channels));
  PF_Pixel out;
  memcpy(&out, &word, 4);
  return out;
}

}  // namespace tarvo::sse2

#endif
