// Area sampling eight pixels of a row at a time with AVX2 (only called when
// the processor has it; see simd_level.h).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "simd_level.h"

namespace tarvo {
namespace avx2 {

#ifdef TARVO_AVX2_PATHS
// Groups of eight pixels of an area-sampled row: pixels 8g .. 8g + 7 for g
// below groups, pixel k's corners at up[2k..2k + 3] and lo[2k..2k + 3] as
// in AreaSampleSpan (8 × groups + 1 points are read from each line). Writes
// every pixel whose box lies inside the image, starts at least four
// columns before its right edge and is at most four columns and four rows
// tall. rest[g] gets a bit per pixel of group g (bit p for pixel 8g + p)
// that was not written; 0xFF when a box of the group is outside the
// integer path's limits.
void AreaSampleGroups(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* up,
                      const float* lo, int32_t groups, PF_Pixel* out, uint8_t* rest);
#endif

}  // namespace avx2
}  // namespace tarvo
