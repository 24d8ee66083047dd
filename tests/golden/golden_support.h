// Golden renders: one deterministic render per family of settings, made
// through the built module's entry point exactly as a host makes it. The
// same table drives the golden image test and the contact sheet.
#pragma once

#include <stdint.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host.h"

namespace tarvo::golden {

// Parameter indices as the effect declares them (0 is the input layer).
enum Param {
  kRadius = 1, kCenter, kWaveHeight, kAngularHeight, kWaveWidth, kWaveForm, kFrequency, kIntensity,
  kStretch, kStretchAngle, kTwirl, kPinMode, kAntialias, kChaosBlend, kChaos, kPhase
};

// A value in the units the host's controls show: sliders and angles as
// shown (become 16.16 by truncation toward zero), popups 1-based.
struct Setting {
  int param;
  double shown;
};

struct Case {
  std::string family;  // "waveform", "pin", …
  std::string name;    // file stem of the golden image, unique
  std::string label;   // caption on the contact sheet
  std::vector<Setting> settings;
  // Center as fractions of the frame (may lie outside it); otherwise the
  // declared default, the middle.
  bool centre = false;
  double centreX = 0, centreY = 0;
  bool lowQuality = false;  // the host's quality: PF_Quality_LO instead of HI
  int32_t time = 0;         // current_time, with time_step 1 and time_scale 30
};

// Test output names a case by its file stem.
inline void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// Every golden case, families in order.
const std::vector<Case>& Cases();

// The golden input: a rainbow across the frame, pale at the top and dark at
// the bottom, an 8-pixel checker, a one-pixel grid every 16 pixels, a
// bull's-eye of rings two pixels wide, and alpha fading to 0 over the 8
// pixels at every border. Integer arithmetic only, so it is the same on
// every machine.
host::Image TestPattern(int32_t width, int32_t height);

// A loaded module with a host that has run global and parameter set-up.
class Renderer {
 public:
  // Null with *error set when the module cannot be loaded or set up.
  static std::unique_ptr<Renderer> Create(std::string* error);
  // Renders c over input (defaults first, then the case's settings);
  // false with *error set when the host call or the plug-in reports one.
  bool Render(const Case& c, const host::Image& input, host::Image* out, std::string* error);

 private:
  Renderer() = default;
  std::unique_ptr<host::Module> module_;
  std::unique_ptr<host::Host> host_;
};

// 8-bit RGBA PNG files, colour not associated with alpha (as the effect's
// pixels are); withAlpha false writes RGB only, at the strongest
// compression (for pictures that are opaque anyway).
bool WritePng(const std::string& path, const host::Image& image, std::string* error, bool withAlpha = true);
bool ReadPng(const std::string& path, host::Image* image, std::string* error);

// Pixels as R, G, B, A bytes, row by row (the order of the PNG files).
std::vector<uint8_t> RgbaBytes(const host::Image& image);

}  // namespace tarvo::golden
