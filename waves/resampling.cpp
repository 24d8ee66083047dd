// Output resampling: each destination row from the source map. Between
// the columns that the map holds for both of the row's corner rows, pixels
// are area-sampled over their four corner points or point-sampled at their
// top-left corner; everything else is copied from the source.
#include <math.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "area_sampler.h"
#include "bilinear_avx2.h"
#include "call_ops.h"
#include "fixed_point.h"
#include "output_stage.h"
#include "render_bands.h"
#include "resample_sse2.h"

namespace tarvo {

// The area sampler reads the map's points as (row, column) float pairs.
static_assert(sizeof(MapPoint) == 2 * sizeof(float) && offsetof(MapPoint, column) == sizeof(float));

namespace {

inline void CopyPixels(const PF_Pixel* src, PF_Pixel* dst, int32_t first, int32_t end) {
  if (end > first) memmove(dst + first, src + first, static_cast<size_t>(end - first) * sizeof(PF_Pixel));
}

inline bool SourceReadable(const RenderSetup& setup) { return setup.source != nullptr && setup.source->HasPixels(); }

}  // namespace

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
    return ClampChannel(a * w00 + b * w01 + c2 * w10 + d * w11);
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
  if (setup.simd != SimdLevel::kScalar)
    x = sse2::NearestPoints(base, stride, height, width, p, x, end, background, out);
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
  [[maybe_unused]] const SimdLevel simd = setup.simd;
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
    if (simd != SimdLevel::kScalar) {
      if (rightIn && bottomIn) {
        out[x] = sse2::MixBilinear(top + c0, reinterpret_cast<const PF_Pixel*>(base + stride * (r0 + 1)) + c0, w00, w01,
                                   w10, w11);
      } else {
        const PF_Pixel* bottom = bottomIn ? reinterpret_cast<const PF_Pixel*>(base + stride * (r0 + 1)) : top;
        const PF_Pixel px[4] = {top[c0], rightIn ? top[c0 + 1] : background, bottomIn ? bottom[c0] : background,
                                bottomIn && rightIn ? bottom[c0 + 1] : background};
        out[x] = sse2::MixBilinear(&px[0], &px[2], w00, w01, w10, w11);
      }
      return;
    }
#endif
    const PF_Pixel* bottom = bottomIn ? reinterpret_cast<const PF_Pixel*>(base + stride * (r0 + 1)) : nullptr;
    const PF_Pixel tl = top[c0];
    const PF_Pixel tr = rightIn ? top[c0 + 1] : background;
    const PF_Pixel bl = bottomIn ? bottom[c0] : background;
    const PF_Pixel br = bottomIn && rightIn ? bottom[c0 + 1] : background;
    auto mix = [&](uint8_t ca, uint8_t cb, uint8_t cc, uint8_t cd) {
      return ClampChannel(ca * w00 + cb * w01 + cc * w10 + cd * w11);
    };
    out[x].red = mix(tl.red, tr.red, bl.red, br.red);
    out[x].green = mix(tl.green, tr.green, bl.green, br.green);
    out[x].blue = mix(tl.blue, tr.blue, bl.blue, br.blue);
    out[x].alpha = mix(tl.alpha, tr.alpha, bl.alpha, br.alpha);
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

  const int32_t rowCount = std::min(
      {static_cast<int32_t>(destination.Height()), static_cast<int32_t>(src->Height()), map.rows - 1});
  const int32_t srcWidth = src->Width();
  const int32_t dstWidth = destination.Width();
  const int32_t copyWidth = std::min(srcWidth, dstWidth);
  if (rowCount <= 0) return;

  // Tables for very large boxes, shared by the bands, freed on every return.
  AreaSampleCache areaCache(*src, setup.simd);
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
