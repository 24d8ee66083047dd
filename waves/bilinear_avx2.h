// Bilinear point sampling eight map points at a time with AVX2 (only called
// when the processor has it; see simd_level.h).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "simd_level.h"

namespace tarvo {
namespace avx2 {

#ifdef TARVO_AVX2_PATHS
// Groups of eight points, points[16g .. 16g + 15] as (row, column) float
// pairs for g below groups, sampled into out[8g .. 8g + 7] as the bilinear
// row sampler does for a source of height × width pixels (0 ≤ row < height
// and 0 ≤ column < width, or else the background). Writes the points whose
// four neighbours all lie inside the source and those outside it; rest[g]
// gets a bit per point of group g (bit k for point 8g + k) that was not
// written: the ones on the source's last row or column.
void BilinearGroups(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* points,
                    int32_t groups, PF_Pixel background, PF_Pixel* out, uint8_t* rest);
#endif

}  // namespace avx2
}  // namespace tarvo
