// Bilinear point sampling eight points at a time with AVX2: the cells,
// fractions and weights of eight points in vector lanes (single precision
// where the row sampler uses it, double where it does), then each pixel's
// four channels mixed in one register of four doubles, in the row sampler's
// order: tl × w00 + tr × w01 + bl × w10 + br × w11.
#include "bilinear_avx2.h"

#ifdef TARVO_AVX2_PATHS

#include <immintrin.h>

#include "pixel_simd.h"

namespace tarvo::avx2 {
namespace {

// One pixel's channels (alpha, red, green, blue) as four doubles.
TARVO_AVX2_INLINE __m256d Channels(const uint8_t* pixel) {
  return _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(sse2::LoadPixel(pixel)));
}

TARVO_AVX2_INLINE __m256d Lo(__m256 v) { return _mm256_cvtps_pd(_mm256_castps256_ps128(v)); }
TARVO_AVX2_INLINE __m256d Hi(__m256 v) { return _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)); }

// float(v) widened back to double, for the two halves of eight lanes.
TARVO_AVX2_INLINE void Round(__m256d lo, __m256d hi, double* out) {
  _mm256_store_pd(out, _mm256_cvtps_pd(_mm256_cvtpd_ps(lo)));
  _mm256_store_pd(out + 4, _mm256_cvtps_pd(_mm256_cvtpd_ps(hi)));
}

// One group of eight points; returns the bits of the points not written.
TARVO_AVX2_INLINE uint32_t Group(const uint8_t* base, intptr_t stride, int32_t height, int32_t width,
                                 const float* points, PF_Pixel background, PF_Pixel* out) {
  // Rows and columns of points 0..7 in order.
  const __m256 a = _mm256_loadu_ps(points), b = _mm256_loadu_ps(points + 8);
  const __m256 row = _mm256_castpd_ps(_mm256_permute4x64_pd(
      _mm256_castps_pd(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))), _MM_SHUFFLE(3, 1, 2, 0)));
  const __m256 column = _mm256_castpd_ps(_mm256_permute4x64_pd(
      _mm256_castps_pd(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))), _MM_SHUFFLE(3, 1, 2, 0)));

  // 0 ≤ row < height and 0 ≤ column < width (false for NaN).
  const __m256 zero = _mm256_setzero_ps();
  const __m256 inside = _mm256_and_ps(
      _mm256_and_ps(_mm256_cmp_ps(row, zero, _CMP_GE_OQ),
                    _mm256_cmp_ps(row, _mm256_set1_ps(static_cast<float>(height)), _CMP_LT_OQ)),
      _mm256_and_ps(_mm256_cmp_ps(column, zero, _CMP_GE_OQ),
                    _mm256_cmp_ps(column, _mm256_set1_ps(static_cast<float>(width)), _CMP_LT_OQ)));
  const uint32_t insideLanes = static_cast<uint32_t>(_mm256_movemask_ps(inside));
  // Outside points never reach the arithmetic below with their own values.
  const __m256 r = _mm256_and_ps(row, inside), c = _mm256_and_ps(column, inside);

  // The cell (truncation, the point being ≥ 0), the fractions and their
  // product in single precision; the weights in double, stored as single.
  const __m256i r0 = _mm256_cvttps_epi32(r), c0 = _mm256_cvttps_epi32(c);
  const __m256 fy = _mm256_sub_ps(r, _mm256_cvtepi32_ps(r0));
  const __m256 fx = _mm256_sub_ps(c, _mm256_cvtepi32_ps(c0));
  const __m256 pxy = _mm256_mul_ps(fx, fy);
  const __m256d one = _mm256_set1_pd(1.0);
  const __m256d fxLo = Lo(fx), fxHi = Hi(fx), fyLo = Lo(fy), fyHi = Hi(fy), pLo = Lo(pxy), pHi = Hi(pxy);
  alignas(32) double w00[8], w01[8], w10[8], w11[8];
  Round(_mm256_add_pd(_mm256_sub_pd(_mm256_sub_pd(one, fxLo), fyLo), pLo),
        _mm256_add_pd(_mm256_sub_pd(_mm256_sub_pd(one, fxHi), fyHi), pHi), w00);
  Round(_mm256_sub_pd(fxLo, pLo), _mm256_sub_pd(fxHi, pHi), w01);
  Round(_mm256_sub_pd(fyLo, pLo), _mm256_sub_pd(fyHi, pHi), w10);
  _mm256_store_pd(w11, pLo);
  _mm256_store_pd(w11 + 4, pHi);

  // Points whose right and lower neighbours are inside too.
  const __m256i full = _mm256_and_si256(_mm256_cmpgt_epi32(_mm256_set1_epi32(height - 1), r0),
                                        _mm256_cmpgt_epi32(_mm256_set1_epi32(width - 1), c0));
  const uint32_t fullLanes = insideLanes & static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(full)));
  // Row offsets stay below 2^29 (rows below 2^15, strides below 2^14).
  alignas(32) int32_t offset[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(offset),
                     _mm256_add_epi32(_mm256_mullo_epi32(r0, _mm256_set1_epi32(static_cast<int32_t>(stride))),
                                      _mm256_slli_epi32(c0, 2)));

  for (int k = 0; k < 8; ++k) {
    if (!((insideLanes >> k) & 1)) {
      out[k] = background;
      continue;
    }
    if (!((fullLanes >> k) & 1)) continue;
    const uint8_t* p = base + offset[k];
    __m256d v = _mm256_mul_pd(Channels(p), _mm256_broadcast_sd(&w00[k]));
    v = _mm256_add_pd(v, _mm256_mul_pd(Channels(p + 4), _mm256_broadcast_sd(&w01[k])));
    v = _mm256_add_pd(v, _mm256_mul_pd(Channels(p + stride), _mm256_broadcast_sd(&w10[k])));
    v = _mm256_add_pd(v, _mm256_mul_pd(Channels(p + stride + 4), _mm256_broadcast_sd(&w11[k])));
    // A mix below 0 lies above −1.
    _mm_storeu_si32(&out[k], sse2::PackChannels(ClampChannels(v)));
  }
  return (insideLanes & ~fullLanes) & 0xFFu;
}

}  // namespace

TARVO_AVX2 void BilinearGroups(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* points,
                               int32_t groups, PF_Pixel background, PF_Pixel* out, uint8_t* rest) {
  for (int32_t g = 0; g < groups; ++g) {
    rest[g] = static_cast<uint8_t>(Group(base, stride, height, width, points + 16 * g, background, out + 8 * g));
  }
}

}  // namespace tarvo::avx2

#endif
