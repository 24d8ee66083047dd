// The area sampler: the average of an image over the axis-aligned bounding
// box of four points, with 1/256-pixel coverage at the box's edges.
//
// Box edges are 16.16 fixed point. Each row and column the box touches gets a
// coverage weight 0..256 (255 counts as 256); sums hold pixel values scaled
// by 256. Colour is averaged over the part of the box inside the image, alpha
// over the whole box (outside counts as transparent).
#pragma once

#include <stdint.h>

#include <atomic>

#include "pf_pixel.h"
#include "pixel_image.h"
#include "simd_level.h"

namespace tarvo {

// Channel sums in the order alpha, red, green, blue. Sums are 64-bit so that
// boxes of any size average correctly; within the classic limits (256
// columns, 32,896 whole pixels) the results equal 32-bit arithmetic.
struct PixelSum {
  uint64_t alpha = 0, red = 0, green = 0, blue = 0;
};

// The top 8 bits of a 16.16 value's fraction, 0..255: where a box edge cuts
// its row or column, in 1/256 of a pixel.
constexpr int32_t Frac8(int64_t f) { return static_cast<int32_t>((f & 0xFFFF) >> 8); }

// The coverage weight 0..256 of row or column `cell` of a box whose edges
// are near and far (16.16): 256, less the part of the first cell before
// the near edge and the part of the last cell past the far edge. Integer
// parts are arithmetic shifts, so −0.25 lies in cell −1.
constexpr int32_t CellWeight(int64_t cell, int64_t near, int64_t far) {
  int32_t weight = 256;
  if (cell == near >> 16) weight -= Frac8(near);
  if (cell == far >> 16) weight -= 256 - Frac8(far);
  return weight;
}

// A row's or column's coverage weight of 255 counts as 256: full.
constexpr int32_t CountedWeight(int32_t weight) { return weight == 255 ? 256 : weight; }

// Boxes the row sampler's integer path (four- and eight-wide) takes: edges
// within ±16384 pixels and extents below 128 pixels (so at most 129 rows
// and columns). Then every column product fits 16 bits, every row sum times
// a row weight fits 32 bits and every total fits 31 bits, exactly as the
// 64-bit sums give them.
inline constexpr float kSpanEdgeLimit = 16384.0f;
inline constexpr float kSpanExtentLimit = 128.0f;

struct AxisExtent {
  float lo;       // low edge
  float extent;   // hi − lo
  float clipped;  // min(hi, size) − max(lo, 0); negative when wholly outside
};

AxisExtent QuadAxisExtent(float a, float b, float c, float d, int16_t size);

void AddWeighted(PixelSum& sum, const PF_Pixel& pixel, int32_t weight);
void AddScaled(PixelSum& sum, const PixelSum& row, int32_t weight);
PixelSum RowBoxSum(const PF_Pixel* row, int32_t x, int32_t w, int32_t width);
PF_Pixel NormalizeSum(const PixelSum& sum, float covered, float area);

class AreaSampleCache;

// The channel sums of a box, each row's column-weighted sum scaled by its
// row weight. cache (optional) may answer large boxes of its own image from
// its tables; the sums are the same either way.
PixelSum BoxSum(const PixelImage& image, int32_t x, int32_t w, int32_t y, int32_t h, AreaSampleCache* cache = nullptr);
PF_Pixel BoxSample(const PixelImage& image, int32_t x, int32_t w, int32_t y, int32_t h, float area,
                   AreaSampleCache* cache = nullptr);

// Four points as (vertical, horizontal) pairs: upper holds P1 and P2,
// lower P3 and P4 (P1.v, P1.h, P2.v, P2.h).
PF_Pixel AreaSampleQuad(const PixelImage& image, const float* upper, const float* lower,
                        AreaSampleCache* cache = nullptr);

// Per-render help for very large boxes (with extreme ripples a box can cover
// the whole frame, making a render cost pixels squared): summed-area tables
// of one image's four channels, so that such a box costs a few table reads
// instead of a pass over its pixels. The tables are built on first need,
// once the large boxes summed directly have cost about as much as building
// them, and are released with the object; the image must not change while
// they live. Memory: 16 bytes per pixel (32 on frames of 2^32 / 255 pixels
// or more, whose sums need 64 bits). When that memory cannot be had, every
// box is summed directly: the same pixels, only slower.
class AreaSampleCache {
 public:
  // simd: the widest loops to build the tables with.
  explicit AreaSampleCache(const PixelImage& image, SimdLevel simd = ActiveSimd()) : image_(&image), simd_(simd) {}
  ~AreaSampleCache();
  AreaSampleCache(const AreaSampleCache&) = delete;
  AreaSampleCache& operator=(const AreaSampleCache&) = delete;

  bool HasTables() const { return ready_.load(std::memory_order_acquire); }
  // Tests: 64-bit entries whatever the frame's size.
  void ForceWideEntries() { forceWide_ = true; }

 private:
  friend PixelSum BoxSum(const PixelImage&, int32_t, int32_t, int32_t, int32_t, AreaSampleCache*);

  // Whether a box of `cells` clipped pixels of `image` is to be read from
  // the tables, building them when the time has come.
  bool Covers(const PixelImage& image, int64_t cells);
  bool Build();
  // Σ of each channel (alpha, red, green, blue) over rows rowA..rowB and
  // columns colA..colB, inclusive.
  void RectSum(int32_t rowA, int32_t rowB, int32_t colA, int32_t colB, uint64_t out[4]) const;

  const PixelImage* image_;
  SimdLevel simd_;
  void* table_ = nullptr;           // (height + 1) × (width + 1) entries of 4 channels
  std::atomic<bool> ready_{false};  // table_ is filled (set once, after the fill)
  std::atomic<int64_t> debt_{0};    // pixels of large boxes summed directly so far
  bool wide_ = false;               // 64-bit entries, else 32-bit
  bool forceWide_ = false;
  std::atomic<bool> failed_{false};  // no memory: never tried again
};

// count adjacent pixels of one output row, each exactly AreaSampleQuad of
// its four corners. upper and lower are the two lines of corner points as
// (vertical, horizontal) pairs, count + 1 points each: pixel k has the
// corners upper[k], upper[k + 1], lower[k], lower[k + 1]. Boxes within the
// classic limits take an integer path with the bounding boxes, weights and
// divisions done a pixel at a time in vector registers; any other box goes
// through AreaSampleQuad.
// Boxes it does not take go through AreaSampleQuad with cache.
// simd: the widest loops to use.
void AreaSampleSpan(const PixelImage& image, const float* upper, const float* lower, int32_t count, PF_Pixel* out,
                    AreaSampleCache* cache = nullptr, SimdLevel simd = ActiveSimd());

}  // namespace tarvo
