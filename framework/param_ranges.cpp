#include "param_ranges.h"

#include <string.h>

namespace tarvo {

namespace {

constexpr ParamRangeRecord NumberRow(float min, float max, float value, RangeKind kind) {
  return ParamRangeRecord{value, value, PF_Pixel{0, 0, 0, 0}, min, max, kind};
}

constexpr ParamRangeRecord NumberRow(float min, float max, float neutral, RangeKind kind, float dflt) {
  return ParamRangeRecord{neutral, dflt, PF_Pixel{0, 0, 0, 0}, min, max, kind};
}

// Rows not listed belong to other effects of the family and stay all zero.
constexpr ParamRangeTable MakeRanges() {
  ParamRangeTable t{};
  t.rows[kRowWaveHeight] = NumberRow(0.0f, 0.25f, 0.0f, kRangeFrameX, 0.03125f);
  t.rows[kRowAngularWaveHeight] = NumberRow(0.0f, 0.25f, 0.0f, kRangeFrameX);
  t.rows[kRowWaveWidth] = NumberRow(0.0f, 0.5f, 0.0625f, kRangeFrameX);
  t.rows[kRowRadius] = NumberRow(0.0f, 1.0f, 0.25f, kRangeFrameX);
  t.rows[kRowFrequency] = NumberRow(-150.0f, 150.0f, 10.0f, kRangePlain);
  t.rows[kRowStretch] = NumberRow(-100.0f, 100.0f, 0.0f, kRangePlain);
  // Angle limits are ±35999; an angle definition carries no limits.
  t.rows[kRowStretchAngle] = NumberRow(-35999.0f, 35999.0f, 0.0f, kRangeAngle);
  t.rows[kRowPhase] = NumberRow(-35999.0f, 35999.0f, 0.0f, kRangeAngle);
  t.rows[kRowCenterX] = NumberRow(0.0f, 1.0f, 0.5f, kRangeFrameX);
  t.rows[kRowCenterY] = NumberRow(0.0f, 1.0f, 0.5f, kRangeFrameY);
  t.rows[kRowChaos] = NumberRow(10.0f, 140.0f, 0.0f, kRangePlain);
  t.rows[kRowChaosBlend] = NumberRow(0.0f, 100.0f, 0.0f, kRangePlain);
  return t;
}

constexpr ParamRangeRecord kZeroRow{};

}  // namespace

constinit const ParamRangeTable g_paramRanges = MakeRanges();

const ParamRangeRecord& ParamRangeTable::Row(int16_t row) const {
  return (row >= 0 && row < kRows) ? rows[row] : kZeroRow;
}

void ParamRangeTable::GetRange(int16_t row, float* min, float* max) const {
  const ParamRangeRecord& r = Row(row);
  if (min) *min = r.min;
  if (max) *max = r.max;
}

float ParamValue::AsFloat() const {
  float v;
  memcpy(&v, &bits, sizeof v);
  return v;
}

void ParamValue::SetFloat(float v, int16_t newTag) {
  memcpy(&bits, &v, sizeof bits);
  tag = newTag;
}

namespace {

// A colour row holds its colour whatever number is asked for.
ParamValue RowValue(const ParamRangeRecord& r, float number) {
  ParamValue v;
  if (r.kind == kRangeColor) {
    memcpy(&v.bits, &r.colour, sizeof v.bits);
  } else {
    v.SetFloat(number, 0);
  }
  return v;
}

}  // namespace

ParamValue ParamValue::FromRow(int16_t row) {
  const ParamRangeRecord& r = g_paramRanges.Row(row);
  return RowValue(r, r.neutral);
}

ParamValue ParamValue::DefaultOfRow(int16_t row) {
  const ParamRangeRecord& r = g_paramRanges.Row(row);
  return RowValue(r, r.dflt);
}

}  // namespace tarvo
