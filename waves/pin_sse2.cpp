// Pinning two coordinates at a time with SSE2: a point's (row, column)
// pair in one register of doubles, grid × pin + coordinate × keep as the
// per-point code computes it, stored as single precision after each pull.
#include "pin_sse2.h"

#ifdef TARVO_SSE2_PATHS

#include <emmintrin.h>

namespace tarvo::sse2 {

namespace {

// ApplyPin for a grid position ≥ 0, both coordinates at once: the weight
// as a (pin, keep) pair of doubles, the grid position as (y, x).
struct PinPair {
  __m128d pin, keep;
};

inline PinPair Widen(const PinWeight& w) {
  const __m128d pk = _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(&w))));
  return {_mm_unpacklo_pd(pk, pk), _mm_unpackhi_pd(pk, pk)};
}

inline void PinPoint(__m128d grid, MapPoint& p, const PinPair& w) {
  const __m128d point = _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(&p))));
  const __m128d pulled = _mm_add_pd(_mm_mul_pd(grid, w.pin), _mm_mul_pd(point, w.keep));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(&p), _mm_castps_si128(_mm_cvtpd_ps(pulled)));
}

}  // namespace

int32_t PinPoints(int32_t y, MapPoint* p, int32_t from, int32_t end, const PinWeight* columnWeight,
                  const PinWeight& rowWeight, bool pullColumns, bool rowFree) {
  const PinPair row = Widen(rowWeight);
  __m128d grid = _mm_setr_pd(static_cast<double>(y), static_cast<double>(from));
  const __m128d step = _mm_setr_pd(0.0, 1.0);
  for (int32_t x = from; x < end; ++x, grid = _mm_add_pd(grid, step)) {
    if (pullColumns && !columnWeight[x].IsFree()) PinPoint(grid, p[x], Widen(columnWeight[x]));
    if (rowFree) {
      p[x].column += 0.0f;
      p[x].row += 0.0f;
    } else {
      PinPoint(grid, p[x], row);
    }
  }
  return end;
}

int32_t AddZeroPoints(MapPoint* p, int32_t from, int32_t end) {
  // Only blocks holding −0 or NaN are written.
  const __m128i negativeZero = _mm_set1_epi32(static_cast<int32_t>(0x80000000u));
  int32_t x = from;
  for (; x + 2 <= end; x += 2) {
    float* f = &p[x].row;
    const __m128 v = _mm_loadu_ps(f);
    const __m128 odd = _mm_or_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(v), negativeZero)),
                                 _mm_cmpunord_ps(v, v));
    if (_mm_movemask_ps(odd) != 0) _mm_storeu_ps(f, _mm_add_ps(v, _mm_setzero_ps()));
  }
  return x;
}

}  // namespace tarvo::sse2

#endif
