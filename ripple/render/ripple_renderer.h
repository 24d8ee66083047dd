// The ripple renderer: the frame's geometry in source pixels, the
// displacement field per offset from the centre, and its spreading into the
// source map that the output stage resamples.
#pragma once

#include <stdint.h>

#include "pixel_image.h"
#include "render_ripple.h"
#include "simd_level.h"
#include "source_map.h"
#include "wave_table.h"

namespace tarvo {

struct PinProfiles;

// How the field is computed, chosen once per render.
enum class FieldBranch : int32_t {
  kCircular,       // unstretched: mirror-symmetric about both axes
  kAxisStretched,  // stretched along a multiple of 90°: still symmetric
  kRotated,        // stretched at any other angle: point-symmetric only
};

struct Displacement {
  float radial;   // pixels outward
  float angular;  // degrees counter-clockwise
};

struct Polar {
  float distance;   // pixels from the centre point
  float direction;  // degrees counter-clockwise, y up
};

// The displacement field indexed by offset from the centre. Row j is the
// vertical offset j + 0.5. Symmetric: column i is the horizontal offset
// i + 0.5 and rowLength[j] columns are computed. Rotated: column c is the
// offset c − 0.5 − width.
struct QuadrantField {
  int32_t* rowLength;
  Displacement* displacement;
  Polar* polar;
  bool ok;
  int32_t rows;
  int32_t cols;

  QuadrantField(int32_t rows, int32_t cols);
  ~QuadrantField();
  QuadrantField(const QuadrantField&) = delete;
  QuadrantField& operator=(const QuadrantField&) = delete;
  // Frees the buffers (the constructor on a failure, the destructor).
  void Release();

  int64_t Index(int32_t j, int32_t i) const { return static_cast<int64_t>(j) * cols + i; }
};

// For the rotated field: per row offset below the centre, the inclusive
// range of field columns that can hold a displacement — the chords of the
// ellipse that contains the ripple's outer circle.
struct EllipseSpans {
  int16_t centreRow;
  int16_t centreCol;
  float outerRadius;
  float stretch;  // at least 1
  float angle;    // degrees
  int32_t rows;
  int32_t height;
  int32_t width;
  int32_t* firstCol;
  int32_t* lastCol;
  uint8_t* hasSpan;
  bool ok;

  EllipseSpans(int16_t centreRow, int16_t centreCol, const PixelImage& source, float outerRadius, float stretch,
               float angle);
  ~EllipseSpans();
  EllipseSpans(const EllipseSpans&) = delete;
  EllipseSpans& operator=(const EllipseSpans&) = delete;
  // Frees the buffers (the constructor on a failure, the destructor).
  void Release();

  void Build();
};

// Half-open range of field columns of one quadrant row whose entries reach
// a grid point of the frame.
struct ColumnRange {
  int32_t begin;
  int32_t end;
};

// Built on the driver's stack for one frame. The constructor sizes and
// allocates the work objects and, when all exist, computes the field;
// SpreadField then fills the source map.
struct RippleRenderer {
  const RenderSetup* setup;
  int16_t centreRow;
  int16_t centreCol;
  float centreY;
  float centreX;
  const PixelImage* source;
  float waveHeightPx;
  float angularHeightPx;
  float degreesPerPixel;
  float radiusPx;
  float stretch;
  int32_t stretchAngle;  // whole degrees, 0..359
  float phase;
  int32_t pinMode;
  int32_t twirl;
  QuadrantField* quadrant;
  SourceMap* sourceMap;
  EllipseSpans* spans;  // null when symmetric
  const WaveTable* wave;
  bool aborted;
  bool ready;
  int32_t width;
  int32_t height;
  float twirlScale;
  float twirlGrowth;
  int32_t leftShift;
  int32_t rightShift;
  int32_t quadCols;
  int32_t quadRows;
  bool symmetric;
  bool stretched;
  float outerRadiusPx;
  // The field's vector width: scalar unless its tables interpolate exactly
  // in single precision.
  SimdLevel fieldSimd = SimdLevel::kScalar;

  // Renders setup.source, which must be set.
  RippleRenderer(const RenderSetup& setup, const RendererSettings& settings, const WaveTable& wave);
  ~RippleRenderer();
  RippleRenderer(const RippleRenderer&) = delete;
  RippleRenderer& operator=(const RippleRenderer&) = delete;

  FieldBranch Branch() const;

  // Fills the field row by row, asking the host before each row whether to
  // stop. Called by the constructor when ready.
  void ComputeField();

  // Writes every displaced grid point the field reaches into the source map.
  // Given pin profiles, pins each map row by them as soon as it is written.
  void SpreadField(const PinProfiles* pins = nullptr);

  // Whether quadrant row j's upper (centreRow − j) and lower
  // (centreRow + 1 + j) map rows lie inside the frame.
  bool UpperRowInside(int32_t j) const;
  bool LowerRowInside(int32_t j) const;

  // Field columns of row j whose grid points fall inside the frame: the
  // symmetric row of n computed columns, or the rotated row's span. Only
  // these entries are computed and spread.
  ColumnRange SymmetricReach(int32_t j, int32_t n) const;
  ColumnRange RotatedReach(int32_t j) const;

 private:
  void ComputeSymmetricRow(int32_t j, FieldBranch branch);
  void ComputeRotatedRow(int32_t j);
};

// The stretch angle rounded half away from zero and brought into 0..359.
int32_t NormaliseStretchAngle(float degrees);

}  // namespace tarvo
