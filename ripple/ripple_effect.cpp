#include "ripple_effect.h"

#include "call_context.h"

namespace tarvo {

namespace {

// Menus: '|' separates choices; "(-" is a separator line that takes a value
// of its own. WaveForm declares 24 choices for 22 names: the last two
// shapes have no name in the menu.
constexpr const char* kWaveFormChoices =
    "Sine|Triangle|Square|Sawtooth|Circle|Semicircle|Uncircle|Half Sine|Spectrum 1|Spectrum 2|"
    "Spectrum 3|Spectrum 4|Spectrum 5|Spectrum 6|Spectrum 7|Spectrum 8|Spectrum 9|Spectrum 10|"
    "Spectrum 11|Spectrum 12|Spectrum 13|Spectrum 14|";
constexpr const char* kIntensityChoices = "Low|Normal|Super";
constexpr const char* kTwirlChoices = "No Twirl|Twirl|Super Twirl|Hyper Twirl";
constexpr const char* kPinModeChoices =
    "No Pin|Pin Edges|Pin Center|(-|Pin Left|Pin Top|Pin Right|Pin Bottom|(-|Pin Horiz|Pin Vertical";
constexpr const char* kAntialiasChoices = "High|Med|Low";

// The about box: name and version on the first line, then the credits. The
// three conversions take the name, the major and the minor version; the
// credits contain none.
constexpr const char kAboutFormat[] =
    "%s, v%d.%d\r"
    "Concentric ripples with twenty-four wave shapes, twirl, pinning and chaos.\r"
    "Tarvo Effects";

}  // namespace

PF_Err RippleEffect::About(char* text) {
  HostSprintf(text, 256, kAboutFormat, kName, kMajorVersion, kMinorVersion);
  return PF_Err_NONE;
}

// An object that cannot be allocated leaves its slot null; set-up goes on.
PF_Err RippleEffect::SetupParams() {
  int32_t result = 0;
  PF_ParamFlags flags = 0;  // the parameters after Intensity start collapsed
  auto store = [&](int16_t i, EffectParam* p) {
    if (p != nullptr) p->SetFlags(flags);
    result = SetParam(i, p);
    if (result != 0) delete p;  // refused: still ours
  };

  store(kInputLayer, new LayerParam(kInputLayer));
  store(kRadius, new PercentSliderParam(kRadius, "Radius", kRowRadius));
  store(kCenter, new PointParam(kCenter, "Center", kRowCenterX, kRowCenterY, 0));
  store(kWaveHeight, new PercentSliderParam(kWaveHeight, "Wave Height", kRowWaveHeight));
  store(kAngularWaveHeight, new PercentSliderParam(kAngularWaveHeight, "Angular Wave Height", kRowAngularWaveHeight));
  store(kWaveWidth, new PercentSliderParam(kWaveWidth, "Wave Width", kRowWaveWidth));
  store(kWaveForm, new PopupParam(kWaveForm, "WaveForm", kWaveFormChoices, 1, 24));
  store(kFrequency, new FixedSliderParam(kFrequency, "Frequency", kRowFrequency));
  store(kIntensity, new PopupParam(kIntensity, "Intensity", kIntensityChoices, 2, 3));

  flags |= PF_ParamFlag_COLLAPSE_TWIRLY;
  store(kStretch, new FixedSliderParam(kStretch, "Stretch", kRowStretch));
  store(kStretchAngle, new AngleParam(kStretchAngle, "Stretch Angle", kRowStretchAngle, 90.0f));
  store(kTwirl, new PopupParam(kTwirl, "Twirl", kTwirlChoices, 1, 4));
  store(kPinMode, new PopupParam(kPinMode, "Pin Mode", kPinModeChoices, 2, 11));
  store(kAntialias, new PopupParam(kAntialias, "Antialias", kAntialiasChoices, 1, 3));
  store(kChaosBlend, new FixedSliderParam(kChaosBlend, "Chaos Blend", kRowChaosBlend));
  store(kChaos, new FixedSliderParam(kChaos, "Chaos", kRowChaos));
  store(kPhase, new AngleParam(kPhase, "Phase", kRowPhase, 0.0f));
  return result;
}

}  // namespace tarvo
