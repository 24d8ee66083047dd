// The parameter range table shared by every effect of the framework: one row
// per kind of parameter, holding its neutral value, default and range in the
// unit the effect works in (fractions of the frame, degrees, plain numbers).
// Read-only; constant-initialised, so it is complete before any host call.
#pragma once

#include <stdint.h>

#include "pf_pixel.h"

namespace tarvo {

// Classifies a row. Only kRangeColor changes behavior: a color row's value is
// its colour, not a number.
enum RangeKind : uint8_t {
  kRangePlain = 0,
  kRangeAngle = 1,   // degrees
  kRangeFrameX = 2,  // horizontal fraction of the frame
  kRangeFrameY = 3,  // vertical fraction of the frame
  kRangeUnit = 4,    // unit-interval quantities of other effects
  kRangeUnitAlt = 5,
  kRangeColor = 6,
};

struct ParamRangeRecord {
  float neutral;
  float dflt;
  PF_Pixel colour;
  float min;
  float max;
  uint8_t kind;  // RangeKind
};

// A parameter value as the framework stores it: the bits of a float (or a
// 4-byte colour) and a type tag. Both zero on construction.
struct ParamValue {
  uint32_t bits = 0;
  int16_t tag = 0;

  static constexpr int16_t kFloatTag = 4;

  float AsFloat() const;
  void SetFloat(float v, int16_t newTag);
  // The row's neutral value (a colour row: its colour), tag 0.
  static ParamValue FromRow(int16_t row);
  // The row's default (a colour row: its colour), tag 0.
  static ParamValue DefaultOfRow(int16_t row);
};

struct ParamRangeTable {
  static constexpr int kRows = 146;
  ParamRangeRecord rows[kRows];

  // A row outside 0..kRows − 1 reads as an all-zero row.
  const ParamRangeRecord& Row(int16_t row) const;
  void GetRange(int16_t row, float* min, float* max) const;
};

extern const ParamRangeTable g_paramRanges;

// Rows the Ripple effect reads.
enum RangeRow : int16_t {
  kRowNone = -1,
  kRowWaveHeight = 70,
  kRowAngularWaveHeight = 71,
  kRowWaveWidth = 72,
  kRowRadius = 73,
  kRowFrequency = 74,
  kRowStretch = 75,
  kRowStretchAngle = 76,
  kRowPhase = 77,
  kRowCenterX = 78,
  kRowCenterY = 79,
  kRowChaos = 139,
  kRowChaosBlend = 140,
};

}  // namespace tarvo
