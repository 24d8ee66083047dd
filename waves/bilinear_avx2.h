// Bilinear point sampling eight map points at a time with AVX2 (only called
// when the processor has it; see sampler_simd.h).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "sampler_simd.h"

namespace tarvo {
namespace avx2 {

#ifdef TARVO_SAMPLER_AVX2
// Points points[0..7] as (row, column) float pairs, sampled into out[0..7]
// as the bilinear row sampler does for a source of height × width pixels
// (0 ≤ row < height and 0 ≤ column < width, or else the background).
// Writes the points whose four neighbours all lie inside the source and
// those outside it; returns a bit per point (bit k for point k) that it did
// not write: the ones on the source's last row or column.
uint32_t BilinearGroup8(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* points,
                        PF_Pixel background, PF_Pixel* out);
#endif

}  // namespace avx2
}  // namespace tarvo
