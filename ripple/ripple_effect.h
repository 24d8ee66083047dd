// The Ripple effect: its parameter set, identity and render.
//
// Parameters by index (kInputLayer is the input layer, never declared). How
// Render reads each one, all through EffectBase::ParamAs<Kind>(index):
//
//   index               kind                 read                   unit
//   kRadius             PercentSliderParam   Value()                0..1 of the frame width
//   kCenter             PointParam           X(), Y()               fractions of the frame
//   kWaveHeight         PercentSliderParam   Value()                0..0.25
//   kAngularWaveHeight  PercentSliderParam   Value()                0..0.25
//   kWaveWidth          PercentSliderParam   Value()                0..0.5
//   kWaveForm           PopupParam           PopupIndex()           0..23 (22, 23 unnamed)
//   kFrequency          FixedSliderParam     Value()                −150..150
//   kIntensity          PopupParam           PopupIndex()           0 Low, 1 Normal, 2 Super
//   kStretch            FixedSliderParam     Value()                −100..100
//   kStretchAngle       AngleParam           Value()                degrees − 90
//   kTwirl              PopupParam           PopupIndex()           0..3
//   kPinMode            PopupParam           PopupIndex()           0..10 (3 and 8 separators)
//   kAntialias          PopupParam           PopupIndex()           0 High, 1 Med, 2 Low
//   kChaosBlend         FixedSliderParam     Value()                0..100
//   kChaos              FixedSliderParam     Value()                10..140, default 0
//   kPhase              AngleParam           Value()                degrees
//
// When Render runs every index holds its object (never null).
#pragma once

#include <stdint.h>

#include "effect_base.h"

namespace tarvo {

class RippleEffect : public EffectBase {
 public:
  enum ParamIndex : int16_t {
    kInputLayer = 0,
    kRadius = 1,
    kCenter = 2,
    kWaveHeight = 3,
    kAngularWaveHeight = 4,
    kWaveWidth = 5,
    kWaveForm = 6,
    kFrequency = 7,
    kIntensity = 8,
    kStretch = 9,
    kStretchAngle = 10,
    kTwirl = 11,
    kPinMode = 12,
    kAntialias = 13,
    kChaosBlend = 14,
    kChaos = 15,
    kPhase = 16,
    kParamCount = 17,
  };

  static constexpr const char* kName = "Tarvo FX Ripple";
  static constexpr int32_t kMajorVersion = 3;
  static constexpr int32_t kMinorVersion = 0;
  // PF_VERSION(3, 0, 0, PF_Stage_RELEASE, 0); the property list's eVER.
  static constexpr uint32_t kVersionWord = 0x00180600;
  // PF_OutFlag_NON_PARAM_VARY; global set-up adds KEEP_RESOURCE_OPEN (→ 5,
  // the property list's eGLO).
  static constexpr int32_t kOutFlags = 0x4;

  RippleEffect() = default;

  PF_Err About(char* text) override;
  uint32_t Version() override { return kVersionWord; }
  int32_t OutFlags() override { return kOutFlags; }
  int16_t NumParams() override { return kParamCount; }
  PF_Err SetupParams() override;
  // Defined in ripple_render.cpp.
  PF_Err Render(PixelImage* in, PixelImage* out) override;
};

}  // namespace tarvo
