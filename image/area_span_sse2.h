// Area sampling four pixels of a row at a time with SSE2 (see
// area_span_avx2.h for the eight-wide loop), and the summed-area tables'
// rows four channels at once.
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "simd_level.h"

namespace tarvo::sse2 {

#ifdef TARVO_SSE2_PATHS
// One pixel of an area-sampled row, its corners at up[0..3] and lo[0..3] as
// in AreaSampleSpan, from the image's rows (base, stride) and size. Returns
// false (writing nothing) when its box is outside the integer path's limits.
bool AreaSamplePixel(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* up,
                     const float* lo, PF_Pixel* out);

// Four adjacent pixels, their corners at up[0..9] and lo[0..9]. Returns
// false (writing nothing) unless all four boxes are within the limits.
bool AreaSampleFour(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* up,
                    const float* lo, PF_Pixel* out);

// One row of a summed-area table with 32-bit entries: entry[4c .. 4c + 3]
// = above[4c .. 4c + 3] + the channel sums of pixels 0 .. c − 1, for c of
// 1 .. width.
void SummedRow(const PF_Pixel* pixels, int32_t width, const uint32_t* above, uint32_t* entry);
#endif

}  // namespace tarvo::sse2
