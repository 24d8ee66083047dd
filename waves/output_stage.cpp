// Pinning and output resampling.
//
// Pinning pulls every written map point back toward its own grid position by
// a column weight and a row weight. Resampling writes each destination row:
// between the columns that the map holds for both of the row's corner rows,
// pixels are area-sampled over their four corner points or point-sampled at
// their top-left corner; everything else is copied from the source.
#include "output_stage.h"

#include <math.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "simd_level.h"
#ifdef TARVO_SSE2_PATHS
#include <emmintrin.h>
#endif

#include "area_sampler.h"
#include "bilinear_avx2.h"
#include "call_ops.h"
#include "fixed_point.h"
#include "pin_avx2.h"
#include "plugin_alloc.h"
#include "render_bands.h"

namespace tarvo {

// The area sampler reads the map's points as (row, column) float pairs.
static_assert(sizeof(MapPoint) == 2 * sizeof(float) && offsetof(MapPoint, column) == sizeof(float));

namespace {

struct PinShapes {
  int32_t columns;
  int32_t rows;
};

// Column and row shape for each Pin Mode index; separators (3, 8) and any
// other index pin nothing.
PinShapes ShapesForMode(int32_t pinMode) {
  switch (pinMode) {
    case 1: return {1, 1};   // Pin Edges
    case 2: return {2, 2};   // Pin Center
    case 4: return {3, 0};   // Pin Left
    case 5: return {0, 3};   // Pin Top
    case 6: return {4, 0};   // Pin Right
    case 7: return {0, 4};   // Pin Bottom
    case 9: return {1, 0};   // Pin Horiz
    case 10: return {0, 1};  // Pin Vertical
    default: return {0, 0};
  }
}

inline void SetRamp(PinWeight& w, int32_t numerator, int32_t q) {
  w.pin = static_cast<float>(static_cast<double>(numerator) / static_cast<double>(q));
  w.keep = static_cast<float>(1.0 - static_cast<double>(w.pin));
}

inline void SetFree(PinWeight& w) {
  w.pin = 0.0f;
  w.keep = 1.0f;
}

// grid × pin + coordinate × keep, stored as single precision.
inline float Pull(int32_t grid, float coordinate, const PinWeight& w) {
  return static_cast<float>(static_cast<double>(grid) * static_cast<double>(w.pin) +
                            static_cast<double>(coordinate) * static_cast<double>(w.keep));
}

// pin +0 and keep 1: grid × 0 + coordinate × 1 for a grid position ≥ 0,
// which is coordinate + 0.
inline bool IsFree(const PinWeight& w) {
  uint32_t pinBits;
  memcpy(&pinBits, &w.pin, sizeof pinBits);
  return pinBits == 0 && w.keep == 1.0f;
}

inline void AddZero(MapPoint& p) {
  p.column += 0.0f;
  p.row += 0.0f;
}

// ApplyPin for a grid position ≥ 0, both coordinates at once: the weight
// as a (pin, keep) pair of doubles, the grid position as (y, x).
#ifdef TARVO_SSE2_PATHS
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
#endif

inline void PinPoint(int32_t y, int32_t x, MapPoint& p, const PinWeight& w) {
#ifdef TARVO_SSE2_PATHS
  PinPoint(_mm_setr_pd(static_cast<double>(y), static_cast<double>(x)), p, Widen(w));
#else
  p.column = Pull(x, p.column, w);
  p.row = Pull(y, p.row, w);
#endif
}

inline void CopyPixels(const PF_Pixel* src, PF_Pixel* dst, int32_t first, int32_t end) {
  if (end > first) memmove(dst + first, src + first, static_cast<size_t>(end - first) * sizeof(PF_Pixel));
}

inline uint8_t Channel(double v) {
  if (v >= 255.0) return 255;
  if (!(v > 0.0)) return 0;
  return static_cast<uint8_t>(TruncToInt32(v));
}

inline bool SourceReadable(const RenderSetup& setup) {
  return setup.source != nullptr && setup.source->HasPixels();
}

}  // namespace

// --- Pin profiles -----------------------------------------------------------

PinProfiles::PinProfiles(int32_t pinMode, int32_t rowCount_, int32_t columnCount_)
    : columns(PluginAllocArray<PinWeight>(columnCount_)), rows(PluginAllocArray<PinWeight>(rowCount_)) {
  ok = columns != nullptr && rows != nullptr;
  if (!ok) return;
  rowCount = rowCount_;
  columnCount = columnCount_;
  const PinShapes shapes = ShapesForMode(pinMode);
  FillPinProfile(shapes.columns, columnCount, columns);
  FillPinProfile(shapes.rows, rowCount, rows);
}

PinProfiles::~PinProfiles() {
  PluginFree(columns);
  PluginFree(rows);
}

// With q = n / 4 of 0 (fewer than 4 entries) no shape has a ramp: every entry
// is free. Shapes 1, 3 and 4 come out that way by the table; shape 2 would
// divide by zero, and a source that narrow has no middle to hold.
void FillPinProfile(int32_t shape, int32_t n, PinWeight* profile) {
  if (profile == nullptr || n <= 0) return;
  const int32_t q = n / 4;
  const int32_t h = n / 2;
  const int32_t e = n - q;
  for (int32_t i = 0; i < n; ++i) SetFree(profile[i]);
  if (q == 0) return;

  switch (shape) {
    case 1:
      for (int32_t i = 0; i < q; ++i) SetRamp(profile[i], q - i, q);
      for (int32_t i = e; i < n; ++i) SetRamp(profile[i], i - e, q);
      break;
    case 2:
      for (int32_t i = q; i < h; ++i) SetRamp(profile[i], i - q, q);
      for (int32_t i = h; i < e; ++i) SetRamp(profile[i], e - i, q);
      break;
    case 3:
      for (int32_t i = 0; i < q; ++i) SetRamp(profile[i], q - i, q);
      break;
    case 4:
      for (int32_t i = e; i < n; ++i) SetRamp(profile[i], i - e, q);
      break;
    default:
      break;
  }
}

// --- Pinning ----------------------------------------------------------------

namespace {

using FreeRuns = PinFreeRuns;

// coordinate + 0 for the points first .. end − 1: only −0 (to +0) and NaN
// (quietened) can change, so only blocks holding one are written.
void AddZeroRange(MapPoint* p, int32_t first, int32_t end) {
  int32_t x = first;
#ifdef TARVO_SSE2_PATHS
  const __m128i negativeZero = _mm_set1_epi32(static_cast<int32_t>(0x80000000u));
  for (; x + 2 <= end; x += 2) {
    float* f = &p[x].row;
    const __m128 v = _mm_loadu_ps(f);
    const __m128 odd = _mm_or_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(v), negativeZero)),
                                 _mm_cmpunord_ps(v, v));
    if (_mm_movemask_ps(odd) != 0) _mm_storeu_ps(f, _mm_add_ps(v, _mm_setzero_ps()));
  }
#endif
  for (; x < end; ++x) AddZero(p[x]);
}

// Pins the points first .. last of one map row: by the column profile
// where it is not free, then by the row weight.
void PinRow(int32_t y, MapPoint* p, int32_t first, int32_t last, const PinWeight* columnWeight,
            const PinWeight& rowWeight, const FreeRuns& runs, [[maybe_unused]] SimdLevel simd) {
  const bool rowFree = IsFree(rowWeight);
#ifdef TARVO_AVX2_PATHS
  const bool avx2Pins = simd == SimdLevel::kAvx2;
#endif
  // A free pull leaves a coordinate as coordinate + 0, and a real pull
  // gives the same whether or not that was done first. Points first .. end
  // − 1 outside the profile's free runs:
  auto pinSome = [&](int32_t from, int32_t end) {
#ifdef TARVO_AVX2_PATHS
    if (avx2Pins) from = avx2::PinPoints(y, p, from, end, columnWeight, rowWeight, true, rowFree);
#endif
#ifdef TARVO_SSE2_PATHS
    const PinPair row = Widen(rowWeight);
    __m128d grid = _mm_setr_pd(static_cast<double>(y), static_cast<double>(from));
    const __m128d step = _mm_setr_pd(0.0, 1.0);
    for (int32_t x = from; x < end; ++x, grid = _mm_add_pd(grid, step)) {
      if (!IsFree(columnWeight[x])) PinPoint(grid, p[x], Widen(columnWeight[x]));
      if (rowFree) {
        AddZero(p[x]);
      } else {
        PinPoint(grid, p[x], row);
      }
    }
#else
    for (int32_t x = from; x < end; ++x) {
      if (!IsFree(columnWeight[x])) PinPoint(y, x, p[x], columnWeight[x]);
      if (rowFree) {
        AddZero(p[x]);
      } else {
        PinPoint(y, x, p[x], rowWeight);
      }
    }
#endif
  };
  if (!runs.usable) {
    pinSome(first, last + 1);
    return;
  }
  int32_t x = first;
  for (int k = 0; k < runs.count && x <= last; ++k) {
    const int32_t runBegin = std::max(runs.begin[k], x), runEnd = std::min(runs.end[k], last + 1);
    if (runBegin >= runEnd) continue;
    pinSome(x, runBegin);
    // Free columns: only the row weight acts.
    if (rowFree) {
      AddZeroRange(p, runBegin, runEnd);
    } else {
      int32_t c = runBegin;
#ifdef TARVO_AVX2_PATHS
      if (avx2Pins) c = avx2::PinPoints(y, p, c, runEnd, columnWeight, rowWeight, false, false);
#endif
#ifdef TARVO_SSE2_PATHS
      const PinPair w = Widen(rowWeight);
      __m128d grid = _mm_setr_pd(static_cast<double>(y), static_cast<double>(c));
      for (; c < runEnd; ++c, grid = _mm_add_pd(grid, _mm_setr_pd(0.0, 1.0))) {
        PinPoint(grid, p[c], w);
      }
#else
      for (; c < runEnd; ++c) PinPoint(y, c, p[c], rowWeight);
#endif
    }
    x = runEnd;
  }
  pinSome(x, last + 1);
}

}  // namespace

PinFreeRuns::PinFreeRuns(const PinWeight* profile, int32_t n) {
  for (int32_t x = 0; x < n;) {
    if (!IsFree(profile[x])) {
      ++x;
      continue;
    }
    const int32_t runBegin = x;
    while (x < n && IsFree(profile[x])) ++x;
    if (count == kMaxRuns) return;
    begin[count] = runBegin;
    end[count] = x;
    ++count;
  }
  usable = true;
}

MapRowPinner::MapRowPinner(SourceMap& map, const PinProfiles& pins)
    : map_(map), pins_(pins), active_(map.ok && pins.ok), runs_(pins.columns, active_ ? pins.columnCount : 0) {}

// A map larger than the profiles is pinned only where they reach.
void MapRowPinner::PinWritten(int32_t y) const {
  if (!active_ || !map_.rowWritten[y] || y >= pins_.rowCount) return;
  const int32_t first = std::max(map_.rowFirst[y], 0);
  const int32_t last = std::min({map_.rowLast[y], map_.cols - 1, pins_.columnCount - 1});
  PinRow(y, &map_.At(y, 0), first, last, pins_.columns, pins_.rows[y], runs_, map_.setup.simd);
}

void PinSourceMap(SourceMap& map, const PinProfiles& pins) {
  if (map.aborted || !map.ok) return;
  const MapRowPinner pinner(map, pins);
  for (int32_t y = 0; y < map.rows; ++y) {
    map.aborted = CheckAbort() ? 1 : 0;
    if (map.aborted) return;
    pinner.PinWritten(y);
  }
}

void CheckPinStops(SourceMap& map) {
  if (map.aborted || !map.ok) return;
  for (int32_t y = 0; y < map.rows; ++y) {
    map.aborted = CheckAbort() ? 1 : 0;
    if (map.aborted) return;
  }
}

// --- Point sampling -----------------------------------------------------------

// A negative v with a fraction truncates v − 1. "Has a fraction" is tested as
// the truncation differing from v, which is fmod(v, 1) ≠ 0 for every float
// (beyond the int32 range both ways give INT32_MIN) without the call.
int32_t FloorToInt(float v) {
  const int32_t t = TruncToInt32(v);
  if (v < 0.0f && static_cast<double>(t) != static_cast<double>(v)) return TruncToInt32(static_cast<double>(v) - 1.0);
  return t;
}

BilinearWeights BilinearCell(float row, float column) {
  BilinearWeights w;
  w.r0 = FloorToInt(row);
  w.c0 = FloorToInt(column);
  w.r1 = w.r0 + 1;
  w.c1 = w.c0 + 1;
  const float fy = static_cast<float>(static_cast<double>(row) - w.r0);
  const float fx = static_cast<float>(static_cast<double>(column) - w.c0);
  const float p = static_cast<float>(static_cast<double>(fx) * fy);
  w.w00 = static_cast<float>(1.0 - fx - fy + p);
  w.w01 = static_cast<float>(static_cast<double>(fx) - p);
  w.w10 = static_cast<float>(static_cast<double>(fy) - p);
  w.w11 = p;
  return w;
}

bool IsInsideSource(const RenderSetup& setup, float row, float column) {
  const double r = row, c = column;
  return r >= 0.0 && r <= setup.height && c >= 0.0 && c <= setup.width;
}

void SampleNearest(const RenderSetup& setup, float row, float column, PF_Pixel& out) {
  const int16_t r = TruncToInt16(static_cast<double>(row) + 0.5);
  const int16_t c = TruncToInt16(static_cast<double>(column) + 0.5);
  if (r >= 0 && r < setup.height && c >= 0 && c < setup.width && SourceReadable(setup)) {
    out = setup.source->PixelAt(r, c);
  } else {
    out = setup.background;
  }
}

void SampleBilinear(const RenderSetup& setup, float row, float column, PF_Pixel& out) {
  const BilinearWeights w = BilinearCell(row, column);
  const double r = row, c = column;
  if (r < 0.0 || r >= setup.height || c < 0.0 || c >= setup.width || !SourceReadable(setup)) {
    out = setup.background;
    return;
  }
  // (r0, c0) is inside now; only row r1 and column c1 can fall outside.
  const PixelImage& src = *setup.source;
  const PF_Pixel* top = src.RowAt(static_cast<int16_t>(w.r0)).Pixels();
  const bool rightIn = w.c1 < setup.width;
  const bool bottomIn = w.r1 < setup.height;
  const PF_Pixel& tl = top[w.c0];
  const PF_Pixel& tr = rightIn ? top[w.c1] : setup.background;
  const PF_Pixel* bottom = bottomIn ? src.RowAt(static_cast<int16_t>(w.r1)).Pixels() : nullptr;
  const PF_Pixel& bl = bottomIn ? bottom[w.c0] : setup.background;
  const PF_Pixel& br = bottomIn && rightIn ? bottom[w.c1] : setup.background;

  const double w00 = w.w00, w01 = w.w01, w10 = w.w10, w11 = w.w11;
  auto mix = [&](uint8_t a, uint8_t b, uint8_t c2, uint8_t d) {
    return Channel(a * w00 + b * w01 + c2 * w10 + d * w11);
  };
  out.red = mix(tl.red, tr.red, bl.red, br.red);
  out.green = mix(tl.green, tr.green, bl.green, br.green);
  out.blue = mix(tl.blue, tr.blue, bl.blue, br.blue);
  out.alpha = mix(tl.alpha, tr.alpha, bl.alpha, br.alpha);
}

void SampleMapPoint(const RenderSetup& setup, const MapPoint& p, PF_Pixel& out) {
  if (!IsInsideSource(setup, p.row, p.column)) {
    out = setup.background;
  } else if (setup.samplingMode == kSampleBilinear) {
    SampleBilinear(setup, p.row, p.column, out);
  } else if (setup.samplingMode == kSampleNearest) {
    SampleNearest(setup, p.row, p.column, out);
  }
}

// --- Resampling ---------------------------------------------------------------

namespace {

// Point sampling of one destination row, pixel x from map point p[x]: the
// same arithmetic as SampleMapPoint, with the source's rows, size and the
// background read once per row instead of once per pixel.

// IsInsideSource, then SampleNearest.
void NearestRow(const RenderSetup& setup, const MapPoint* p, int32_t first, int32_t end, PF_Pixel* out) {
  const PF_Pixel background = setup.background;
  const uint8_t* base = setup.source->BaseAddress();
  const intptr_t stride = setup.source->RowBytes();
  const int32_t height = setup.height, width = setup.width;
  const double maxRow = height, maxColumn = width;
  int32_t x = first;
#ifdef TARVO_SSE2_PATHS
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
#endif
  for (; x < end; ++x) {
    const double r = p[x].row, c = p[x].column;
    PF_Pixel pixel = background;
    if (r >= 0.0 && r <= maxRow && c >= 0.0 && c <= maxColumn) {
      const int16_t ri = TruncToInt16(r + 0.5);
      const int16_t ci = TruncToInt16(c + 0.5);
      if (ri >= 0 && ri < height && ci >= 0 && ci < width) {
        pixel = reinterpret_cast<const PF_Pixel*>(base + stride * ri)[ci];
      }
    }
    out[x] = pixel;
  }
}

// IsInsideSource (upper bounds inclusive), then SampleBilinear (upper
// bounds strict): together 0 ≤ row < height and 0 ≤ column < width. In that
// range the comparisons, the truncations, the fractions and the product of
// the fractions come out the same in single precision as in double.
void BilinearRow(const RenderSetup& setup, const MapPoint* p, int32_t first, int32_t end, PF_Pixel* out) {
  const PF_Pixel background = setup.background;
  const uint8_t* base = setup.source->BaseAddress();
  const intptr_t stride = setup.source->RowBytes();
  const int32_t height = setup.height, width = setup.width;
  const float maxRow = static_cast<float>(height), maxColumn = static_cast<float>(width);
  auto sample = [&](int32_t x) {
    const float row = p[x].row, column = p[x].column;
    if (!(row >= 0.0f && row < maxRow && column >= 0.0f && column < maxColumn)) {
      out[x] = background;
      return;
    }
    // BilinearCell: r0 and c0 are the truncations, both being ≥ 0.
    const int32_t r0 = static_cast<int32_t>(row), c0 = static_cast<int32_t>(column);
    const float fy = row - static_cast<float>(r0);
    const float fx = column - static_cast<float>(c0);
    const float pxy = fx * fy;
    const double w00 = static_cast<float>(1.0 - fx - fy + pxy);
    const double w01 = static_cast<float>(static_cast<double>(fx) - pxy);
    const double w10 = static_cast<float>(static_cast<double>(fy) - pxy);
    const double w11 = pxy;

    const PF_Pixel* top = reinterpret_cast<const PF_Pixel*>(base + stride * r0);
    const bool rightIn = c0 + 1 < width;
    const bool bottomIn = r0 + 1 < height;
#ifdef TARVO_SSE2_PATHS
    // The four neighbours' channels as 32-bit lanes (alpha, red, green,
    // blue); each channel mixed in double precision in the scalar order,
    // the pairs (alpha, red) and (green, blue) side by side.
    const __m128i zero = _mm_setzero_si128();
    __m128i upper, lower;  // (top left, top right), (bottom left, bottom right) as 8 bytes
    if (rightIn && bottomIn) {
      upper = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(top + c0));
      lower = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + stride * (r0 + 1) + 4 * c0));
    } else {
      const PF_Pixel* bottom = bottomIn ? reinterpret_cast<const PF_Pixel*>(base + stride * (r0 + 1)) : top;
      const PF_Pixel px[4] = {top[c0], rightIn ? top[c0 + 1] : background, bottomIn ? bottom[c0] : background,
                              bottomIn && rightIn ? bottom[c0 + 1] : background};
      upper = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&px[0]));
      lower = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&px[2]));
    }
    const __m128i up16 = _mm_unpacklo_epi8(upper, zero), lo16 = _mm_unpacklo_epi8(lower, zero);
    const __m128i tl = _mm_unpacklo_epi16(up16, zero), tr = _mm_unpackhi_epi16(up16, zero);
    const __m128i bl = _mm_unpacklo_epi16(lo16, zero), br = _mm_unpackhi_epi16(lo16, zero);
    const __m128d k00 = _mm_set1_pd(w00), k01 = _mm_set1_pd(w01), k10 = _mm_set1_pd(w10), k11 = _mm_set1_pd(w11);
    auto mix = [&](__m128i a, __m128i b, __m128i c, __m128i d) {
      __m128d v = _mm_mul_pd(_mm_cvtepi32_pd(a), k00);
      v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(b), k01));
      v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(c), k10));
      v = _mm_add_pd(v, _mm_mul_pd(_mm_cvtepi32_pd(d), k11));
      // Channel(): 255 and above give 255, nothing above 0 gives 0. The
      // weights are at least −2^-24 or so, so a mix below 0 lies above −1
      // and truncates to 0 as it is.
      return _mm_cvttpd_epi32(_mm_min_pd(v, _mm_set1_pd(255.0)));
    };
    auto high = [](__m128i v) { return _mm_unpackhi_epi64(v, v); };
    const __m128i alphaRed = mix(tl, tr, bl, br);
    const __m128i greenBlue = mix(high(tl), high(tr), high(bl), high(br));
    const __m128i channels = _mm_unpacklo_epi64(alphaRed, greenBlue);
    const int32_t word = _mm_cvtsi128_si32(_mm_packus_epi16(_mm_packs_epi32(channels, channels), channels));
    memcpy(&out[x], &word, 4);
#else
    const PF_Pixel* bottom = bottomIn ? reinterpret_cast<const PF_Pixel*>(base + stride * (r0 + 1)) : nullptr;
    const PF_Pixel tl = top[c0];
    const PF_Pixel tr = rightIn ? top[c0 + 1] : background;
    const PF_Pixel bl = bottomIn ? bottom[c0] : background;
    const PF_Pixel br = bottomIn && rightIn ? bottom[c0 + 1] : background;
    auto mix = [&](uint8_t ca, uint8_t cb, uint8_t cc, uint8_t cd) {
      return Channel(ca * w00 + cb * w01 + cc * w10 + cd * w11);
    };
    out[x].red = mix(tl.red, tr.red, bl.red, br.red);
    out[x].green = mix(tl.green, tr.green, bl.green, br.green);
    out[x].blue = mix(tl.blue, tr.blue, bl.blue, br.blue);
    out[x].alpha = mix(tl.alpha, tr.alpha, bl.alpha, br.alpha);
#endif
  };
  int32_t x = first;
#ifdef TARVO_AVX2_PATHS
  // Eight points at a time; those on the source's last row or column are
  // left to the loop above.
  if (setup.simd == SimdLevel::kAvx2 && height > 0 && width > 0) {
    constexpr int32_t kMaxGroups = 256;
    uint8_t rest[kMaxGroups];
    while (x + 8 <= end) {
      const int32_t groups = std::min((end - x) / 8, kMaxGroups);
      avx2::BilinearGroups(base, stride, height, width, &p[x].row, groups, background, out + x, rest);
      for (int32_t g = 0; g < groups; ++g, x += 8) {
        for (uint32_t bits = rest[g]; bits != 0; bits &= bits - 1) sample(x + __builtin_ctz(bits));
      }
    }
  }
#endif
  for (; x < end; ++x) sample(x);
}

}  // namespace

// The map covers the source's grid, so only rows and columns that the source,
// the map and the destination all have are produced: destination rows below
// the source (or the map) and destination columns right of the source keep
// what they held. Point sampling is bounded by the source image actually
// handed over, whatever the setup's size claims.
void ResampleOutput(SourceMap& map, PixelImage& destination) {
  if (map.aborted || !map.ok) return;
  const PixelImage* src = map.source;
  if (src == nullptr || !src->HasPixels() || !destination.HasPixels()) return;

  RenderSetup setup = map.setup;
  setup.source = src;
  setup.width = std::min<int32_t>(setup.width, src->Width());
  setup.height = std::min<int32_t>(setup.height, src->Height());

  const int32_t rowCount = std::min({static_cast<int32_t>(destination.Height()), static_cast<int32_t>(src->Height()),
                                     map.rows - 1});
  const int32_t srcWidth = src->Width();
  const int32_t dstWidth = destination.Width();
  const int32_t copyWidth = std::min(srcWidth, dstWidth);
  if (rowCount <= 0) return;

  AreaSampleCache areaCache(*src);  // tables for very large boxes, shared by the bands, freed on every return
  auto row = [&](int32_t y) {
    const RowCursor srcRow = src->RowAt(static_cast<int16_t>(y));
    const RowCursor dstRow = destination.RowAt(static_cast<int16_t>(y));
    int32_t spanFirst = 0, spanLast = -1;
    if (map.rowWritten[y] && map.rowWritten[y + 1]) {
      spanFirst = std::max({map.rowFirst[y], map.rowFirst[y + 1], 0});
      spanLast = std::min({map.rowLast[y], map.rowLast[y + 1], map.cols - 1});
    }
    if (spanLast < spanFirst) {
      srcRow.CopyRowTo(dstRow);
      return;
    }

    const PF_Pixel* in = srcRow.Pixels();
    PF_Pixel* out = dstRow.Pixels();
    CopyPixels(in, out, 0, std::min(spanFirst, copyWidth));
    CopyPixels(in, out, spanLast, copyWidth);

    const int32_t sampleEnd = std::min(spanLast, dstWidth);
    const MapPoint* upper = &map.At(y, 0);
    const MapPoint* lower = upper + map.cols;
    if (setup.samplingMode == kSampleArea) {
      if (sampleEnd > spanFirst) {
        AreaSampleSpan(*src, &upper[spanFirst].row, &lower[spanFirst].row, sampleEnd - spanFirst, out + spanFirst,
                       &areaCache, setup.simd);
      }
    } else if (setup.samplingMode == kSampleBilinear) {
      BilinearRow(setup, upper, spanFirst, sampleEnd, out);
    } else if (setup.samplingMode == kSampleNearest) {
      NearestRow(setup, upper, spanFirst, sampleEnd, out);
    } else {
      for (int32_t x = spanFirst; x < sampleEnd; ++x) SampleMapPoint(setup, upper[x], out[x]);
    }
  };
  // Each row writes only its own destination row. The host is asked before
  // each band (one row a band on one thread); once it asks to stop, the
  // destination becomes transparent black.
  auto rows = [&](int32_t begin, int32_t end) {
    for (int32_t y = begin; y < end; ++y) row(y);
  };
  if (!RunRowBands(rowCount, rows)) {
    map.aborted = 1;
    destination.FillAll(0);  // transparent black
  }
}

}  // namespace tarvo
