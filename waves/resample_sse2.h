// Point sampling with SSE2 (see bilinear_avx2.h for the eight-wide loop).
#pragma once

#include <stdint.h>

#include "pf_pixel.h"
#include "simd_level.h"
#include "source_map.h"

namespace tarvo::sse2 {

#ifdef TARVO_SSE2_PATHS
// Nearest sampling of points first.. of one row while four more fit, the
// source given by its rows (base, stride) and size; returns the first point
// left.
int32_t NearestPoints(const uint8_t* base, intptr_t stride, int32_t height, int32_t width, const MapPoint* p,
                      int32_t first, int32_t end, PF_Pixel background, PF_Pixel* out);

// tl × w00 + tr × w01 + bl × w10 + br × w11 per channel in double
// precision, clamped as ClampChannel does: upperPair holds (tl, tr),
// lowerPair (bl, br).
PF_Pixel MixBilinear(const PF_Pixel* upperPair, const PF_Pixel* lowerPair, double w00, double w01, double w10,
                     double w11);
#endif

}  // namespace tarvo::sse2
