#include "bench_cases.h"

#include <math.h>

#include "ripple_effect.h"

namespace tarvo::bench {

namespace {

// Parameter indices as the effect declares them.
using P = tarvo::RippleEffect;

PF_Fixed Fixed(double v) { return static_cast<PF_Fixed>(lround(v * 65536.0)); }

std::vector<BenchCase> MakeCases() {
  std::vector<BenchCase> cases;
  BenchCase c;
  c.name = "default";
  c.what = "default parameters: Pin Edges, area sampling (Antialias High, high quality)";
  cases.push_back(c);

  c = BenchCase{};
  c.name = "bilinear";
  c.what = "Antialias Med: bilinear sampling";
  c.antialias = 2;
  cases.push_back(c);

  c = BenchCase{};
  c.name = "nearest";
  c.what = "Antialias Low at low quality: nearest sampling";
  c.antialias = 3;
  c.highQuality = false;
  cases.push_back(c);

  c = BenchCase{};
  c.name = "rotated";
  c.what = "Stretch 50 at Stretch Angle 30, Hyper Twirl, Angular Wave Height 5 (rotated field)";
  c.stretch = 50;
  c.stretchAngle = 30;
  c.twirl = 4;
  c.angularHeight = 5;
  cases.push_back(c);

  c = BenchCase{};
  c.name = "chaos";
  c.what = "Chaos Blend 50, Chaos 35 (blended wave table)";
  c.chaosBlend = 50;
  c.chaos = 35;
  cases.push_back(c);

  c = BenchCase{};
  c.name = "radius100";
  c.what = "Radius 100: every pixel displaced";
  c.radius = 100;
  cases.push_back(c);
  return cases;
}

// A small integer hash for the texture.
uint32_t Hash(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352dU;
  x ^= x >> 15;
  x *= 0x846ca68bU;
  x ^= x >> 16;
  return x;
}

uint8_t Clamp8(double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

}  // namespace

const std::vector<FrameSize>& FrameSizes() {
  static const std::vector<FrameSize> sizes = {{640, 480}, {1920, 1080}, {3840, 2160}};
  return sizes;
}

const std::vector<BenchCase>& Cases() {
  static const std::vector<BenchCase> cases = MakeCases();
  return cases;
}

const BenchCase* FindCase(const std::string& name) {
  for (const BenchCase& c : Cases())
    if (c.name == name) return &c;
  return nullptr;
}

void BenchCase::Apply(host::Host& host) const {
  host.SetParamsToDefaults();
  host.Param(P::kRadius).u.fd.value = Fixed(radius);
  host.Param(P::kWaveHeight).u.fd.value = Fixed(waveHeight);
  host.Param(P::kAngularWaveHeight).u.fd.value = Fixed(angularHeight);
  host.Param(P::kWaveWidth).u.fd.value = Fixed(waveWidth);
  host.Param(P::kWaveForm).u.pd.value = waveform;
  host.Param(P::kIntensity).u.pd.value = intensity;
  host.Param(P::kStretch).u.fd.value = Fixed(stretch);
  host.Param(P::kStretchAngle).u.ad.value = Fixed(stretchAngle);
  host.Param(P::kTwirl).u.pd.value = twirl;
  host.Param(P::kPinMode).u.pd.value = pinMode;
  host.Param(P::kAntialias).u.pd.value = antialias;
  host.Param(P::kChaosBlend).u.fd.value = Fixed(chaosBlend);
  host.Param(P::kChaos).u.fd.value = Fixed(chaos);
  host.SetQuality(highQuality ? PF_Quality_HI : PF_Quality_LO);
}

DriverInputs BenchCase::Inputs() const {
  // The effect's own conversions: percent sliders divide by 100, the
  // stretch angle is shown 90° ahead, chaos and chaos blend are scaled by
  // single-precision 0.1 and 0.01, popups become 0-based.
  auto percent = [](double v) { return static_cast<float>(Fixed(v) / 100 / 65536.0); };
  auto slider = [](double v) { return Fixed(v) / 65536.0; };
  DriverInputs in{};
  in.waveHeight = percent(waveHeight);
  in.angularHeight = percent(angularHeight);
  in.waveWidth = percent(waveWidth);
  in.radius = percent(radius);
  const double s = slider(stretch) * 0.1;
  in.stretch = static_cast<float>(s < 0.0 ? 1.0 / (1.0 - s) : s + 1.0);
  in.stretchAngle = static_cast<float>(slider(stretchAngle) - 90.0);
  in.phase = 0.0f;
  in.waveform = waveform - 1;
  in.pinMode = pinMode - 1;
  in.twirl = twirl - 1;
  in.centreX = 0.5f;
  in.centreY = 0.5f;
  in.chaos = static_cast<float>(slider(chaos) * static_cast<double>(0.1f));
  in.antialias = antialias - 1;
  in.chaosBlend = static_cast<float>(slider(chaosBlend) * static_cast<double>(0.01f));
  in.quality = highQuality ? 2 : 1;
  in.intensity = intensity - 1;
  return in;
}

host::Image TestPicture(int32_t width, int32_t height) {
  host::Image img(width, height);
  const double cx = width * 0.37, cy = height * 0.61, r = 0.23 * (width < height ? width : height);
  for (int32_t y = 0; y < height; ++y) {
    PF_Pixel* row = img.Row(y);
    for (int32_t x = 0; x < width; ++x) {
      const double u = static_cast<double>(x) / width, v = static_cast<double>(y) / height;
      const int noise = static_cast<int>(Hash(static_cast<uint32_t>(y) * 65599u + static_cast<uint32_t>(x)) & 31) - 16;
      const bool disc = (x - cx) * (x - cx) + (y - cy) * (y - cy) < r * r;
      const bool stripe = ((x / 24 + y / 24) & 1) != 0;
      PF_Pixel& p = row[x];
      p.alpha = 255;
      p.red = Clamp8((disc ? 220 : 40 + 150 * u) + noise);
      p.green = Clamp8((stripe ? 90 : 160) * (1.0 - 0.5 * v) + noise);
      p.blue = Clamp8(60 + 180 * v * (disc ? 0.3 : 1.0) + noise);
    }
  }
  return img;
}

}  // namespace tarvo::bench
