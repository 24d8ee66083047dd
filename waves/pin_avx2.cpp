// Pinning with AVX2: two points' four coordinates in one register of
// doubles, grid × pin + coordinate × keep as the two-lane code computes it,
// stored as single precision after each pull.
#include "pin_avx2.h"

#ifdef TARVO_AVX2_PATHS

#include <immintrin.h>

namespace tarvo::avx2 {

TARVO_AVX2 int32_t PinPoints(int32_t y, MapPoint* p, int32_t from, int32_t end, const PinWeight* columnWeight,
                             const PinWeight& rowWeight, bool pullColumns, bool rowFree) {
  const __m256d rowPin = _mm256_set1_pd(rowWeight.pin), rowKeep = _mm256_set1_pd(rowWeight.keep);
  // (row, column) of the two points' grid positions.
  __m256d grid = _mm256_setr_pd(y, from, y, from + 1.0);
  const __m256d step = _mm256_setr_pd(0.0, 2.0, 0.0, 2.0);
  int32_t x = from;
  for (; x + 2 <= end; x += 2, grid = _mm256_add_pd(grid, step)) {
    float* const f = &p[x].row;
    __m128 v = _mm_loadu_ps(f);
    if (pullColumns) {
      // (pin, keep) of both columns, each spread over its point's lanes.
      const __m256d w = _mm256_cvtps_pd(_mm_loadu_ps(&columnWeight[x].pin));
      const __m256d pin = _mm256_permute_pd(w, 0x0), keep = _mm256_permute_pd(w, 0xF);
      v = _mm256_cvtpd_ps(_mm256_add_pd(_mm256_mul_pd(grid, pin), _mm256_mul_pd(_mm256_cvtps_pd(v), keep)));
    }
    if (rowFree) {
      v = _mm_add_ps(v, _mm_setzero_ps());
    } else {
      v = _mm256_cvtpd_ps(_mm256_add_pd(_mm256_mul_pd(grid, rowPin), _mm256_mul_pd(_mm256_cvtps_pd(v), rowKeep)));
    }
    _mm_storeu_ps(f, v);
  }
  return x;
}

}  // namespace tarvo::avx2

#endif
