// The benchmark cases: each one as a host sets it (parameter values in the
// host's units) and as the render driver receives it (the nineteen inputs
// of RenderRipple), plus the frame sizes and the test picture.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "host.h"

namespace tarvo::bench {

struct FrameSize {
  int32_t width, height;
  std::string Name() const { return std::to_string(width) + "x" + std::to_string(height); }
};

// 640×480, 1920×1080, 3840×2160.
const std::vector<FrameSize>& FrameSizes();

// The driver's inputs, as the effect derives them from the parameters at
// time 0 with the centre at its default (the middle of the frame).
struct DriverInputs {
  float waveHeight, angularHeight, waveWidth, radius, stretch, stretchAngle, phase;
  int32_t waveform, pinMode, twirl;
  float centreX, centreY, chaos;
  int32_t antialias;
  float chaosBlend;
  int32_t quality, intensity;
};

struct BenchCase {
  std::string name;
  std::string what;  // one line for the performance page
  // Host units: sliders as shown, angles in degrees as shown, popups 1-based.
  double radius = 25, waveHeight = 3.125, angularHeight = 0, waveWidth = 6.25;
  int waveform = 1, intensity = 2, twirl = 1, pinMode = 2, antialias = 1;
  double stretch = 0, stretchAngle = 90, chaosBlend = 0, chaos = 0;
  bool highQuality = true;

  // Sets the host's parameters (from their defaults) and quality.
  void Apply(host::Host& host) const;
  DriverInputs Inputs() const;
};

// default, bilinear, nearest, rotated, chaos, radius100.
const std::vector<BenchCase>& Cases();
const BenchCase* FindCase(const std::string& name);

// A deterministic, photo-like opaque test picture: smooth gradients, edges
// and fine texture, so that every sampler path sees varied pixels.
host::Image TestPicture(int32_t width, int32_t height);

}  // namespace tarvo::bench
