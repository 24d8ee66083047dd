// Golden renders: one deterministic render per family of settings, made
// through the built module's entry point exactly as a host makes it. The
// golden image test and the contact sheet (tools/contact-sheet) share them.
#pragma once

#include <stdint.h>

#include <ostream>
#include <string>
#include <vector>

#include "host.h"

namespace tarvo::golden {

// A value in the units the host's controls show: sliders and angles as
// shown (16.16 by truncation toward zero), popups 1-based.
struct Setting {
  int param;  // RippleEffect's index
  double shown;
};

struct Case {
  std::string name;   // "<family>-<what>", the golden file's stem
  std::string label;  // caption on the contact sheet
  std::vector<Setting> settings;
  bool centre = false;  // Center at (centreX, centreY) × the frame size, else the default middle
  double centreX = 0, centreY = 0;
  bool lowQuality = false;  // PF_Quality_LO instead of HI
  int32_t time = 0;         // current_time, with time_step 1 and time_scale 30
};
inline void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// Every golden case, families in order.
const std::vector<Case>& Cases();

// The golden input: a rainbow across the frame, pale at the top and dark at
// the bottom, an 8-pixel checker, a one-pixel grid every 16 pixels, a
// bull's-eye of rings two pixels wide, and alpha fading to 0 over the 8
// pixels at every border. Integers only, so the same on every machine.
host::Image TestPattern(int32_t width, int32_t height);

// Renders c over input with a module loaded and set up once per process
// (defaults first, then the case's settings). False with *error set when
// loading, set-up or the render fails or the plug-in shows a message.
bool Render(const Case& c, const host::Image& input, host::Image* out, std::string* error);

// 8-bit pixels as R, G, B, A bytes row by row, colour not associated with
// alpha: the effect's pixels and the golden PNG files alike.
struct RgbaImage {
  int32_t width = 0, height = 0;
  std::vector<uint8_t> bytes;
  bool operator==(const RgbaImage&) const = default;
};
RgbaImage ToRgba(const host::Image& image);
bool ReadPng(const std::string& path, RgbaImage* image, std::string* error);
// Written under a temporary name and renamed into place.
bool WritePng(const std::string& path, const RgbaImage& image, std::string* error);

}  // namespace tarvo::golden
