#include "render_ripple.h"

#include "call_ops.h"
#include "chaos.h"
#include "geometry.h"
#include "output_stage.h"
#include "render_bands.h"
#include "ripple_renderer.h"
#include "source_map.h"
#include "wave_table.h"

namespace tarvo {

float StretchFactor(double stretchValue) {
  const double s = stretchValue * 0.1;
  return static_cast<float>(s < 0.0 ? 1.0 / (1.0 - s) : s + 1.0);
}

void ScaleByIntensity(int32_t intensity, float& waveHeight, float& angularHeight, float& waveWidth) {
  if (intensity == kIntensityLow) {
    waveHeight = static_cast<float>(waveHeight * static_cast<double>(0.1f));
    angularHeight = static_cast<float>(angularHeight * static_cast<double>(0.1f));
  } else if (intensity == kIntensitySuper) {
    waveHeight = static_cast<float>(waveHeight * 10.0);
    angularHeight = static_cast<float>(angularHeight * 10.0);
    waveWidth = static_cast<float>(waveWidth * 5.0);
  }
}

float FloorStretch(float stretch) { return static_cast<double>(stretch) < 0.1 ? 0.1f : stretch; }

int32_t ChooseSamplingMode(int32_t quality, int32_t antialias) {
  if (quality == 2) return antialias == 0 ? kSampleArea : kSampleBilinear;
  return antialias == 2 ? kSampleNearest : kSampleBilinear;
}

RippleLengths ToSourcePixels(int32_t width, int32_t height, float waveHeight, float angularHeight, float waveWidth,
                             float radius, float centreX, float centreY) {
  const float wf = static_cast<float>(width);
  const double halfW = width / 2;
  double divisor = static_cast<double>(waveWidth) * wf;
  if (divisor < 1.0) divisor = 1.0;
  RippleLengths out;
  out.centreRow = static_cast<float>(static_cast<double>(centreY) * height);
  out.centreCol = static_cast<float>(static_cast<double>(centreX) * wf);
  out.waveHeightPx = static_cast<float>(waveHeight * halfW);
  out.angularHeightPx = static_cast<float>(angularHeight * halfW);
  out.degreesPerPixel = static_cast<float>(180.0 / divisor);
  out.radiusPx = static_cast<float>(static_cast<double>(radius) * wf);
  return out;
}

RendererSettings ToRendererSettings(const RippleSettings& settings, int32_t width, int32_t height) {
  float waveHeight = settings.waveHeight, angularHeight = settings.angularWaveHeight, waveWidth = settings.waveWidth;
  ScaleByIntensity(settings.intensity, waveHeight, angularHeight, waveWidth);
  RendererSettings out;
  static_cast<RippleLengths&>(out) = ToSourcePixels(width, height, waveHeight, angularHeight, waveWidth,
                                                    settings.radius, settings.centreX, settings.centreY);
  out.stretch = FloorStretch(settings.stretch);
  out.stretchAngle = settings.stretchAngle;
  out.phase = settings.phase;
  out.pinMode = settings.pinMode;
  out.twirl = settings.twirl;
  return out;
}

void RenderRipple(const PixelImage& source, PixelImage& destination, const RippleSettings& settings) {
  g_arcTanTable.Build();
  const int32_t width = source.Width();
  const int32_t height = source.Height();
  const RendererSettings inputs = ToRendererSettings(settings, width, height);
  const int32_t mode = ChooseSamplingMode(settings.quality, settings.antialias);

  g_sineTable.Build(kSine, false);
  // Everything below belongs to this render alone: the ripple's wave, the
  // pin profiles, the set-up and the renderer's buffers.
  WaveTable rippleWave{};
  const auto waveform = static_cast<uint32_t>(settings.waveform);
  if (settings.chaosBlend > 0.0f) {
    BuildRippleWave(rippleWave, waveform, settings.chaos, settings.chaosBlend);
  } else {
    rippleWave.Build(waveform, true);
  }

  const int32_t pinMode = settings.pinMode;
  const PinProfiles pins(pinMode, height + 1, width + 1);
  if (!pins.ok) {
    ReportOutOfMemory();
    return;
  }

  const RenderSetup setup{&source, width, height, mode, kTransparentBlack, ActiveSimd()};
  RippleRenderer renderer(setup, inputs, rippleWave);
  if (!renderer.ready) {
    ReportOutOfMemory();
  } else if (!renderer.aborted) {
    // Rows are pinned while still in cache; on one thread the host is then
    // asked about stopping once per map row, as the pinning pass would (on
    // several, the spreading asks before each band).
    renderer.SpreadField(pinMode != 0 ? &pins : nullptr);
    if (pinMode != 0 && RenderThreads() <= 1) CheckPinStops(*renderer.sourceMap);
    ResampleOutput(*renderer.sourceMap, destination);
  }
  // The profiles and the renderer's buffers are released as they leave scope.
}

}  // namespace tarvo
