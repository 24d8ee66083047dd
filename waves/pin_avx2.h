// Pinning two map points at a time with AVX2 (only called when the
// processor has it; see simd_level.h).
#pragma once

#include <stdint.h>

#include "output_stage.h"
#include "simd_level.h"
#include "source_map.h"

namespace tarvo {
namespace avx2 {

#ifdef TARVO_AVX2_PATHS
// Points from .. end − 1 of grid row y (from ≥ 0), while two more fit:
// each pulled by its column's weight when pullColumns (a free weight there
// gives coordinate + 0, which the row step absorbs), then by rowWeight, or
// given + 0 when rowFree. Returns the first point not pinned.
int32_t PinPoints(int32_t y, MapPoint* p, int32_t from, int32_t end, const PinWeight* columnWeight,
                  const PinWeight& rowWeight, bool pullColumns, bool rowFree);
#endif

}  // namespace avx2
}  // namespace tarvo
