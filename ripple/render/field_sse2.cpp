// The displacement field and the spreading four entries at a time with
// SSE2: the per-entry kernel's arithmetic, each single-precision step in
// four lanes and each double-precision step in two pairs. Every lane gives
// the bits the per-entry code gives.
#include "field_simd.h"

#ifdef TARVO_SSE2_PATHS

#include <emmintrin.h>

#include "field_spreading.h"
#include "geometry.h"

namespace tarvo::sse2 {

namespace {

// (e[i] × (256 − f) + e[i + 1] × f) >> 8 for four indices and fractions,
// then divided by 65536: the tables' 1/256 interpolation, in single
// precision (exact for tables that pass TablesFitSingle).
inline __m128 Interpolate4(const int32_t* entries, __m128i index, __m128i frac) {
  alignas(16) int32_t at[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(at), index);
  const __m128i p0 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(entries + at[0]));
  const __m128i p1 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(entries + at[1]));
  const __m128i p2 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(entries + at[2]));
  const __m128i p3 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(entries + at[3]));
  const __m128i q01 = _mm_unpacklo_epi32(p0, p1), q23 = _mm_unpacklo_epi32(p2, p3);
  const __m128 e0 = _mm_cvtepi32_ps(_mm_unpacklo_epi64(q01, q23));
  const __m128 e1 = _mm_cvtepi32_ps(_mm_unpackhi_epi64(q01, q23));
  const __m128 sum = _mm_add_ps(_mm_mul_ps(e0, _mm_cvtepi32_ps(_mm_sub_epi32(_mm_set1_epi32(256), frac))),
                                _mm_mul_ps(e1, _mm_cvtepi32_ps(frac)));
  const __m128i v = _mm_srai_epi32(_mm_cvttps_epi32(sum), 8);
  return _mm_mul_ps(_mm_cvtepi32_ps(v), _mm_set1_ps(1.0f / 65536.0f));
}

// ReadWave at four angles at once, when all four lie in [0, 360); false
// (nothing written) otherwise.
inline bool ReadWave4(__m128 angles, const int32_t* entries, __m128* values) {
  const __m128 inside = _mm_and_ps(_mm_cmpge_ps(angles, _mm_setzero_ps()), _mm_cmplt_ps(angles, _mm_set1_ps(360.0f)));
  if (_mm_movemask_ps(inside) != 15) return false;
  const __m128i t = _mm_cvttps_epi32(_mm_mul_ps(angles, _mm_set1_ps(65536.0f)));
  const __m128i f = _mm_and_si128(_mm_srli_epi32(t, 8), _mm_set1_epi32(255));
  *values = Interpolate4(entries, _mm_srai_epi32(t, 16), f);
  return true;
}

// The arctangent table at four positions s of 0 < s ≤ 400 (the ratio in
// table steps). At s = 400, a ratio of 1, the table's last entry is read
// as entry 399 with the full weight on its successor.
inline __m128 ReadArcTan4(__m128 s) {
  const __m128i fixedS = _mm_cvttps_epi32(_mm_mul_ps(s, _mm_set1_ps(65536.0f)));
  const __m128i index = _mm_srai_epi32(fixedS, 16);
  const __m128i atEnd = _mm_cmpeq_epi32(index, _mm_set1_epi32(ArcTanTable::kEntries - 1));
  const __m128i frac = _mm_srli_epi32(_mm_and_si128(fixedS, _mm_set1_epi32(0xFFFF)), 8);
  return Interpolate4(g_arcTanTable.entries, _mm_add_epi32(index, atEnd),
                      _mm_sub_epi32(frac, _mm_slli_epi32(atEnd, 8)));
}

// A table read at four angles t (degrees in 16.16, 0 ≤ t < 2^31): whole
// degrees reduced to one period by an exact multiply-high quotient.
inline __m128 ReadReduced4(const int32_t* entries, __m128i t) {
  const __m128i whole = _mm_srli_epi32(t, 16);
  const __m128i periods = _mm_srli_epi16(_mm_mulhi_epu16(whole, _mm_set1_epi32(kDegreeQuotientFactor)),
                                         kDegreeQuotientShift);
  const __m128i index = _mm_sub_epi32(whole, _mm_mullo_epi16(periods, _mm_set1_epi32(360)));
  return Interpolate4(entries, index, _mm_and_si128(_mm_srli_epi32(t, 8), _mm_set1_epi32(255)));
}

// Two doubles from the low or high pair of four floats, and back.
inline __m128d Low(__m128 v) { return _mm_cvtps_pd(v); }
inline __m128d High(__m128 v) { return _mm_cvtps_pd(_mm_movehl_ps(v, v)); }
inline __m128 Narrow(__m128d low, __m128d high) { return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high)); }

// The arctangent table's position of min(y, x) / max(y, x) for x, y > 0,
// and which lanes the vector reads cover (0 < s ≤ the last entry).
inline __m128 ArcTanPosition(__m128 ys, __m128 xs, __m128* inside) {
  const __m128 ratio = _mm_div_ps(_mm_min_ps(ys, xs), _mm_max_ps(ys, xs));
  const ArcTanTable& t = g_arcTanTable;
  const __m128d offset = _mm_set1_pd(t.offset), invStep = _mm_set1_pd(t.invStep);
  const __m128 s = Narrow(_mm_mul_pd(_mm_add_pd(Low(ratio), offset), invStep),
                          _mm_mul_pd(_mm_add_pd(High(ratio), offset), invStep));
  *inside = _mm_and_ps(_mm_cmpgt_ps(s, _mm_setzero_ps()),
                       _mm_cmple_ps(s, _mm_set1_ps(static_cast<float>(ArcTanTable::kEntries - 1))));
  return s;
}

// Four entries' pairs (first[p], second[p]) stored in entry order.
inline void StorePairs(float* out, __m128 first, __m128 second) {
  _mm_storeu_ps(out, _mm_unpacklo_ps(first, second));
  _mm_storeu_ps(out + 4, _mm_unpackhi_ps(first, second));
}

// A lane mask of four floats as a pair of double masks (lanes 0, 1 or 2, 3).
inline __m128d LowMask(__m128 m) {
  return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(1, 1, 0, 0)));
}
inline __m128d HighMask(__m128 m) {
  return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(3, 3, 2, 2)));
}
inline __m128d Select(__m128d mask, __m128d yes, __m128d no) {
  return _mm_or_pd(_mm_and_pd(mask, yes), _mm_andnot_pd(mask, no));
}

// FieldKernel::Fade for two entries, in the lanes of mask: radial × f and
// angular × f to the power twirl + 1, f = (limit − at) / (limit − inner);
// clampFade raises a negative f to 0.
inline void Fade(const FieldKernel& k, __m128d mask, __m128d limit, __m128d at, __m128d inner, bool clampFade,
                 __m128d& radial, __m128d& angular) {
  __m128d f = _mm_div_pd(_mm_sub_pd(limit, at), _mm_sub_pd(limit, inner));
  if (clampFade) f = _mm_andnot_pd(_mm_cmplt_pd(f, _mm_setzero_pd()), f);
  __m128d faded = _mm_mul_pd(angular, f);
  for (int32_t level = 0; level < k.twirl; ++level) faded = _mm_mul_pd(faded, f);
  radial = Select(mask, _mm_mul_pd(radial, f), radial);
  angular = Select(mask, faded, angular);
}

// FieldKernel::Twirl for four entries at distances d, in two pairs: no
// twirl divides radians by the distance (a zero stays the same zero, within
// 0.1 of the centre it is 0), the others scale by the twirl and grow with
// the distance. anyAngular: whether any angular part is not 0.
inline void Twirl(const FieldKernel& k, __m128 d, const __m128d angular[2], bool anyAngular, __m128d turned[2]) {
  const __m128d ts = _mm_set1_pd(k.twirlScale);
  const __m128 near = _mm_cmpgt_ps(d, _mm_set1_ps(0.1f));
  for (int h = 0; h < 2; ++h) {
    const __m128d dd = h == 0 ? Low(d) : High(d);
    switch (k.twirl) {
      case 0: {
        const __m128d v = anyAngular ? _mm_div_pd(_mm_mul_pd(angular[h], _mm_set1_pd(kDegreesPerRadian)), dd)
                                     : angular[h];
        turned[h] = _mm_and_pd(h == 0 ? LowMask(near) : HighMask(near), v);
        break;
      }
      case 1: turned[h] = _mm_mul_pd(angular[h], ts); break;
      case 2: turned[h] = _mm_mul_pd(_mm_mul_pd(angular[h], ts), _mm_mul_pd(_mm_set1_pd(k.twirlGrowth), dd)); break;
      default: {
        const __m128d g = _mm_mul_pd(_mm_set1_pd(k.twirlGrowth), dd);
        turned[h] = _mm_mul_pd(_mm_mul_pd(angular[h], ts), _mm_mul_pd(g, g));
        break;
      }
    }
  }
}

// Four entries of the Circular branch at x, x + 1, x + 2, x + 3, in the
// same arithmetic as CircularOne: single-precision steps in four lanes,
// double-precision steps in two pairs. False (nothing written) when a
// ratio or a wave angle lies outside what the vector table reads cover.
bool CircularFour(const FieldKernel& k, float y, double yy, float x, Polar* polar, Displacement* disp) {
  const __m128 xs = _mm_add_ps(_mm_set1_ps(x), _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f));
  const __m128d yy2 = _mm_set1_pd(yy);
  auto distance = [&](__m128d xd) { return _mm_sqrt_pd(_mm_add_pd(_mm_mul_pd(xd, xd), yy2)); };
  const __m128 d = Narrow(distance(Low(xs)), distance(High(xs)));

  // FastAtan2(y, x) for x, y > 0: the table at min / max, from π/2 when
  // y > x.
  const __m128 ys = _mm_set1_ps(y);
  __m128 sInside;
  const __m128 s = ArcTanPosition(ys, xs, &sInside);

  // The wave's phase angle, read plainly for 0 ≤ p ≤ 32000.
  const __m128d dpp = _mm_set1_pd(k.degreesPerPixel), phase = _mm_set1_pd(k.phase);
  const __m128 p = Narrow(_mm_add_pd(_mm_mul_pd(Low(d), dpp), phase), _mm_add_pd(_mm_mul_pd(High(d), dpp), phase));
  const __m128 pInside = _mm_and_ps(_mm_cmpge_ps(p, _mm_setzero_ps()), _mm_cmple_ps(p, _mm_set1_ps(32000.0f)));
  if (_mm_movemask_ps(_mm_and_ps(sInside, pInside)) != 15) return false;

  const __m128 atanT = ReadArcTan4(s);
  const __m128 steep = _mm_cmpgt_ps(ys, xs);
  const __m128d halfPi = _mm_set1_pd(1.5707963705062866);
  const __m128 fromAxis = Narrow(_mm_sub_pd(halfPi, Low(atanT)), _mm_sub_pd(halfPi, High(atanT)));
  const __m128 radians = _mm_or_ps(_mm_and_ps(steep, fromAxis), _mm_andnot_ps(steep, atanT));
  const __m128d toDegrees = _mm_set1_pd(kDegreesPerRadian);
  const __m128 a = Narrow(_mm_mul_pd(Low(radians), toDegrees), _mm_mul_pd(High(radians), toDegrees));

  const __m128 w = ReadReduced4(k.wave, _mm_cvttps_epi32(_mm_mul_ps(p, _mm_set1_ps(65536.0f))));

  // Circular(d) in two pairs of lanes.
  const __m128 fades = _mm_cmpgt_ps(d, _mm_set1_ps(k.radiusF));
  __m128d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m128d wd = h == 0 ? Low(w) : High(w);
    const __m128d dd = h == 0 ? Low(d) : High(d);
    radial[h] = _mm_mul_pd(_mm_set1_pd(k.waveHeight), wd);
    angular[h] = _mm_xor_pd(_mm_mul_pd(_mm_set1_pd(k.angularHeight), wd), _mm_set1_pd(-0.0));
    Fade(k, h == 0 ? LowMask(fades) : HighMask(fades), _mm_set1_pd(k.outer), dd, _mm_set1_pd(k.radius), true, radial[h],
         angular[h]);
    anyAngular |= _mm_movemask_pd(_mm_cmpneq_pd(angular[h], _mm_setzero_pd())) != 0;
  }
  __m128d turned[2];
  Twirl(k, d, angular, anyAngular, turned);
  StorePairs(&polar[0].distance, d, a);
  StorePairs(&disp[0].radial, Narrow(radial[0], radial[1]), Narrow(turned[0], turned[1]));
  return true;
}

// Polar coordinates of four offsets (x, y), y > 0 and x of either sign but
// not 0: distance and FastAtan2 × 180/π, as in the per-entry code. False
// when a ratio falls outside the arctangent table's plain range.
bool PolarFour(float y, double yy, __m128 xs, __m128* distance, __m128* direction) {
  const __m128d yy2 = _mm_set1_pd(yy);
  auto dist = [&](__m128d xd) { return _mm_sqrt_pd(_mm_add_pd(_mm_mul_pd(xd, xd), yy2)); };
  const __m128 d = Narrow(dist(Low(xs)), dist(High(xs)));
  const __m128 negative = _mm_cmplt_ps(xs, _mm_setzero_ps());
  const __m128 ax = _mm_and_ps(xs, _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF)));
  const __m128 ys = _mm_set1_ps(y);
  __m128 sInside;
  const __m128 s = ArcTanPosition(ys, ax, &sInside);
  if (_mm_movemask_ps(_mm_and_ps(sInside, _mm_cmpgt_ps(ax, _mm_setzero_ps()))) != 15) return false;
  const __m128 atanT = ReadArcTan4(s);
  // r = π/2 − T when y > |x|, else T; then π − r for a negative x; all in
  // double before the single-precision result.
  const __m128 steep = _mm_cmpgt_ps(ys, ax);
  const __m128d halfPi = _mm_set1_pd(1.5707963705062866), pi = _mm_set1_pd(3.1415927410125732);
  const __m128d toDegrees = _mm_set1_pd(kDegreesPerRadian);
  auto angle = [&](__m128d td, __m128d steepMask, __m128d negativeMask) {
    __m128d r = Select(steepMask, _mm_sub_pd(halfPi, td), td);
    r = Select(negativeMask, _mm_sub_pd(pi, r), r);
    return _mm_cvtps_pd(_mm_cvtpd_ps(r));  // FastAtan2's single-precision result
  };
  const __m128d rLow = angle(Low(atanT), LowMask(steep), LowMask(negative));
  const __m128d rHigh = angle(High(atanT), HighMask(steep), HighMask(negative));
  *distance = d;
  *direction = Narrow(_mm_mul_pd(rLow, toDegrees), _mm_mul_pd(rHigh, toDegrees));
  return true;
}

// ReadWave at four angles in (−360, 360): the index of a negative angle is
// one period up. False (nothing written) for any other angle.
bool ReadWaveSigned4(__m128 angles, const int32_t* entries, __m128* values) {
  const __m128 inside = _mm_and_ps(_mm_cmpgt_ps(angles, _mm_set1_ps(-360.0f)),
                                   _mm_cmplt_ps(angles, _mm_set1_ps(360.0f)));
  if (_mm_movemask_ps(inside) != 15) return false;
  __m128i t = _mm_cvttps_epi32(_mm_mul_ps(angles, _mm_set1_ps(65536.0f)));
  t = _mm_add_epi32(t, _mm_and_si128(_mm_cmplt_epi32(t, _mm_setzero_si128()),
                                     _mm_set1_epi32(static_cast<int32_t>(kWavePeriodFixed))));
  *values = Interpolate4(entries, _mm_srai_epi32(t, 16), _mm_and_si128(_mm_srli_epi32(t, 8), _mm_set1_epi32(255)));
  return true;
}

// FieldKernel::Stretched for four entries (distance d, direction a): the
// ellipse factor, the cut-off, the wave read at the scaled distance, the
// fade and the twirl, in two pairs of double lanes. False (nothing written)
// when a table read leaves what the vector reads cover.
bool StretchedFour(const FieldKernel& k, __m128 d, __m128 a, bool clampFade, Displacement* disp) {
  // At or beyond the outer radius d·k ≥ k·outer for any k > 0: every
  // entry is cut off.
  if (_mm_movemask_ps(_mm_cmpge_ps(d, _mm_set1_ps(static_cast<float>(k.outer)))) == 15) {
    _mm_storeu_ps(&disp[0].radial, _mm_setzero_ps());
    _mm_storeu_ps(&disp[2].radial, _mm_setzero_ps());
    return true;
  }
  const __m128d angle = _mm_set1_pd(static_cast<double>(k.angle));
  const __m128d tLow = _mm_sub_pd(Low(a), angle), tHigh = _mm_sub_pd(High(a), angle);
  const __m128d quarter = _mm_set1_pd(90.0);
  __m128 sines, cosines;
  if (!ReadWaveSigned4(Narrow(tLow, tHigh), k.sine, &sines)) return false;
  if (!ReadWaveSigned4(Narrow(_mm_add_pd(tLow, quarter), _mm_add_pd(tHigh, quarter)), k.sine, &cosines)) {
    return false;
  }
  const __m128d s2 = _mm_set1_pd(k.stretchSq), outer = _mm_set1_pd(k.outer);
  __m128d kk[2], e[2], limit[2];
  for (int h = 0; h < 2; ++h) {
    const __m128d sd = h == 0 ? Low(sines) : High(sines), cd = h == 0 ? Low(cosines) : High(cosines);
    kk[h] = _mm_sqrt_pd(_mm_div_pd(s2, _mm_add_pd(_mm_mul_pd(cd, cd), _mm_mul_pd(s2, _mm_mul_pd(sd, sd)))));
    e[h] = _mm_mul_pd(h == 0 ? Low(d) : High(d), kk[h]);
    limit[h] = _mm_mul_pd(kk[h], outer);
  }
  // Entries at or beyond the cut-off get no displacement; their wave angle
  // is read as 0 so that every lane stays inside the table.
  const __m128d cut[2] = {_mm_cmpnlt_pd(e[0], limit[0]), _mm_cmpnlt_pd(e[1], limit[1])};
  const __m128d dpp = _mm_set1_pd(k.degreesPerPixel), phase = _mm_set1_pd(k.phase);
  const __m128d pLow = _mm_andnot_pd(cut[0], _mm_add_pd(_mm_div_pd(_mm_mul_pd(dpp, Low(d)), kk[0]), phase));
  const __m128d pHigh = _mm_andnot_pd(cut[1], _mm_add_pd(_mm_div_pd(_mm_mul_pd(dpp, High(d)), kk[1]), phase));
  const __m128 p = Narrow(pLow, pHigh);
  const __m128 pInside = _mm_and_ps(_mm_cmpge_ps(p, _mm_setzero_ps()), _mm_cmple_ps(p, _mm_set1_ps(32000.0f)));
  if (_mm_movemask_ps(pInside) != 15) return false;
  const __m128 w = ReadReduced4(k.wave, _mm_cvttps_epi32(_mm_mul_ps(p, _mm_set1_ps(65536.0f))));

  __m128d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m128d wd = h == 0 ? Low(w) : High(w);
    radial[h] = _mm_mul_pd(_mm_mul_pd(_mm_set1_pd(k.waveHeight), wd), kk[h]);
    angular[h] = _mm_mul_pd(_mm_set1_pd(k.angularHeight), wd);
    const __m128d rr = _mm_mul_pd(_mm_set1_pd(k.radius), kk[h]);
    Fade(k, _mm_cmpgt_pd(e[h], rr), limit[h], e[h], rr, clampFade, radial[h], angular[h]);
    anyAngular |= _mm_movemask_pd(_mm_andnot_pd(cut[h], _mm_cmpneq_pd(angular[h], _mm_setzero_pd()))) != 0;
  }
  __m128d turned[2];
  Twirl(k, d, angular, anyAngular, turned);
  for (int h = 0; h < 2; ++h) {
    // Cut-off entries: both parts exactly 0.
    radial[h] = _mm_andnot_pd(cut[h], radial[h]);
    turned[h] = _mm_andnot_pd(cut[h], turned[h]);
  }
  StorePairs(&disp[0].radial, Narrow(radial[0], radial[1]), Narrow(turned[0], turned[1]));
  return true;
}

// All four points of an entry whose points all lie in the frame, the same
// arithmetic with the four table reads at once and each (row, column)
// pair in one register. False (nothing written) when an angle lies outside
// the first period.
inline bool SpreadFourPoints(const Polar& polar, const Displacement& disp, double cy, double cx, const int32_t* sine,
                             int32_t rightCol, int32_t leftCol, MapRowWriter& upper, MapRowWriter& lower) {
  const double a = polar.direction;
  const double dTheta = disp.angular;
  const double rp = static_cast<double>(polar.distance) + disp.radial;
  const double theta = a + dTheta;
  const double b = dTheta - (a - 180.0);
  const __m128 angles = _mm_movelh_ps(_mm_cvtpd_ps(_mm_setr_pd(theta, theta + 90.0)),
                                      _mm_cvtpd_ps(_mm_setr_pd(b, b + 90.0)));
  __m128 sinCos;  // sin θ, cos θ, sin b, cos b
  if (!ReadWave4(angles, sine, &sinCos)) return false;
  const __m128d r = _mm_set1_pd(rp);
  const __m128d pa = _mm_mul_pd(r, _mm_cvtps_pd(sinCos));                         // rp·sin θ, rp·cos θ
  const __m128d pb = _mm_mul_pd(r, _mm_cvtps_pd(_mm_movehl_ps(sinCos, sinCos)));  // rp·sin b, rp·cos b
  const __m128d centre = _mm_setr_pd(cy, cx);
  auto put = [](MapRowWriter& row, int32_t column, __m128d point) {
    const __m128 f = _mm_cvtpd_ps(point);
    row.Put(column, _mm_cvtss_f32(f), _mm_cvtss_f32(_mm_shuffle_ps(f, f, 1)));
  };
  // (cy − p.sin, cx + p.cos) above, (cy + p.sin, cx − p.cos) below.
  const __m128d plusA = _mm_add_pd(centre, pa), minusA = _mm_sub_pd(centre, pa);
  const __m128d plusB = _mm_add_pd(centre, pb), minusB = _mm_sub_pd(centre, pb);
  put(upper, rightCol, _mm_move_sd(plusA, minusA));
  put(lower, leftCol, _mm_move_sd(minusA, plusA));
  put(upper, leftCol, _mm_move_sd(plusB, minusB));
  put(lower, rightCol, _mm_move_sd(minusB, plusB));
  return true;
}

}  // namespace

int32_t CircularRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, Polar* polar,
                    Displacement* disp) {
  int32_t i = begin;
  for (; i + 4 <= end; i += 4) {
    if (!CircularFour(k, y, yy, static_cast<float>(0.5 + i), polar + i, disp + i)) {
      // An angle or ratio outside the tables' plain range: these four one
      // at a time.
      for (int32_t j = i; j < i + 4; ++j) k.CircularEntry(y, yy, static_cast<float>(0.5 + j), polar[j], disp[j]);
    }
  }
  return i;
}

int32_t StretchedRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, int32_t columnShift,
                     bool clampFade, Polar* polar, Displacement* disp) {
  int32_t i = begin;
  for (; i + 4 <= end; i += 4) {
    // (i + columnShift) − 0.5 for four entries; exact in single precision.
    const double x = static_cast<double>(i + columnShift) - 0.5;
    const __m128 xs = _mm_setr_ps(static_cast<float>(x), static_cast<float>(x + 1.0), static_cast<float>(x + 2.0),
                                  static_cast<float>(x + 3.0));
    __m128 d, a;
    if (PolarFour(y, yy, xs, &d, &a) && StretchedFour(k, d, a, clampFade, disp + i)) {
      StorePairs(&polar[i].distance, d, a);
      continue;
    }
    for (int32_t j = i; j < i + 4; ++j) {
      k.StretchedEntry(y, yy, static_cast<float>(j + columnShift - 0.5), clampFade, polar[j], disp[j]);
    }
  }
  return i;
}

void SpreadFourPointRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                        int32_t centreCol, MapPoint* upper, MapPoint* lower) {
  MapRowWriter up{upper}, lo{lower};
  const int32_t* sine = g_sineTable.entries;
  for (int32_t i = begin; i < end; ++i) {
    const int32_t rightCol = centreCol + 1 + i, leftCol = centreCol - i;
    if (!SpreadFourPoints(polar[i], disp[i], cy, cx, sine, rightCol, leftCol, up, lo)) {
      SpreadEntry(polar[i], disp[i], true, true, true, true, cy, cx, sine, rightCol, leftCol, up, lo);
    }
  }
}

}  // namespace tarvo::sse2

#endif
