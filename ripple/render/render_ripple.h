// The render driver and the conversions from parameter units into source
// pixels that precede the renderer.
#pragma once

#include <stdint.h>

#include "pixel_image.h"

namespace tarvo {

// The render mapping's values, as the effect reads and converts its
// parameters: lengths as fractions of the frame, angles in degrees, menus as
// 0-based indices.
struct RippleSettings {
  float waveHeight;
  float angularWaveHeight;
  float waveWidth;
  float radius;
  float stretch;  // the stretch factor (StretchFactor)
  float stretchAngle;
  float phase;  // the Phase parameter less the frequency's offset
  int32_t waveform;
  int32_t pinMode;
  int32_t twirl;
  float centreX;  // fractions of the frame's width and height
  float centreY;
  float chaos;  // Chaos × 0.1
  int32_t antialias;
  float chaosBlend;  // Chaos Blend × 0.01
  int32_t quality;   // 2 at the host's high quality, else 1
  int32_t intensity;
};

// Renders one frame of the ripple from source into destination. Failures go
// to the call's error report: an allocation failure reports "Memory
// Allocation Failure!" and leaves destination untouched; a stop requested
// by the host leaves it as the host cleared it.
//
// Indices outside their menus: an unknown intensity leaves the heights and
// width unchanged, an unknown antialias samples bilinearly, an unknown twirl
// renders as "No Twirl", an unknown waveform is tabulated as Sine and an
// unknown pin mode pins nothing.
void RenderRipple(const PixelImage& source, PixelImage& destination, const RippleSettings& settings);

// --- Parameter conversions -------------------------------------------------

enum Intensity : int32_t { kIntensityLow = 0, kIntensityNormal = 1, kIntensitySuper = 2 };

// The Stretch slider's value to the stretch factor: 1 at 0, 1 + s above
// (s = value × 0.1), 1 / (1 − s) below.
float StretchFactor(double stretchValue);

// Low: heights × 0.1; Super: heights × 10, width × 5; otherwise unchanged.
void ScaleByIntensity(int32_t intensity, float& waveHeight, float& angularHeight, float& waveWidth);

// Stretch factors below 0.1 become 0.1.
float FloorStretch(float stretch);

// Area sampling (0) only for "High" at the host's high quality (2); nearest
// (2) only for "Low" below it; bilinear (1) otherwise.
int32_t ChooseSamplingMode(int32_t quality, int32_t antialias);

// The renderer's lengths in source pixels.
struct RippleLengths {
  float centreRow;
  float centreCol;
  float waveHeightPx;
  float angularHeightPx;
  float degreesPerPixel;
  float radiusPx;
};

RippleLengths ToSourcePixels(int32_t width, int32_t height, float waveHeight, float angularHeight, float waveWidth,
                             float radius, float centreX, float centreY);

// The renderer's inputs: the lengths in source pixels, the stretch floored,
// the rest as the settings have them.
struct RendererSettings : RippleLengths {
  float stretch;
  float stretchAngle;  // degrees, not yet rounded
  float phase;
  int32_t pinMode;
  int32_t twirl;
};

// Intensity, the stretch floor and the pixel conversions, for a source of
// width × height.
RendererSettings ToRendererSettings(const RippleSettings& settings, int32_t width, int32_t height);

}  // namespace tarvo
