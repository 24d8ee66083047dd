// The frei0r face of the sixteen Ripple parameters: names and explanations
// a video editor shows, and the mapping of frei0r's 0–1 doubles onto the
// ranges, menus and point the plug-in declares.
//
// Mapping (v is the frei0r value, clamped to 0–1):
//   slider  min + v × (max − min) of the declared valid range
//   angle   v × 360 degrees
//   popup   menu entry k = floor(v × N) + 1 of the N selectable entries
//           (v = 1 selects the last); separator lines are not entries
//   centre  two values, fractions of the frame width and height
//   Draft   v ≥ 0.5 renders at the host's low quality
// Host values are rounded to the nearest 1/65536.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "host.h"

namespace tarvo::frei0r {

enum class Kind { Slider, Angle, Popup, CenterX, CenterY, Draft };

struct ParamInfo {
  const char* name;
  const char* explanation;
  Kind kind;
  int pluginIndex;  // 1..16 in the plug-in's parameter array; 0 for Draft
};

constexpr int kNumParams = 18;
// Parameter index → its description; index must be 0..kNumParams − 1.
const ParamInfo& Info(int index);

// A popup's entries: the menu values the plug-in declares, in order, less
// its separator lines.
std::vector<int32_t> MenuEntries(const ParamInfo& info, const host::Host& host);

// "" when the plug-in's declarations are what the table above expects
// (sixteen parameters of the right types, menus long enough); otherwise
// what differs.
std::string CheckDeclarations(const host::Host& host);

// The frei0r value that gives the plug-in's declared default.
double InitialValue(const ParamInfo& info, const host::Host& host);

// Clamps v to 0–1; false when v was outside (or not a number, which gives
// the initial value *fallback).
bool ClampUnit(double* v, double fallback);

// The warning for a value ClampUnit changed, worded as the command line
// words it: "Radius = nan is not a number; using 0.25", "Phase = -2 is
// outside the range 0 to 1; using 0".
std::string ValueWarning(const ParamInfo& info, double given, double used);

// ffmpeg hands the filter only as many filter_params values as it has
// parameters and drops the rest unseen. From ffmpeg's command line, one
// warning for each tarvo_ripple filter given more values than that.
std::vector<std::string> SurplusValueWarnings(const std::vector<std::string>& args);

// Writes the parameter with frei0r value v (already in 0–1) into the
// host's parameter array (or host state, for Draft), for a frame of
// width × height pixels. Both centre values are needed for the point, so
// the centre takes them together.
void ApplyValue(const ParamInfo& info, double v, host::Host& host);
void ApplyCenter(double x, double y, int32_t width, int32_t height, host::Host& host);

}  // namespace tarvo::frei0r
