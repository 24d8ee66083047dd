// Pinning: every written map point pulled back toward its own grid
// position by a column weight and a row weight, from the Pin Mode's
// profiles.
#include <algorithm>

#include "call_ops.h"
#include "output_stage.h"
#include "pin_avx2.h"
#include "pin_sse2.h"
#include "plugin_alloc.h"

namespace tarvo {

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

inline void AddZero(MapPoint& p) {
  p.column += 0.0f;
  p.row += 0.0f;
}

inline void PinPoint(int32_t y, int32_t x, MapPoint& p, const PinWeight& w) {
  p.column = Pull(x, p.column, w);
  p.row = Pull(y, p.row, w);
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
    default: break;
  }
}

// --- Pinning ----------------------------------------------------------------

namespace {

using FreeRuns = PinFreeRuns;

// coordinate + 0 for the points first .. end − 1: only −0 (to +0) and NaN
// (quietened) can change.
void AddZeroRange(MapPoint* p, int32_t first, int32_t end, [[maybe_unused]] SimdLevel simd) {
  int32_t x = first;
#ifdef TARVO_SSE2_PATHS
  if (simd != SimdLevel::kScalar) x = sse2::AddZeroPoints(p, x, end);
#endif
  for (; x < end; ++x) AddZero(p[x]);
}

// Pins the points first .. last of one map row: by the column profile
// where it is not free, then by the row weight.
void PinRow(int32_t y, MapPoint* p, int32_t first, int32_t last, const PinWeight* columnWeight,
            const PinWeight& rowWeight, const FreeRuns& runs, SimdLevel simd) {
  const bool rowFree = rowWeight.IsFree();
  // Points from .. end − 1, each pulled by its column's weight when
  // pullColumns and that weight is not free, then by the row's. A free
  // pull leaves a coordinate as coordinate + 0, and a real pull gives the
  // same whether or not that was done first.
  auto pinSome = [&](int32_t from, int32_t end, bool pullColumns) {
#ifdef TARVO_AVX2_PATHS
    if (simd == SimdLevel::kAvx2)
      from = avx2::PinPoints(y, p, from, end, columnWeight, rowWeight, pullColumns, rowFree);
#endif
#ifdef TARVO_SSE2_PATHS
    if (simd != SimdLevel::kScalar)
      from = sse2::PinPoints(y, p, from, end, columnWeight, rowWeight, pullColumns, rowFree);
#endif
    for (int32_t x = from; x < end; ++x) {
      if (pullColumns && !columnWeight[x].IsFree()) PinPoint(y, x, p[x], columnWeight[x]);
      if (rowFree) {
        AddZero(p[x]);
      } else {
        PinPoint(y, x, p[x], rowWeight);
      }
    }
  };
  if (!runs.usable) {
    pinSome(first, last + 1, true);
    return;
  }
  int32_t x = first;
  for (int k = 0; k < runs.count && x <= last; ++k) {
    const int32_t runBegin = std::max(runs.begin[k], x), runEnd = std::min(runs.end[k], last + 1);
    if (runBegin >= runEnd) continue;
    pinSome(x, runBegin, true);
    // Free columns: only the row weight acts.
    if (rowFree) {
      AddZeroRange(p, runBegin, runEnd, simd);
    } else {
      pinSome(runBegin, runEnd, false);
    }
    x = runEnd;
  }
  pinSome(x, last + 1, true);
}

}  // namespace

PinFreeRuns::PinFreeRuns(const PinWeight* profile, int32_t n) {
  for (int32_t x = 0; x < n;) {
    if (!profile[x].IsFree()) {
      ++x;
      continue;
    }
    const int32_t runBegin = x;
    while (x < n && profile[x].IsFree()) ++x;
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

}  // namespace tarvo
