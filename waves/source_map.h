// The hand-over from the renderer to the output stage: one displaced source
// position per grid point of the frame, with the span written in each row.
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "pixel_image.h"
#include "simd_level.h"

namespace tarvo {

enum SamplingMode : int32_t { kSampleArea = 0, kSampleBilinear = 1, kSampleNearest = 2 };

// The value of every sample outside the source.
inline constexpr PF_Pixel kTransparentBlack = {0, 0, 0, 0};

struct RenderSetup {
  const PixelImage* source;
  int32_t width;
  int32_t height;
  int32_t samplingMode;
  PF_Pixel background;
  // The vector width of every stage of the render, chosen once by the
  // driver (set-ups made elsewhere take the widest allowed).
  SimdLevel simd = ActiveSimd();
};

// A source position: row (vertical) then column (horizontal), source pixels.
struct MapPoint {
  float row;
  float column;
};

// One entry per grid point: rows = height + 1, cols = width + 1. Only the
// inclusive span rowFirst..rowLast of rows with rowWritten set holds data.
struct SourceMap {
  uint8_t aborted;
  MapPoint* entries;
  bool ok;
  int32_t rows;
  int32_t cols;
  const PixelImage* source;
  int32_t* rowFirst;
  int32_t* rowLast;
  uint8_t* rowWritten;
  RenderSetup setup;

  // Allocates every buffer (through the plug-in's allocator); ok tells.
  SourceMap(int32_t rows, int32_t cols, const RenderSetup& setup);
  ~SourceMap();
  SourceMap(const SourceMap&) = delete;
  SourceMap& operator=(const SourceMap&) = delete;
  // Frees the buffers (the constructor on a failure, the destructor).
  void Release();

  MapPoint& At(int32_t y, int32_t x) { return entries[static_cast<int64_t>(y) * cols + x]; }
  const MapPoint& At(int32_t y, int32_t x) const { return entries[static_cast<int64_t>(y) * cols + x]; }
  // Records the row's one span; a row is marked written only when first ≤ last.
  void SetRowSpan(int32_t y, int32_t first, int32_t last);
};

}  // namespace tarvo
