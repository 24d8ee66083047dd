// The area sampler: the average of an image over the axis-aligned bounding
// box of four points, with 1/256-pixel coverage at the box's edges.
//
// Box edges are 16.16 fixed point. Each row and column the box touches gets a
// coverage weight 0..256 (255 counts as 256); sums hold pixel values scaled
// by 256. Colour is averaged over the part of the box inside the image, alpha
// over the whole box (outside counts as transparent).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "pixel_image.h"

namespace tarvo {

// Channel sums in the order alpha, red, green, blue. Sums are 64-bit so that
// boxes of any size average correctly; within the classic limits (256
// columns, 32,896 whole pixels) the results equal 32-bit arithmetic.
struct PixelSum {
  uint64_t alpha = 0, red = 0, green = 0, blue = 0;
};

struct AxisExtent {
  float lo;        // low edge
  float extent;    // hi − lo
  float clipped;   // min(hi, size) − max(lo, 0); negative when wholly outside
};

AxisExtent QuadAxisExtent(float a, float b, float c, float d, int16_t size);

void AddWeighted(PixelSum& sum, const PF_Pixel& pixel, int32_t weight);
void AddScaled(PixelSum& sum, const PixelSum& row, int32_t weight);
PixelSum RowBoxSum(const PF_Pixel* row, int32_t x, int32_t w, int32_t width);
PF_Pixel NormalizeSum(const PixelSum& sum, float covered, float area);
PF_Pixel BoxSample(const PixelImage& image, int32_t x, int32_t w, int32_t y, int32_t h, float area);

// Points are (vertical, horizontal) pairs: P1.v, P1.h, …, P4.v, P4.h.
PF_Pixel AreaSampleQuad(const PixelImage& image, float p1v, float p1h, float p2v, float p2h,
                        float p3v, float p3h, float p4v, float p4h);

// count adjacent pixels of one output row, each exactly AreaSampleQuad of
// its four corners. upper and lower are the two lines of corner points as
// (vertical, horizontal) pairs, count + 1 points each: pixel k has the
// corners upper[k], upper[k + 1], lower[k], lower[k + 1]. Boxes within the
// classic limits take an integer path with the bounding boxes, weights and
// divisions done a pixel at a time in vector registers; any other box goes
// through AreaSampleQuad.
void AreaSampleSpan(const PixelImage& image, const float* upper, const float* lower, int32_t count, PF_Pixel* out);

}  // namespace tarvo
