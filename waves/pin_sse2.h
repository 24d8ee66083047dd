// Pinning with SSE2 (see pin_avx2.h for the eight-wide loops).
#pragma once

#include <stdint.h>

#include "output_stage.h"
#include "simd_level.h"
#include "source_map.h"

namespace tarvo::sse2 {

#ifdef TARVO_SSE2_PATHS
// Points from .. end − 1 of grid row y (from ≥ 0), as avx2::PinPoints;
// returns end.
int32_t PinPoints(int32_t y, MapPoint* p, int32_t from, int32_t end, const PinWeight* columnWeight,
                  const PinWeight& rowWeight, bool pullColumns, bool rowFree);
// coordinate + 0 for points from .. end − 1 while two more fit; returns the
// first point left.
int32_t AddZeroPoints(MapPoint* p, int32_t from, int32_t end);
#endif

}  // namespace tarvo::sse2
