// The displacement field eight entries at a time with AVX2: the same
// arithmetic as the four-wide SSE2 code and the per-entry kernel, each
// single-precision step in eight lanes and each double-precision step in
// two groups of four. Only called when the processor has AVX2.

#include "field_simd.h"

#ifdef TARVO_AVX2_PATHS

#include <immintrin.h>

#include "field_spreading.h"
#include "geometry.h"

namespace tarvo::avx2 {

namespace {

// Float lanes 0..3 or 4..7 widened to double, and back.
TARVO_AVX2 inline __m256d Lo(__m256 v) { return _mm256_cvtps_pd(_mm256_castps256_ps128(v)); }
TARVO_AVX2 inline __m256d Hi(__m256 v) { return _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)); }
TARVO_AVX2 inline __m256 Narrow(__m256d lo, __m256d hi) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(lo)), _mm256_cvtpd_ps(hi), 1);
}
// A float lane mask as two double lane masks.
TARVO_AVX2 inline __m256d LoMask(__m256 m) {
  return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(_mm256_castps_si256(m))));
}
TARVO_AVX2 inline __m256d HiMask(__m256 m) {
  return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_extracti128_si256(_mm256_castps_si256(m), 1)));
}
TARVO_AVX2 inline __m256d Select(__m256d mask, __m256d yes, __m256d no) { return _mm256_blendv_pd(no, yes, mask); }

// Lanes 0, 1, 4, 5, 2, 3, 6, 7 in order.
TARVO_AVX2 inline __m256 InOrder(__m256 v) {
  return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0xD8));
}

// (e[i] × (256 − f) + e[i + 1] × f) >> 8, then divided by 65536, in single
// precision (exact for tables that pass TablesFitSingle).
TARVO_AVX2 inline __m256 Interpolate(const int32_t* entries, __m256i index, __m256i frac) {
  // Entries i and i + 1 as one 64-bit element: half the elements that two
  // 32-bit gathers would fetch.
  const auto* pairs = reinterpret_cast<const long long*>(entries);
  const __m256 low = _mm256_castsi256_ps(_mm256_i32gather_epi64(pairs, _mm256_castsi256_si128(index), 4));
  const __m256 high = _mm256_castsi256_ps(_mm256_i32gather_epi64(pairs, _mm256_extracti128_si256(index, 1), 4));
  // Even and odd halves, lanes 0, 1, 4, 5, 2, 3, 6, 7 put back in order.
  const __m256 e0 = _mm256_cvtepi32_ps(_mm256_castps_si256(InOrder(_mm256_shuffle_ps(low, high, 0x88))));
  const __m256 e1 = _mm256_cvtepi32_ps(_mm256_castps_si256(InOrder(_mm256_shuffle_ps(low, high, 0xDD))));
  const __m256 sum = _mm256_add_ps(
      _mm256_mul_ps(e0, _mm256_cvtepi32_ps(_mm256_sub_epi32(_mm256_set1_epi32(256), frac))),
      _mm256_mul_ps(e1, _mm256_cvtepi32_ps(frac)));
  const __m256i v = _mm256_srai_epi32(_mm256_cvttps_epi32(sum), 8);
  return _mm256_mul_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(1.0f / 65536.0f));
}

// A table read at angles t (degrees in 16.16, 0 ≤ t < 2^31): whole degrees
// reduced to one period by an exact multiply-high quotient.
TARVO_AVX2 inline __m256 ReadReduced(const int32_t* entries, __m256i t) {
  const __m256i whole = _mm256_srli_epi32(t, 16);
  const __m256i periods = _mm256_srli_epi16(_mm256_mulhi_epu16(whole, _mm256_set1_epi32(kDegreeQuotientFactor)),
                                            kDegreeQuotientShift);
  const __m256i index = _mm256_sub_epi32(whole, _mm256_mullo_epi16(periods, _mm256_set1_epi32(360)));
  return Interpolate(entries, index, _mm256_and_si256(_mm256_srli_epi32(t, 8), _mm256_set1_epi32(255)));
}

// ReadWave at eight angles in (−360, 360); false for any other angle.
TARVO_AVX2 inline bool ReadWaveSigned(__m256 angles, const int32_t* entries, __m256* values) {
  const __m256 inside = _mm256_and_ps(_mm256_cmp_ps(angles, _mm256_set1_ps(-360.0f), _CMP_GT_OQ),
                                      _mm256_cmp_ps(angles, _mm256_set1_ps(360.0f), _CMP_LT_OQ));
  if (_mm256_movemask_ps(inside) != 0xFF) return false;
  __m256i t = _mm256_cvttps_epi32(_mm256_mul_ps(angles, _mm256_set1_ps(65536.0f)));
  t = _mm256_add_epi32(t, _mm256_and_si256(_mm256_cmpgt_epi32(_mm256_setzero_si256(), t),
                                           _mm256_set1_epi32(static_cast<int32_t>(kWavePeriodFixed))));
  *values = Interpolate(entries, _mm256_srai_epi32(t, 16),
                        _mm256_and_si256(_mm256_srli_epi32(t, 8), _mm256_set1_epi32(255)));
  return true;
}

// Whether every phase angle lies in 0..32000, read without reduction of
// the angle itself.
TARVO_AVX2 inline bool PlainPhase(__m256 p) {
  const __m256 inside = _mm256_and_ps(_mm256_cmp_ps(p, _mm256_setzero_ps(), _CMP_GE_OQ),
                                      _mm256_cmp_ps(p, _mm256_set1_ps(32000.0f), _CMP_LE_OQ));
  return _mm256_movemask_ps(inside) == 0xFF;
}

TARVO_AVX2 inline void StorePairs(float* out, __m256 first, __m256 second) {
  const __m256 lo = _mm256_unpacklo_ps(first, second), hi = _mm256_unpackhi_ps(first, second);
  _mm256_storeu_ps(out, _mm256_permute2f128_ps(lo, hi, 0x20));
  _mm256_storeu_ps(out + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
}

// The arctangent table read at ratios 0..1 of eight lanes; false when a
// ratio leaves the table's range.
TARVO_AVX2 inline bool ArcTan(__m256 ratio, __m256* radians) {
  const ArcTanTable& t = g_arcTanTable;
  const __m256d offset = _mm256_set1_pd(t.offset), invStep = _mm256_set1_pd(t.invStep);
  const __m256 s = Narrow(_mm256_mul_pd(_mm256_add_pd(Lo(ratio), offset), invStep),
                          _mm256_mul_pd(_mm256_add_pd(Hi(ratio), offset), invStep));
  const __m256 inside = _mm256_and_ps(
      _mm256_cmp_ps(s, _mm256_setzero_ps(), _CMP_GT_OQ),
      _mm256_cmp_ps(s, _mm256_set1_ps(static_cast<float>(ArcTanTable::kEntries - 1)), _CMP_LE_OQ));
  if (_mm256_movemask_ps(inside) != 0xFF) return false;
  const __m256i fixedS = _mm256_cvttps_epi32(_mm256_mul_ps(s, _mm256_set1_ps(65536.0f)));
  // At s = 400 (a ratio of 1) the last entry, read as entry 399 with the
  // full weight on its successor.
  const __m256i index = _mm256_srai_epi32(fixedS, 16);
  const __m256i atEnd = _mm256_cmpeq_epi32(index, _mm256_set1_epi32(ArcTanTable::kEntries - 1));
  const __m256i frac = _mm256_srli_epi32(_mm256_and_si256(fixedS, _mm256_set1_epi32(0xFFFF)), 8);
  *radians = Interpolate(t.entries, _mm256_add_epi32(index, atEnd),
                         _mm256_sub_epi32(frac, _mm256_slli_epi32(atEnd, 8)));
  return true;
}

// √(x² + y²) of eight offsets, rounded to single precision.
TARVO_AVX2 inline __m256 Distance(__m256 xs, double yy) {
  const __m256d yy4 = _mm256_set1_pd(yy);
  const __m256d lo = Lo(xs), hi = Hi(xs);
  return Narrow(_mm256_sqrt_pd(_mm256_add_pd(_mm256_mul_pd(lo, lo), yy4)),
                _mm256_sqrt_pd(_mm256_add_pd(_mm256_mul_pd(hi, hi), yy4)));
}

// The twirl conversion of two groups of four angular parts.
TARVO_AVX2 inline void Twirl(const FieldKernel& k, __m256 d, const __m256d angular[2], bool anyAngular,
                             __m256d turned[2]) {
  const __m256d ts = _mm256_set1_pd(k.twirlScale);
  const __m256 near = _mm256_cmp_ps(d, _mm256_set1_ps(0.1f), _CMP_GT_OQ);
  for (int h = 0; h < 2; ++h) {
    const __m256d dd = h == 0 ? Lo(d) : Hi(d);
    switch (k.twirl) {
      case 0: {
        // A zero stays the same zero; within 0.1 of the centre it is 0.
        const __m256d v = anyAngular ? _mm256_div_pd(_mm256_mul_pd(angular[h], _mm256_set1_pd(kDegreesPerRadian)), dd)
                                     : angular[h];
        turned[h] = _mm256_and_pd(h == 0 ? LoMask(near) : HiMask(near), v);
        break;
      }
      case 1: turned[h] = _mm256_mul_pd(angular[h], ts); break;
      case 2:
        turned[h] = _mm256_mul_pd(_mm256_mul_pd(angular[h], ts), _mm256_mul_pd(_mm256_set1_pd(k.twirlGrowth), dd));
        break;
      default: {
        const __m256d g = _mm256_mul_pd(_mm256_set1_pd(k.twirlGrowth), dd);
        turned[h] = _mm256_mul_pd(_mm256_mul_pd(angular[h], ts), _mm256_mul_pd(g, g));
        break;
      }
    }
  }
}

// FieldKernel::Fade for four entries, in the lanes of mask: radial × f and
// angular × f to the power twirl + 1, f = (limit − at) / (limit − inner);
// clampFade raises a negative f to 0.
TARVO_AVX2 inline void Fade(const FieldKernel& k, __m256d mask, __m256d limit, __m256d at, __m256d inner,
                            bool clampFade, __m256d& radial, __m256d& angular) {
  __m256d f = _mm256_div_pd(_mm256_sub_pd(limit, at), _mm256_sub_pd(limit, inner));
  if (clampFade) f = _mm256_andnot_pd(_mm256_cmp_pd(f, _mm256_setzero_pd(), _CMP_LT_OQ), f);
  __m256d faded = _mm256_mul_pd(angular, f);
  for (int32_t level = 0; level < k.twirl; ++level) faded = _mm256_mul_pd(faded, f);
  radial = Select(mask, _mm256_mul_pd(radial, f), radial);
  angular = Select(mask, faded, angular);
}

// Eight Circular entries at x, x + 1, ..., x + 7 (x > 0, y > 0).
TARVO_AVX2 bool CircularEight(const FieldKernel& k, float y, double yy, float x, Polar* polar, Displacement* disp) {
  const __m256 xs = _mm256_add_ps(_mm256_set1_ps(x), _mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7));
  const __m256 d = Distance(xs, yy);
  const __m256d dpp = _mm256_set1_pd(k.degreesPerPixel), phase = _mm256_set1_pd(k.phase);
  const __m256 p = Narrow(_mm256_add_pd(_mm256_mul_pd(Lo(d), dpp), phase),
                          _mm256_add_pd(_mm256_mul_pd(Hi(d), dpp), phase));
  if (!PlainPhase(p)) return false;

  // FastAtan2(y, x) for x, y > 0: the table at min / max, from π/2 when
  // y > x.
  const __m256 ys = _mm256_set1_ps(y);
  __m256 atanT;
  if (!ArcTan(_mm256_div_ps(_mm256_min_ps(ys, xs), _mm256_max_ps(ys, xs)), &atanT)) return false;
  const __m256 steep = _mm256_cmp_ps(ys, xs, _CMP_GT_OQ);
  const __m256d halfPi = _mm256_set1_pd(1.5707963705062866);
  const __m256 fromAxis = Narrow(_mm256_sub_pd(halfPi, Lo(atanT)), _mm256_sub_pd(halfPi, Hi(atanT)));
  const __m256 radians = _mm256_blendv_ps(atanT, fromAxis, steep);
  const __m256d toDegrees = _mm256_set1_pd(kDegreesPerRadian);
  const __m256 a = Narrow(_mm256_mul_pd(Lo(radians), toDegrees), _mm256_mul_pd(Hi(radians), toDegrees));

  const __m256 w = ReadReduced(k.wave, _mm256_cvttps_epi32(_mm256_mul_ps(p, _mm256_set1_ps(65536.0f))));

  const __m256 fades = _mm256_cmp_ps(d, _mm256_set1_ps(k.radiusF), _CMP_GT_OQ);
  const bool anyFade = _mm256_movemask_ps(fades) != 0;
  __m256d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m256d wd = h == 0 ? Lo(w) : Hi(w);
    radial[h] = _mm256_mul_pd(_mm256_set1_pd(k.waveHeight), wd);
    angular[h] = _mm256_xor_pd(_mm256_mul_pd(_mm256_set1_pd(k.angularHeight), wd), _mm256_set1_pd(-0.0));
    if (anyFade) {
      // The broadcasts made here, where they are needed: kept across the
      // loop they cost registers the rest of it spills for.
      Fade(k, h == 0 ? LoMask(fades) : HiMask(fades), _mm256_set1_pd(k.outer), h == 0 ? Lo(d) : Hi(d),
           _mm256_set1_pd(k.radius), true, radial[h], angular[h]);
    }
    anyAngular |= _mm256_movemask_pd(_mm256_cmp_pd(angular[h], _mm256_setzero_pd(), _CMP_NEQ_UQ)) != 0;
  }
  __m256d turned[2];
  Twirl(k, d, angular, anyAngular, turned);
  StorePairs(&polar[0].distance, d, a);
  StorePairs(&disp[0].radial, Narrow(radial[0], radial[1]), Narrow(turned[0], turned[1]));
  return true;
}

// Polar coordinates of eight offsets (x, y), y > 0, x of either sign but
// not 0; false when a ratio leaves the arctangent table's plain range.
TARVO_AVX2 bool PolarEight(float y, double yy, __m256 xs, __m256* distance, __m256* direction) {
  const __m256 negative = _mm256_cmp_ps(xs, _mm256_setzero_ps(), _CMP_LT_OQ);
  const __m256 ax = _mm256_and_ps(xs, _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF)));
  if (_mm256_movemask_ps(_mm256_cmp_ps(ax, _mm256_setzero_ps(), _CMP_GT_OQ)) != 0xFF) return false;
  const __m256 ys = _mm256_set1_ps(y);
  __m256 atanT;
  if (!ArcTan(_mm256_div_ps(_mm256_min_ps(ys, ax), _mm256_max_ps(ys, ax)), &atanT)) return false;
  // r = π/2 − T when y > |x|, else T; then π − r for a negative x; in
  // double, rounded to FastAtan2's single-precision result.
  const __m256 steep = _mm256_cmp_ps(ys, ax, _CMP_GT_OQ);
  const __m256d halfPi = _mm256_set1_pd(1.5707963705062866), pi = _mm256_set1_pd(3.1415927410125732);
  __m256d r[2];
  for (int h = 0; h < 2; ++h) {
    const __m256d td = h == 0 ? Lo(atanT) : Hi(atanT);
    const __m256d rs = Select(h == 0 ? LoMask(steep) : HiMask(steep), _mm256_sub_pd(halfPi, td), td);
    r[h] = Select(h == 0 ? LoMask(negative) : HiMask(negative), _mm256_sub_pd(pi, rs), rs);
  }
  const __m256 radians = Narrow(r[0], r[1]);
  const __m256d toDegrees = _mm256_set1_pd(kDegreesPerRadian);
  *distance = Distance(xs, yy);
  *direction = Narrow(_mm256_mul_pd(Lo(radians), toDegrees), _mm256_mul_pd(Hi(radians), toDegrees));
  return true;
}

// FieldKernel::Stretched for eight entries; false (nothing written) when a
// table read leaves what the vector reads cover.
TARVO_AVX2 bool StretchedEight(const FieldKernel& k, __m256 d, __m256 a, bool clampFade, Displacement* disp) {
  // At or beyond the outer radius d·k ≥ k·outer for any k > 0: every
  // entry is cut off.
  const __m256 beyond = _mm256_cmp_ps(d, _mm256_set1_ps(static_cast<float>(k.outer)), _CMP_GE_OQ);
  if (_mm256_movemask_ps(beyond) == 0xFF) {
    _mm256_storeu_ps(&disp[0].radial, _mm256_setzero_ps());
    _mm256_storeu_ps(&disp[4].radial, _mm256_setzero_ps());
    return true;
  }
  const __m256d angle = _mm256_set1_pd(static_cast<double>(k.angle));
  const __m256d tLo = _mm256_sub_pd(Lo(a), angle), tHi = _mm256_sub_pd(Hi(a), angle);
  const __m256d quarter = _mm256_set1_pd(90.0);
  __m256 sines, cosines;
  if (!ReadWaveSigned(Narrow(tLo, tHi), k.sine, &sines)) return false;
  if (!ReadWaveSigned(Narrow(_mm256_add_pd(tLo, quarter), _mm256_add_pd(tHi, quarter)), k.sine, &cosines)) {
    return false;
  }
  const __m256d s2 = _mm256_set1_pd(k.stretchSq), outer = _mm256_set1_pd(k.outer);
  const __m256d dpp = _mm256_set1_pd(k.degreesPerPixel), phase = _mm256_set1_pd(k.phase);
  __m256d kk[2], e[2], limit[2], cut[2], p[2];
  for (int h = 0; h < 2; ++h) {
    const __m256d sd = h == 0 ? Lo(sines) : Hi(sines), cd = h == 0 ? Lo(cosines) : Hi(cosines);
    const __m256d dd = h == 0 ? Lo(d) : Hi(d);
    kk[h] = _mm256_sqrt_pd(
        _mm256_div_pd(s2, _mm256_add_pd(_mm256_mul_pd(cd, cd), _mm256_mul_pd(s2, _mm256_mul_pd(sd, sd)))));
    e[h] = _mm256_mul_pd(dd, kk[h]);
    limit[h] = _mm256_mul_pd(kk[h], outer);
    // Cut-off entries read the wave at 0 so that every lane stays inside
    // the table.
    cut[h] = _mm256_cmp_pd(e[h], limit[h], _CMP_NLT_UQ);
    p[h] = _mm256_andnot_pd(cut[h], _mm256_add_pd(_mm256_div_pd(_mm256_mul_pd(dpp, dd), kk[h]), phase));
  }
  const __m256 pf = Narrow(p[0], p[1]);
  if (!PlainPhase(pf)) return false;
  const __m256 w = ReadReduced(k.wave, _mm256_cvttps_epi32(_mm256_mul_ps(pf, _mm256_set1_ps(65536.0f))));

  __m256d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m256d wd = h == 0 ? Lo(w) : Hi(w);
    radial[h] = _mm256_mul_pd(_mm256_mul_pd(_mm256_set1_pd(k.waveHeight), wd), kk[h]);
    angular[h] = _mm256_mul_pd(_mm256_set1_pd(k.angularHeight), wd);
    const __m256d rr = _mm256_mul_pd(_mm256_set1_pd(k.radius), kk[h]);
    const __m256d fades = _mm256_cmp_pd(e[h], rr, _CMP_GT_OQ);
    if (_mm256_movemask_pd(fades) != 0) Fade(k, fades, limit[h], e[h], rr, clampFade, radial[h], angular[h]);
    anyAngular |= _mm256_movemask_pd(
                      _mm256_andnot_pd(cut[h], _mm256_cmp_pd(angular[h], _mm256_setzero_pd(), _CMP_NEQ_UQ))) != 0;
  }
  __m256d turned[2];
  Twirl(k, d, angular, anyAngular, turned);
  // Cut-off entries: both parts exactly 0.
  for (int h = 0; h < 2; ++h) {
    radial[h] = _mm256_andnot_pd(cut[h], radial[h]);
    turned[h] = _mm256_andnot_pd(cut[h], turned[h]);
  }
  StorePairs(&disp[0].radial, Narrow(radial[0], radial[1]), Narrow(turned[0], turned[1]));
  return true;
}

// Four entries' polar and displacement pairs as four doubles each:
// distance, direction, radial, angular.
struct EntryLanes {
  __m256d distance, direction, radial, angular;
};

TARVO_AVX2 inline EntryLanes LoadEntries(const Polar* polar, const Displacement* disp) {
  const __m256i split = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  const __m256 p = _mm256_permutevar8x32_ps(_mm256_loadu_ps(&polar[0].distance), split);
  const __m256 q = _mm256_permutevar8x32_ps(_mm256_loadu_ps(&disp[0].radial), split);
  return {Lo(p), Hi(p), Lo(q), Hi(q)};
}

// sin and cos from the sine table at four angles θ (rounded to single
// precision, and θ + 90 in double before rounding); false when an angle
// lies outside (−360, 360).
TARVO_AVX2 inline bool SinCos(__m256d theta, __m256d* sines, __m256d* cosines) {
  const __m256 angles = Narrow(theta, _mm256_add_pd(theta, _mm256_set1_pd(90.0)));
  __m256 values;
  if (!ReadWaveSigned(angles, g_sineTable.entries, &values)) return false;
  *sines = Lo(values);
  *cosines = Hi(values);
  return true;
}

// Four map points (row, column) in column order, or in reverse order.
TARVO_AVX2 inline __m256 Points(__m256d rows, __m256d columns) {
  const __m128 r = _mm256_cvtpd_ps(rows), c = _mm256_cvtpd_ps(columns);
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_unpacklo_ps(r, c)), _mm_unpackhi_ps(r, c), 1);
}
TARVO_AVX2 inline void StoreForward(MapPoint* at, __m256d rows, __m256d columns) {
  _mm256_storeu_ps(&at->row, Points(rows, columns));
}
// Points for columns k, k − 1, k − 2, k − 3, stored from column k − 3 up.
TARVO_AVX2 inline void StoreBackward(MapPoint* at, __m256d rows, __m256d columns) {
  const __m256d reversed = _mm256_permute4x64_pd(_mm256_castps_pd(Points(rows, columns)), _MM_SHUFFLE(0, 1, 2, 3));
  _mm256_storeu_ps(&at[-3].row, _mm256_castpd_ps(reversed));
}

// Entries begin..end − 1 one at a time, as the per-entry writers do.
void SymmetricOneByOne(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                       int32_t centreCol, MapPoint* upper, MapPoint* lower, bool right, bool left) {
  MapRowWriter up{upper ? upper : lower}, lo{lower ? lower : upper};
  for (int32_t i = begin; i < end; ++i) {
    SpreadEntry(polar[i], disp[i], upper != nullptr, lower != nullptr, right, left, cy, cx, g_sineTable.entries,
                centreCol + 1 + i, centreCol - i, up, lo);
  }
}

void RotatedOneByOne(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                     MapPoint* upper, int32_t upperShift, MapPoint* lower, int32_t lowerShift) {
  MapRowWriter up{upper}, lo{lower};
  for (int32_t c = begin; c < end; ++c) {
    SpreadRotatedEntry(polar[c], disp[c], upper != nullptr, lower != nullptr, cy, cx, g_sineTable.entries,
                       c - upperShift, lowerShift - c, up, lo);
  }
}

}  // namespace

TARVO_AVX2 void SpreadSymmetricRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy,
                                   double cx, int32_t centreCol, MapPoint* upper, MapPoint* lower, bool right,
                                   bool left) {
  const bool upRight = upper && right, upLeft = upper && left;
  const bool loRight = lower && right, loLeft = lower && left;
  const __m256d centreY = _mm256_set1_pd(cy), centreX = _mm256_set1_pd(cx);
  int32_t i = begin;
  for (; i + 4 <= end; i += 4) {
    const EntryLanes e = LoadEntries(polar + i, disp + i);
    const __m256d rp = _mm256_add_pd(e.distance, e.radial);
    // Direction a + dθ for the upper right point (and its reflection, the
    // lower left); dθ − (a − 180) for the upper left (and the lower right).
    const __m256d theta = _mm256_add_pd(e.direction, e.angular);
    const __m256d b = _mm256_sub_pd(e.angular, _mm256_sub_pd(e.direction, _mm256_set1_pd(180.0)));
    __m256d sa, ca, sb, cb;
    if (!SinCos(theta, &sa, &ca) || !SinCos(b, &sb, &cb)) {
      // An angle the vector read does not cover.
      SymmetricOneByOne(polar, disp, i, i + 4, cy, cx, centreCol, upper, lower, right, left);
      continue;
    }
    const __m256d ps = _mm256_mul_pd(rp, sa), pc = _mm256_mul_pd(rp, ca);
    const __m256d qs = _mm256_mul_pd(rp, sb), qc = _mm256_mul_pd(rp, cb);
    const int32_t rightCol = centreCol + 1 + i, leftCol = centreCol - i;
    if (upRight) StoreForward(upper + rightCol, _mm256_sub_pd(centreY, ps), _mm256_add_pd(centreX, pc));
    if (loLeft) StoreBackward(lower + leftCol, _mm256_add_pd(centreY, ps), _mm256_sub_pd(centreX, pc));
    if (upLeft) StoreBackward(upper + leftCol, _mm256_sub_pd(centreY, qs), _mm256_add_pd(centreX, qc));
    if (loRight) StoreForward(lower + rightCol, _mm256_add_pd(centreY, qs), _mm256_sub_pd(centreX, qc));
  }
  SymmetricOneByOne(polar, disp, i, end, cy, cx, centreCol, upper, lower, right, left);
}

TARVO_AVX2 void SpreadRotatedRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy,
                                 double cx, MapPoint* upper, int32_t upperShift, MapPoint* lower, int32_t lowerShift) {
  const __m256d centreY = _mm256_set1_pd(cy), centreX = _mm256_set1_pd(cx);
  int32_t c = begin;
  for (; c + 4 <= end; c += 4) {
    const EntryLanes e = LoadEntries(polar + c, disp + c);
    const __m256d rp = _mm256_add_pd(e.distance, e.radial);
    __m256d s, co;
    if (!SinCos(_mm256_add_pd(e.direction, e.angular), &s, &co)) {
      RotatedOneByOne(polar, disp, c, c + 4, cy, cx, upper, upperShift, lower, lowerShift);
      continue;
    }
    const __m256d ps = _mm256_mul_pd(rp, s), pc = _mm256_mul_pd(rp, co);
    if (upper) StoreForward(upper + (c - upperShift), _mm256_sub_pd(centreY, ps), _mm256_add_pd(centreX, pc));
    if (lower) StoreBackward(lower + (lowerShift - c), _mm256_add_pd(centreY, ps), _mm256_sub_pd(centreX, pc));
  }
  RotatedOneByOne(polar, disp, c, end, cy, cx, upper, upperShift, lower, lowerShift);
}

TARVO_AVX2 int32_t CircularRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, Polar* polar,
                               Displacement* disp) {
  int32_t i = begin;
  for (; i + 8 <= end; i += 8) {
    const float x = static_cast<float>(0.5 + i);
    if (!CircularEight(k, y, yy, x, polar + i, disp + i)) {
      for (int32_t j = i; j < i + 8; ++j) k.CircularEntry(y, yy, static_cast<float>(0.5 + j), polar[j], disp[j]);
    }
  }
  return i;
}

TARVO_AVX2 int32_t StretchedRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end,
                                int32_t columnShift, bool clampFade, Polar* polar, Displacement* disp) {
  int32_t i = begin;
  const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  for (; i + 8 <= end; i += 8) {
    // (i + columnShift) − 0.5 for eight entries: exact in single precision.
    const __m256 xs = _mm256_sub_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(i + columnShift), lanes)),
                                    _mm256_set1_ps(0.5f));
    __m256 d, a;
    if (PolarEight(y, yy, xs, &d, &a) && StretchedEight(k, d, a, clampFade, disp + i)) {
      StorePairs(&polar[i].distance, d, a);
      continue;
    }
    for (int32_t j = i; j < i + 8; ++j) {
      k.StretchedEntry(y, yy, static_cast<float>(j + columnShift - 0.5), clampFade, polar[j], disp[j]);
    }
  }
  return i;
}

}  // namespace tarvo::avx2

#endif
