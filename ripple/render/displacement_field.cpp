// The displacement field: for every offset from the centre that reaches the
// frame, its polar position and its radial and angular displacement.

#include <math.h>

#include <algorithm>

#include "call_ops.h"
#include "field_kernel.h"
#include "field_simd.h"
#include "fixed_point.h"
#include "render_bands.h"
#include "ripple_renderer.h"
#include "table_reads.h"
#include "wave_table.h"

namespace tarvo {

namespace {

// One entry of the Circular branch at horizontal offset x.
inline void CircularOne(const FieldKernel& kernel, float y, double yy, float x, Polar& polar, Displacement& disp) {
  const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
  polar = {d, static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian)};
  disp = kernel.Circular(d);
}

// One entry of the stretched branches at horizontal offset x.
inline void StretchedOne(const FieldKernel& kernel, float y, double yy, float x, bool clampFade, Polar& polar,
                         Displacement& disp) {
  const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
  const float a = static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian);
  polar = {d, a};
  disp = kernel.Stretched(d, a, clampFade);
}

#ifdef TARVO_TABLE_READS_SSE2
// Entries of at most 2^16 in magnitude interpolate exactly in single
// precision (every product and sum an integer of at most 2^24).
bool FitsSingle(const int32_t* entries, int n) {
  for (int k = 0; k < n; ++k)
    if (entries[k] > 65536 || entries[k] < -65536) return false;
  return true;
}

bool TablesFitSingle(const WaveTable& wave) {
  return FitsSingle(wave.entries, WaveTable::kEntries) && FitsSingle(g_arcTanTable.entries, ArcTanTable::kEntries);
}

// The arctangent table at four positions s of 0 < s ≤ 400 (the ratio in
// table steps). At s = 400, a ratio of 1, the table's last entry is read
// as entry 399 with the full weight on its successor.
inline __m128 ReadArcTan4(__m128 s) {
  const __m128i fixedS = _mm_cvttps_epi32(_mm_mul_ps(s, _mm_set1_ps(65536.0f)));
  const __m128i index = _mm_srai_epi32(fixedS, 16);
  const __m128i atEnd = _mm_cmpeq_epi32(index, _mm_set1_epi32(ArcTanTable::kEntries - 1));
  const __m128i frac = _mm_srli_epi32(_mm_and_si128(fixedS, _mm_set1_epi32(0xFFFF)), 8);
  return Interpolate4(g_arcTanTable.entries, _mm_add_epi32(index, atEnd), _mm_sub_epi32(frac, _mm_slli_epi32(atEnd, 8)));
}

// A table read at four angles t (degrees in 16.16, 0 ≤ t < 2^31): whole
// degrees reduced to one period by an exact multiply-high quotient.
inline __m128 ReadReduced4(const int32_t* entries, __m128i t) {
  const __m128i whole = _mm_srli_epi32(t, 16);
  const __m128i periods =
      _mm_srli_epi16(_mm_mulhi_epu16(whole, _mm_set1_epi32(kDegreeQuotientFactor)), kDegreeQuotientShift);
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


// The angular displacement of two entries at distances dd, in degrees as the
// twirl makes it: no twirl divides radians by the distance (a zero stays the
// same zero, within 0.1 of the centre it is 0: near is then clear), the
// others scale by the twirl and grow with the distance.
inline __m128d Twirl(const FieldKernel& k, __m128d angular, __m128d dd, __m128d near, bool anyAngular) {
  const __m128d ts = _mm_set1_pd(k.twirlScale);
  switch (k.twirl) {
    case 0: {
      const __m128d v = anyAngular ? _mm_div_pd(_mm_mul_pd(angular, _mm_set1_pd(kDegreesPerRadian)), dd) : angular;
      return _mm_and_pd(near, v);
    }
    case 1:
      return _mm_mul_pd(angular, ts);
    case 2:
      return _mm_mul_pd(_mm_mul_pd(angular, ts), _mm_mul_pd(_mm_set1_pd(k.twirlGrowth), dd));
    default: {
      const __m128d g = _mm_mul_pd(_mm_set1_pd(k.twirlGrowth), dd);
      return _mm_mul_pd(_mm_mul_pd(angular, ts), _mm_mul_pd(g, g));
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
  const __m128 nearCentre = _mm_cmpgt_ps(d, _mm_set1_ps(0.1f));
  // A lane mask of four floats as two pairs of double masks.
  auto lowMask = [](__m128 m) {
    return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(1, 1, 0, 0)));
  };
  auto highMask = [](__m128 m) {
    return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(3, 3, 2, 2)));
  };
  const __m128d fadeMasks[2] = {lowMask(fades), highMask(fades)};
  const __m128d nearMasks[2] = {lowMask(nearCentre), highMask(nearCentre)};
  __m128d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m128d wd = h == 0 ? Low(w) : High(w);
    const __m128d dd = h == 0 ? Low(d) : High(d);
    const __m128d fadeMask = fadeMasks[h];
    __m128d rad = _mm_mul_pd(_mm_set1_pd(k.waveHeight), wd);
    __m128d ang = _mm_xor_pd(_mm_mul_pd(_mm_set1_pd(k.angularHeight), wd), _mm_set1_pd(-0.0));
    __m128d f = _mm_div_pd(_mm_sub_pd(_mm_set1_pd(k.outer), dd), _mm_set1_pd(k.outer - k.radius));
    f = _mm_andnot_pd(_mm_cmplt_pd(f, _mm_setzero_pd()), f);  // a negative fade is 0
    __m128d fadedAng = _mm_mul_pd(ang, f);
    for (int32_t level = 0; level < k.twirl; ++level) fadedAng = _mm_mul_pd(fadedAng, f);
    rad = _mm_or_pd(_mm_and_pd(fadeMask, _mm_mul_pd(rad, f)), _mm_andnot_pd(fadeMask, rad));
    ang = _mm_or_pd(_mm_and_pd(fadeMask, fadedAng), _mm_andnot_pd(fadeMask, ang));
    radial[h] = rad;
    angular[h] = ang;
    anyAngular |= _mm_movemask_pd(_mm_cmpneq_pd(ang, _mm_setzero_pd())) != 0;
  }
  // Twirl conversion.
  __m128d turned[2];
  for (int h = 0; h < 2; ++h) {
    const __m128d dd = h == 0 ? Low(d) : High(d);
    turned[h] = Twirl(k, angular[h], dd, nearMasks[h], anyAngular);
  }
  const __m128 radialF = Narrow(radial[0], radial[1]);
  const __m128 turnedF = Narrow(turned[0], turned[1]);
  float* pf = &polar[0].distance;
  _mm_storeu_ps(pf, _mm_unpacklo_ps(d, a));
  _mm_storeu_ps(pf + 4, _mm_unpackhi_ps(d, a));
  float* df = &disp[0].radial;
  _mm_storeu_ps(df, _mm_unpacklo_ps(radialF, turnedF));
  _mm_storeu_ps(df + 4, _mm_unpackhi_ps(radialF, turnedF));
  return true;
}

// A lane mask of four floats as a pair of double masks (lanes 0, 1 or 2, 3).
inline __m128d LowMask(__m128 m) { return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(1, 1, 0, 0))); }
inline __m128d HighMask(__m128 m) { return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castps_si128(m), _MM_SHUFFLE(3, 3, 2, 2))); }
inline __m128d Select(__m128d mask, __m128d yes, __m128d no) {
  return _mm_or_pd(_mm_and_pd(mask, yes), _mm_andnot_pd(mask, no));
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
  const __m128 inside = _mm_and_ps(_mm_cmpgt_ps(angles, _mm_set1_ps(-360.0f)), _mm_cmplt_ps(angles, _mm_set1_ps(360.0f)));
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

  const __m128 nearCentre = _mm_cmpgt_ps(d, _mm_set1_ps(0.1f));
  const __m128d nearMasks[2] = {LowMask(nearCentre), HighMask(nearCentre)};
  __m128d radial[2], angular[2];
  bool anyAngular = false;
  for (int h = 0; h < 2; ++h) {
    const __m128d wd = h == 0 ? Low(w) : High(w);
    __m128d rad = _mm_mul_pd(_mm_mul_pd(_mm_set1_pd(k.waveHeight), wd), kk[h]);
    __m128d ang = _mm_mul_pd(_mm_set1_pd(k.angularHeight), wd);
    const __m128d rr = _mm_mul_pd(_mm_set1_pd(k.radius), kk[h]);
    const __m128d fades = _mm_cmpgt_pd(e[h], rr);
    __m128d f = _mm_div_pd(_mm_sub_pd(limit[h], e[h]), _mm_sub_pd(limit[h], rr));
    if (clampFade) f = _mm_andnot_pd(_mm_cmplt_pd(f, _mm_setzero_pd()), f);
    __m128d fadedAng = _mm_mul_pd(ang, f);
    for (int32_t level = 0; level < k.twirl; ++level) fadedAng = _mm_mul_pd(fadedAng, f);
    rad = Select(fades, _mm_mul_pd(rad, f), rad);
    ang = Select(fades, fadedAng, ang);
    radial[h] = rad;
    angular[h] = ang;
    anyAngular |= _mm_movemask_pd(_mm_andnot_pd(cut[h], _mm_cmpneq_pd(ang, _mm_setzero_pd()))) != 0;
  }
  __m128d turned[2];
  for (int h = 0; h < 2; ++h) {
    const __m128d dd = h == 0 ? Low(d) : High(d);
    turned[h] = Twirl(k, angular[h], dd, nearMasks[h], anyAngular);
    // Cut-off entries: both parts exactly 0.
    radial[h] = _mm_andnot_pd(cut[h], radial[h]);
    turned[h] = _mm_andnot_pd(cut[h], turned[h]);
  }
  const __m128 radialF = Narrow(radial[0], radial[1]);
  const __m128 turnedF = Narrow(turned[0], turned[1]);
  float* df = &disp[0].radial;
  _mm_storeu_ps(df, _mm_unpacklo_ps(radialF, turnedF));
  _mm_storeu_ps(df + 4, _mm_unpackhi_ps(radialF, turnedF));
  return true;
}

inline void StorePolar(Polar* polar, __m128 d, __m128 a) {
  float* pf = &polar[0].distance;
  _mm_storeu_ps(pf, _mm_unpacklo_ps(d, a));
  _mm_storeu_ps(pf + 4, _mm_unpackhi_ps(d, a));
}
#endif

// √radicand truncated, no more than limit; a negative radicand gives 0.
int32_t RowLength(double radicand, int32_t limit) {
  if (radicand < 0.0) return 0;
  return std::max(0, std::min(TruncToInt32(sqrt(radicand)), limit));
}

}  // namespace

void RippleRenderer::ComputeField() {
  const FieldBranch branch = Branch();
#ifdef TARVO_TABLE_READS_SSE2
  // The vector paths need tables that interpolate exactly in single
  // precision.
  fieldSimd = TablesFitSingle(*wave) ? ActiveSimd() : SimdLevel::kScalar;
#endif
  // The host is asked before each band (one row a band on one thread).
  // Rows write only their own entries; the tables are read-only by now.
  auto rows = [&](int32_t begin, int32_t end) {
    for (int32_t j = begin; j < end; ++j) {
      if (branch == FieldBranch::kRotated) {
        ComputeRotatedRow(j);
      } else {
        ComputeSymmetricRow(j, branch);
      }
    }
  };
  aborted = !RunRowBands(quadRows, rows);
}

void RippleRenderer::ComputeSymmetricRow(int32_t j, FieldBranch branch) {
  const float y = static_cast<float>(j + 0.5);
  const double yy = static_cast<double>(y) * y;
  const double outer = outerRadiusPx;
  const bool acrossRows = branch == FieldBranch::kAxisStretched && (stretchAngle == 90 || stretchAngle == 270);
  const double radicand =
      acrossRows ? outer * outer - yy * (static_cast<double>(stretch) * stretch) : outer * outer - yy;
  const int32_t n = RowLength(radicand, quadCols);
  quadrant->rowLength[j] = n;

  const ColumnRange reach = SymmetricReach(j, n);
  if (reach.begin >= reach.end) return;
  const FieldKernel kernel = MakeKernel(*this);
  Polar* polar = quadrant->polar + quadrant->Index(j, 0);
  Displacement* disp = quadrant->displacement + quadrant->Index(j, 0);
  float x = static_cast<float>(0.5 + reach.begin);
  if (branch == FieldBranch::kCircular) {
    int32_t i = reach.begin;
#ifdef TARVO_FIELD_AVX2
    if (fieldSimd == SimdLevel::kAvx2) {
      i = avx2::CircularRow(kernel, y, yy, i, reach.end, polar, disp);
      x = static_cast<float>(0.5 + i);
    }
#endif
#ifdef TARVO_TABLE_READS_SSE2
    if (fieldSimd >= SimdLevel::kSse2) {
      for (; i + 4 <= reach.end; i += 4, x += 4.0f) {
        if (!CircularFour(kernel, y, yy, x, polar + i, disp + i)) {
          // An angle or ratio outside the tables' plain range: these four
          // one at a time.
          float xk = x;
          for (int32_t k = i; k < i + 4; ++k, xk += 1.0f) CircularOne(kernel, y, yy, xk, polar[k], disp[k]);
        }
      }
    }
#endif
    for (; i < reach.end; ++i, x += 1.0f) {
      const float d = static_cast<float>(sqrt(static_cast<double>(x) * x + yy));
      polar[i] = {d, static_cast<float>(FastAtan2(y, x) * kDegreesPerRadian)};
      disp[i] = kernel.Circular(d);
    }
  } else {
    int32_t i = reach.begin;
#ifdef TARVO_FIELD_AVX2
    if (fieldSimd == SimdLevel::kAvx2) {
      i = avx2::StretchedRow(kernel, y, yy, i, reach.end, 1, false, polar, disp);
      x = static_cast<float>(0.5 + i);
    }
#endif
#ifdef TARVO_TABLE_READS_SSE2
    if (fieldSimd >= SimdLevel::kSse2) {
      for (; i + 4 <= reach.end; i += 4, x += 4.0f) {
        __m128 d, a;
        const __m128 xs = _mm_add_ps(_mm_set1_ps(x), _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f));
        if (PolarFour(y, yy, xs, &d, &a) && StretchedFour(kernel, d, a, false, disp + i)) {
          StorePolar(polar + i, d, a);
          continue;
        }
        float xk = x;
        for (int32_t k = i; k < i + 4; ++k, xk += 1.0f) StretchedOne(kernel, y, yy, xk, false, polar[k], disp[k]);
      }
    }
#endif
    for (; i < reach.end; ++i, x += 1.0f) StretchedOne(kernel, y, yy, x, false, polar[i], disp[i]);
  }
}

void RippleRenderer::ComputeRotatedRow(int32_t j) {
  // Rows without a span stay uncomputed; so do columns whose two grid
  // points both fall outside the frame.
  const ColumnRange reach = RotatedReach(j);
  if (reach.begin >= reach.end) return;
  const float y = static_cast<float>(j + 0.5);
  const double yy = static_cast<double>(y) * y;
  const FieldKernel kernel = MakeKernel(*this);
  Polar* polar = quadrant->polar + quadrant->Index(j, 0);
  Displacement* disp = quadrant->displacement + quadrant->Index(j, 0);
  int32_t c = reach.begin;
#ifdef TARVO_FIELD_AVX2
  if (fieldSimd == SimdLevel::kAvx2) c = avx2::StretchedRow(kernel, y, yy, c, reach.end, -width, true, polar, disp);
#endif
#ifdef TARVO_TABLE_READS_SSE2
  if (fieldSimd >= SimdLevel::kSse2) {
    for (; c + 4 <= reach.end; c += 4) {
      // c − 0.5 − width for four columns; exact in single precision.
      const __m128 xs = _mm_setr_ps(static_cast<float>(c - 0.5 - width), static_cast<float>(c + 0.5 - width),
                                    static_cast<float>(c + 1.5 - width), static_cast<float>(c + 2.5 - width));
      __m128 d, a;
      if (PolarFour(y, yy, xs, &d, &a) && StretchedFour(kernel, d, a, true, disp + c)) {
        StorePolar(polar + c, d, a);
        continue;
      }
      for (int32_t k = c; k < c + 4; ++k) {
        StretchedOne(kernel, y, yy, static_cast<float>(k - 0.5 - width), true, polar[k], disp[k]);
      }
    }
  }
#endif
  for (; c < reach.end; ++c) StretchedOne(kernel, y, yy, static_cast<float>(c - 0.5 - width), true, polar[c], disp[c]);
}

}  // namespace tarvo
