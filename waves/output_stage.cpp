// Pinning and output resampling.
//
// Pinning pulls every written map point back toward its own grid position by
// a column weight and a row weight. Resampling writes each destination row:
// between the columns that the map holds for both of the row's corner rows,
// pixels are area-sampled over their four corner points or point-sampled at
// their top-left corner; everything else is copied from the source.
#include "output_stage.h"

#include <math.h>
#include <string.h>

#include <algorithm>

#include "area_sampler.h"
#include "call_ops.h"
#include "fixed_point.h"
#include "plugin_alloc.h"

namespace tarvo {

PinWeight* g_pinColumns = nullptr;
PinWeight* g_pinRows = nullptr;
PF_Pixel g_backgroundPixel = {0, 0, 0, 0};

namespace {

// Entry counts of the current profiles, so that a map of another size never
// indexes past them.
int32_t g_pinColumnCount = 0;
int32_t g_pinRowCount = 0;

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

inline void ApplyPin(int32_t y, int32_t x, MapPoint& p, const PinWeight& w) {
  p.column = Pull(x, p.column, w);
  p.row = Pull(y, p.row, w);
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

bool CreatePinProfiles(int32_t pinMode, int32_t rows, int32_t columns) {
  FreePinProfiles();  // a profile left over from an earlier render is not leaked
  g_pinRows = PluginAllocArray<PinWeight>(rows);
  g_pinColumns = PluginAllocArray<PinWeight>(columns);
  if (g_pinRows == nullptr || g_pinColumns == nullptr) {
    // The render ends without FreePinProfiles: release the one that was had.
    FreePinProfiles();
    ReportOutOfMemory();
    return false;
  }
  g_pinRowCount = rows;
  g_pinColumnCount = columns;
  const PinShapes shapes = ShapesForMode(pinMode);
  FillPinProfile(shapes.columns, columns, g_pinColumns);
  FillPinProfile(shapes.rows, rows, g_pinRows);
  return true;
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

void FreePinProfiles() {
  PluginFree(g_pinColumns);
  PluginFree(g_pinRows);
  g_pinColumns = nullptr;
  g_pinRows = nullptr;
  g_pinColumnCount = 0;
  g_pinRowCount = 0;
}

// --- Pinning ----------------------------------------------------------------

void PinByColumn(int32_t y, int32_t x, MapPoint& p) {
  if (g_pinColumns == nullptr || x < 0 || x >= g_pinColumnCount) return;
  ApplyPin(y, x, p, g_pinColumns[x]);
}

void PinByRow(int32_t y, int32_t x, MapPoint& p) {
  if (g_pinRows == nullptr || y < 0 || y >= g_pinRowCount) return;
  ApplyPin(y, x, p, g_pinRows[y]);
}

void PinSourceMap(SourceMap& map) {
  if (map.aborted || !map.ok) return;
  const bool haveProfiles = g_pinColumns != nullptr && g_pinRows != nullptr;
  for (int32_t y = 0; y < map.rows; ++y) {
    map.aborted = CheckAbort() ? 1 : 0;
    if (map.aborted) return;
    if (!map.rowWritten[y] || !haveProfiles || y >= g_pinRowCount) continue;

    const int32_t first = std::max(map.rowFirst[y], 0);
    const int32_t last = std::min({map.rowLast[y], map.cols - 1, g_pinColumnCount - 1});
    const PinWeight rowWeight = g_pinRows[y];
    MapPoint* p = &map.At(y, 0);
    const PinWeight* columnWeight = g_pinColumns;
    for (int32_t x = first; x <= last; ++x) {
      ApplyPin(y, x, p[x], columnWeight[x]);
      ApplyPin(y, x, p[x], rowWeight);
    }
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
    out = g_backgroundPixel;
  }
}

void SampleBilinear(const RenderSetup& setup, float row, float column, PF_Pixel& out) {
  const BilinearWeights w = BilinearCell(row, column);
  const double r = row, c = column;
  if (r < 0.0 || r >= setup.height || c < 0.0 || c >= setup.width || !SourceReadable(setup)) {
    out = g_backgroundPixel;
    return;
  }
  // (r0, c0) is inside now; only row r1 and column c1 can fall outside.
  const PixelImage& src = *setup.source;
  const PF_Pixel* top = src.RowAt(static_cast<int16_t>(w.r0)).Pixels();
  const bool rightIn = w.c1 < setup.width;
  const bool bottomIn = w.r1 < setup.height;
  const PF_Pixel& tl = top[w.c0];
  const PF_Pixel& tr = rightIn ? top[w.c1] : g_backgroundPixel;
  const PF_Pixel* bottom = bottomIn ? src.RowAt(static_cast<int16_t>(w.r1)).Pixels() : nullptr;
  const PF_Pixel& bl = bottomIn ? bottom[w.c0] : g_backgroundPixel;
  const PF_Pixel& br = bottomIn && rightIn ? bottom[w.c1] : g_backgroundPixel;

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
    out = g_backgroundPixel;
  } else if (setup.samplingMode == kSampleBilinear) {
    SampleBilinear(setup, p.row, p.column, out);
  } else if (setup.samplingMode == kSampleNearest) {
    SampleNearest(setup, p.row, p.column, out);
  }
}

// --- Resampling ---------------------------------------------------------------

// The map covers the source's grid, so only rows and columns that the source,
// the map and the destination all have are produced: destination rows below
// the source (or the map) and destination columns right of the source keep
// what they held. Point sampling is bounded by the source image actually
// handed over, whatever the setup's size claims.
void ResampleOutput(SourceMap& map, PixelImage& destination, int32_t mode) {
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

  RowCursor dstRow = destination.RowAt(0);
  RowCursor srcRow = src->RowAt(0);
  for (int32_t y = 0; y < rowCount; ++y, dstRow.Next(), srcRow.Next()) {
    if (CheckAbort()) {
      map.aborted = 1;
      destination.FillAll(0);  // transparent black
      return;
    }
    int32_t spanFirst = 0, spanLast = -1;
    if (map.rowWritten[y] && map.rowWritten[y + 1]) {
      spanFirst = std::max({map.rowFirst[y], map.rowFirst[y + 1], 0});
      spanLast = std::min({map.rowLast[y], map.rowLast[y + 1], map.cols - 1});
    }
    if (spanLast < spanFirst) {
      srcRow.CopyRowTo(dstRow);
      continue;
    }

    const PF_Pixel* in = srcRow.Pixels();
    PF_Pixel* out = dstRow.Pixels();
    CopyPixels(in, out, 0, std::min(spanFirst, copyWidth));
    CopyPixels(in, out, spanLast, copyWidth);

    const int32_t sampleEnd = std::min(spanLast, dstWidth);
    const MapPoint* upper = &map.At(y, 0);
    const MapPoint* lower = upper + map.cols;
    if (mode == kSampleArea) {
      for (int32_t x = spanFirst; x < sampleEnd; ++x) {
        out[x] = AreaSampleQuad(*src, upper[x].row, upper[x].column, upper[x + 1].row, upper[x + 1].column,
                                lower[x].row, lower[x].column, lower[x + 1].row, lower[x + 1].column);
      }
    } else {
      for (int32_t x = spanFirst; x < sampleEnd; ++x) SampleMapPoint(setup, upper[x], out[x]);
    }
  }
}

}  // namespace tarvo
