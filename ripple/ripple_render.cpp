// The Ripple effect's render: the sixteen parameter values in user units,
// turned into the render driver's inputs.
#include "geometry.h"
#include "render_ripple.h"
#include "ripple_effect.h"

namespace tarvo {

namespace {

// Popup indices travel as their low 8 bits.
int32_t PopupLow8(EffectParam* p) { return static_cast<PopupParam*>(p)->PopupIndex() & 0xFF; }

}  // namespace

PF_Err RippleEffect::Render(PixelImage* in, PixelImage* out) {
  // Read in this order; each value is kept in single precision.
  const float waveHeight = static_cast<float>(Param(kWaveHeight)->Value());
  const float angularHeight = static_cast<float>(Param(kAngularWaveHeight)->Value());
  const float waveWidth = static_cast<float>(Param(kWaveWidth)->Value());
  const float radius = static_cast<float>(Param(kRadius)->Value());
  const float frequency = static_cast<float>(Param(kFrequency)->Value());
  const float stretch = StretchFactor(Param(kStretch)->Value());
  const float stretchAngle = static_cast<float>(Param(kStretchAngle)->Value());
  // Frequency moves the rings outward by the phase travelled so far.
  const double phaseValue = Param(kPhase)->Value();
  const float phase = static_cast<float>(phaseValue - static_cast<double>(FrequencyPhaseOffset(frequency)));
  const int32_t waveform = PopupLow8(Param(kWaveForm));
  const int32_t pinMode = PopupLow8(Param(kPinMode));
  const int32_t twirl = PopupLow8(Param(kTwirl));
  PointParam* centre = ParamAs<PointParam>(kCenter);
  const float centreX = static_cast<float>(centre->X());
  const float centreY = static_cast<float>(centre->Y());
  const float chaos = static_cast<float>(Param(kChaos)->Value() * static_cast<double>(0.1f));
  const int32_t antialias = PopupLow8(Param(kAntialias));
  const float chaosBlend = static_cast<float>(Param(kChaosBlend)->Value() * static_cast<double>(0.01f));
  const int32_t intensity = PopupLow8(Param(kIntensity));

  const RippleSettings settings{.waveHeight = waveHeight,
                                .angularWaveHeight = angularHeight,
                                .waveWidth = waveWidth,
                                .radius = radius,
                                .stretch = stretch,
                                .stretchAngle = stretchAngle,
                                .phase = phase,
                                .waveform = waveform,
                                .pinMode = pinMode,
                                .twirl = twirl,
                                .centreX = centreX,
                                .centreY = centreY,
                                .chaos = chaos,
                                .antialias = antialias,
                                .chaosBlend = chaosBlend,
                                .quality = RenderQualityLevel(),
                                .intensity = intensity};
  RenderRipple(*in, *out, settings);
  return 0;
}

}  // namespace tarvo
