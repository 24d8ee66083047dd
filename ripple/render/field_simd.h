// The four-wide (SSE2) and eight-wide (AVX2) row loops of the field and the
// spreading, used at the render's vector width (RenderSetup::simd). Every
// width gives the same bits.
#pragma once

#include <stdint.h>

#include "field_kernel.h"
#include "ripple_renderer.h"
#include "simd_level.h"
#include "source_map.h"
#include "table_reads.h"

namespace tarvo {

#ifdef TARVO_SSE2_PATHS
namespace sse2 {

// Four entries at a time, as avx2::CircularRow and avx2::StretchedRow below.
int32_t CircularRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, Polar* polar,
                    Displacement* disp);
int32_t StretchedRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, int32_t columnShift,
                     bool clampFade, Polar* polar, Displacement* disp);

// Spreading, entries begin..end − 1 of a symmetric quadrant row whose four
// points all lie in the frame (map rows upper and lower both inside).
void SpreadFourPointRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                        int32_t centreCol, MapPoint* upper, MapPoint* lower);

}  // namespace sse2
#endif

#ifdef TARVO_AVX2_PATHS
namespace avx2 {

// Entries begin, begin + 8, ... of a Circular row (horizontal offset
// 0.5 + i, vertical offset y) while eight more fit before end; returns the
// first entry not computed. Groups whose table reads leave the vector
// reads' range are computed one entry at a time.
int32_t CircularRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, Polar* polar,
                    Displacement* disp);

// The same for the stretched branches, entry i at horizontal offset
// (i + columnShift) − 0.5: columnShift 1 in the axis-stretched branch,
// −width in the rotated one. clampFade raises a negative fade to 0.
int32_t StretchedRow(const FieldKernel& k, float y, double yy, int32_t begin, int32_t end, int32_t columnShift,
                     bool clampFade, Polar* polar, Displacement* disp);

// Spreading, entries begin..end − 1 of one quadrant row of a symmetric
// field: upper and lower are the map rows centreRow − j and
// centreRow + 1 + j (null when outside the frame); right and left whether
// the points at columns centreCol + 1 + i and centreCol − i are written.
void SpreadSymmetricRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                        int32_t centreCol, MapPoint* upper, MapPoint* lower, bool right, bool left);

// The same for a rotated field's row: entry c writes upper[c − upperShift]
// and its reflection lower[lowerShift − c] (each only when its row is not
// null).
void SpreadRotatedRun(const Polar* polar, const Displacement* disp, int32_t begin, int32_t end, double cy, double cx,
                      MapPoint* upper, int32_t upperShift, MapPoint* lower, int32_t lowerShift);

}  // namespace avx2
#endif

}  // namespace tarvo
