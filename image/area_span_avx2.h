// Area sampling eight pixels of a row at a time with AVX2 (only called when
// the processor has it; see sampler_simd.h).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "sampler_simd.h"

namespace tarvo {
namespace avx2 {

#ifdef TARVO_SAMPLER_AVX2
// Pixels k .. k + 7 of an area-sampled row, k's corners at up[0..3] and
// lo[0..3] as in AreaSampleSpan (18 floats are read from each line). Writes
// every pixel whose box lies inside the image, starts at least four columns
// before its right edge and is at most four columns and four rows tall;
// returns a bit per pixel (bit p for pixel k + p) it did not write. When a
// box is outside the integer path's limits nothing is written and 0xFF is
// returned.
uint32_t AreaSampleGroup8(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const float* up,
                          const float* lo, PF_Pixel* out);
#endif

}  // namespace avx2
}  // namespace tarvo
