// A pixel's bytes into a vector register, ClampChannel (pixel_image.h) and
// the packing of channel values into a pixel, for the four- and eight-wide
// pixel loops of every stage.
#pragma once

#include <stdint.h>
#include <string.h>

#include "simd_level.h"

#ifdef TARVO_SSE2_PATHS
#include <emmintrin.h>
#endif
#ifdef TARVO_AVX2_PATHS
#include <immintrin.h>
#endif

namespace tarvo {

#ifdef TARVO_SSE2_PATHS
namespace sse2 {

// One pixel's four bytes in the low 32 bits, the rest 0.
TARVO_HOT_INLINE __m128i LoadPixel(const uint8_t* pixel) {
  int32_t word;
  memcpy(&word, pixel, 4);
  return _mm_cvtsi32_si128(word);
}

// ClampChannel of two values, as 32-bit lanes: 255 and above give 255. The
// callers' values are never at or below −1, so truncation gives 0 below 0.
TARVO_HOT_INLINE __m128i ClampChannels(__m128d v) { return _mm_cvttpd_epi32(_mm_min_pd(v, _mm_set1_pd(255.0))); }

// Four channel values 0..255 in 32-bit lanes (alpha, red, green, blue) as
// one pixel's bytes, in the low 32 bits.
TARVO_HOT_INLINE __m128i PackChannels(__m128i channels) {
  return _mm_packus_epi16(_mm_packs_epi32(channels, channels), channels);
}

}  // namespace sse2
#endif

#ifdef TARVO_AVX2_PATHS
namespace avx2 {

// ClampChannel of four values, as 32-bit lanes (see sse2::ClampChannels).
TARVO_AVX2_INLINE __m128i ClampChannels(__m256d v) {
  return _mm256_cvttpd_epi32(_mm256_min_pd(v, _mm256_set1_pd(255.0)));
}

}  // namespace avx2
#endif

}  // namespace tarvo
