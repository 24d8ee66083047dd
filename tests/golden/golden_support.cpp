#include "golden_support.h"

#include "ripple_effect.h"
#include "test_host.h"
#include "test_threads.h"

#include <OpenImageIO/imagebuf.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <memory>

namespace tarvo::golden {

using enum RippleEffect::ParamIndex;

namespace {

PF_Fixed ToFixed(double shown) { return static_cast<PF_Fixed>(std::trunc(shown * 65536.0)); }

// The largest r with r × r ≤ v.
int32_t ISqrt(int32_t v) {
  int32_t r = 0;
  while ((r + 1) * (r + 1) <= v) ++r;
  return r;
}

std::vector<Setting> With(std::vector<Setting> base, std::initializer_list<Setting> more) {
  base.insert(base.end(), more);
  return base;
}

// "07-half-sine" for menu entry 7, "Half Sine".
std::string Entry(int n, const std::string& label) {
  std::string s = (n < 10 ? "0" : "") + std::to_string(n) + "-";
  for (char c : label)
    if (std::isalnum(static_cast<unsigned char>(c)))
      s += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    else if (s.back() != '-')
      s += '-';
  if (s.back() == '-') s.pop_back();
  return s;
}

std::vector<Case> MakeCases() {
  std::vector<Case> cases;
  auto add = [&](const std::string& name, const std::string& label, std::vector<Setting> settings) -> Case& {
    cases.push_back(Case{name, label, std::move(settings)});
    return cases.back();
  };
  // Renders that show a family clearly on the 128 × 96 pattern: a ring every
  // 16 pixels, full strength out to 38 pixels, gone at 77 (the corners stay
  // untouched), waves of 5 pixels.
  const std::vector<Setting> base = {{kRadius, 30}, {kWaveHeight, 8}};
  // A ripple that covers the whole frame, for the pin modes and centres.
  const std::vector<Setting> whole = {{kRadius, 50}, {kWaveHeight, 10}, {kAngularWaveHeight, 3}};

  add("default-parameters", "Defaults", {});

  const char* shapes[] = {"Sine", "Triangle", "Square", "Sawtooth", "Circle", "Semicircle", "Uncircle", "Half Sine"};
  for (int v = 1; v <= 24; ++v) {
    const std::string label = v <= 8    ? shapes[v - 1]
                              : v <= 22 ? "Spectrum " + std::to_string(v - 8)
                              : v == 23 ? "Ramp 180 (no name)"
                                        : "Ramp 90 (no name)";
    add("waveform-" + Entry(v, label), label, With(base, {{kWaveForm, double(v)}}));
  }

  // Stretch 10 is a factor of 2, -10 of 0.5; the renderer's angle is the
  // shown one minus 90.
  add("field-circular", "Circular", base);
  add("field-stretch-0", "Stretch 2 at 0", With(base, {{kStretch, 10}, {kStretchAngle, 90}}));
  add("field-stretch-90", "Stretch 2 at 90", With(base, {{kStretch, 10}, {kStretchAngle, 180}}));
  add("field-squeeze-0", "Stretch 0.5 at 0", With(base, {{kStretch, -10}, {kStretchAngle, 90}}));
  add("field-rotated-30", "Stretch 2 at 30", With(base, {{kStretch, 10}, {kStretchAngle, 120}}));
  add("field-rotated-30-squeeze", "Stretch 0.5 at 30", With(base, {{kStretch, -10}, {kStretchAngle, 120}}));
  // The angular wave turns one way unstretched and the other way stretched.
  const std::vector<Setting> angular = {{kRadius, 30}, {kWaveHeight, 0}, {kAngularWaveHeight, 6}};
  add("field-angular-circular", "Angular, circular", angular);
  add("field-angular-stretched", "Angular, stretch 1.2", With(angular, {{kStretch, 2}, {kStretchAngle, 90}}));

  const char* twirls[] = {"No Twirl", "Twirl", "Super Twirl", "Hyper Twirl"};
  for (int v = 1; v <= 4; ++v)
    add("twirl-" + Entry(v, twirls[v - 1]), twirls[v - 1],
        {{kRadius, 30}, {kWaveHeight, 0}, {kAngularWaveHeight, 4}, {kTwirl, double(v)}});

  const char* pins[] = {"No Pin",    "Pin Edges",  "Pin Center",  "Separator 4", "Pin Left",    "Pin Top",
                        "Pin Right", "Pin Bottom", "Separator 9", "Pin Horiz",   "Pin Vertical"};
  for (int v = 1; v <= 11; ++v) add("pin-" + Entry(v, pins[v - 1]), pins[v - 1], With(whole, {{kPinMode, double(v)}}));

  const std::vector<Setting> sampled = {{kRadius, 30}, {kWaveHeight, 12}, {kWaveForm, 3}};
  add("sampling-area", "Area (High, HQ)", With(sampled, {{kAntialias, 1}}));
  add("sampling-bilinear", "Bilinear (Med, HQ)", With(sampled, {{kAntialias, 2}}));
  add("sampling-nearest", "Nearest (Low, draft)", With(sampled, {{kAntialias, 3}})).lowQuality = true;

  // Chaos is a position along the fourteen spectra, × 0.1; Chaos Blend a
  // percentage of the chaos shape mixed into WaveForm. Whole positions
  // render exactly as the spectrum's own WaveForm (checked in tests/waves), so
  // the pure cases sit between two spectra.
  add("chaos-blend-50-square", "Square + 50% chaos 2.5", With(base, {{kWaveForm, 3}, {kChaos, 25}, {kChaosBlend, 50}}));
  for (int chaos : {25, 45, 95, 133})
    add("chaos-pure-" + std::to_string(chaos), "Chaos " + std::to_string(chaos),
        With(base, {{kChaos, double(chaos)}, {kChaosBlend, 100}}));

  Case& leftAbove = add("centre-left-above", "Centre left, above", whole);
  leftAbove.centre = true, leftAbove.centreX = -0.15, leftAbove.centreY = -0.2;
  Case& rightBelow = add("centre-right-below", "Centre right, below", whole);
  rightBelow.centre = true, rightBelow.centreX = 1.15, rightBelow.centreY = 1.2;

  add("intensity-low", "Intensity Low", With(base, {{kIntensity, 1}}));
  add("intensity-super", "Intensity Super", With(base, {{kIntensity, 3}}));

  // Frame n at 30 frames a second moves the phase by -n × Frequency × 12°:
  // -120° for Frequency 10 at frame 1, +300° for -25.
  add("time-frequency-10-frame-1", "Frequency 10, frame 1", base).time = 1;
  add("time-frequency-minus-25-frame-1", "Frequency -25, frame 1", With(base, {{kFrequency, -25}})).time = 1;
  add("time-phase-90", "Phase 90", With(base, {{kPhase, 90}}));
  return cases;
}

}  // namespace

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases = MakeCases();
  return cases;
}

host::Image TestPattern(int32_t width, int32_t height) {
  host::Image img(width, height);
  const int32_t eyeX = width * 3 / 4, eyeY = height / 3, eyeR2 = (height / 5) * (height / 5);
  for (int32_t y = 0; y < height; ++y) {
    // Pale at the top, full colour in the middle, dark at the bottom.
    const int32_t t = y * 512 / std::max(height, 1);
    for (int32_t x = 0; x < width; ++x) {
      // A rainbow across the frame: six sectors of 256 steps each.
      const int32_t h = x * 1536 / std::max(width, 1), f = h % 256;
      int32_t c[3];
      switch (h / 256) {
        case 0: c[0] = 255, c[1] = f, c[2] = 0; break;
        case 1: c[0] = 255 - f, c[1] = 255, c[2] = 0; break;
        case 2: c[0] = 0, c[1] = 255, c[2] = f; break;
        case 3: c[0] = 0, c[1] = 255 - f, c[2] = 255; break;
        case 4: c[0] = f, c[1] = 0, c[2] = 255; break;
        default: c[0] = 255, c[1] = 0, c[2] = 255 - f; break;
      }
      for (int32_t& v : c) v = t < 256 ? v + (255 - v) * (256 - t) / 512 : v * (768 - t) / 512;
      if (((x >> 3) + (y >> 3)) & 1)
        for (int32_t& v : c) v = v * 3 / 4;
      if (x % 16 == 0 || y % 16 == 0)
        for (int32_t& v : c) v /= 4;
      const int32_t dx = 2 * (x - eyeX) + 1, dy = 2 * (y - eyeY) + 1;  // doubled offsets of pixel centres
      const int32_t d2 = dx * dx + dy * dy;
      if (d2 < 4 * eyeR2 && (ISqrt(d2) / 4) % 2 == 0)  // rings two pixels wide
        for (int32_t& v : c) v = 255 - v;
      const int32_t edge = std::min({x, y, width - 1 - x, height - 1 - y});
      const int32_t a = std::min(255, (edge + 1) * 32);
      img.At(y, x) = PF_Pixel{static_cast<uint8_t>(a), static_cast<uint8_t>(c[0]), static_cast<uint8_t>(c[1]),
                              static_cast<uint8_t>(c[2])};
    }
  }
  return img;
}

bool Render(const Case& c, const host::Image& input, host::Image* out, std::string* error) {
  static std::string setupError;
  static const std::unique_ptr<host::Module> module = [] {
    std::unique_ptr<host::Module> m = host::Module::LoadBuilt(&setupError);
    if (m) host::RequestTestThreads(*m);
    return m;
  }();
  static const std::unique_ptr<host::Host> shared = module ? std::make_unique<host::Host>(module->Entry()) : nullptr;
  static const bool ready = shared && shared->GlobalSetup() == PF_Err_NONE && shared->ParamsSetup() == PF_Err_NONE;
  if (!ready) {
    *error = module ? "the module's global or parameter set-up failed" : setupError;
    return false;
  }
  host::Host& h = *shared;
  h.SetParamsToDefaults();
  h.SetQuality(c.lowQuality ? PF_Quality_LO : PF_Quality_HI);
  h.SetTime(c.time, 1, 30);
  for (const Setting& s : c.settings) host::SetShown(h, s.param, s.shown);
  if (c.centre) h.SetPointPixels(kCenter, ToFixed(c.centreX * input.width), ToFixed(c.centreY * input.height));
  *out = host::Image(input.width, input.height);
  const PF_Err err = h.Render(input, *out);
  if (err == PF_Err_NONE && h.ErrorMessage().empty()) return true;
  *error = "render failed: error " + std::to_string(err) + " " + h.ErrorMessage();
  return false;
}

RgbaImage ToRgba(const host::Image& image) {
  RgbaImage rgba{image.width, image.height, {}};
  for (int32_t y = 0; y < image.height; ++y)
    for (int32_t x = 0; x < image.width; ++x) {
      const PF_Pixel& p = image.At(y, x);
      rgba.bytes.insert(rgba.bytes.end(), {p.red, p.green, p.blue, p.alpha});
    }
  return rgba;
}

bool ReadPng(const std::string& path, RgbaImage* image, std::string* error) {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  OIIO::ImageBuf buf(path, 0, 0, nullptr, &config);
  if (!buf.read(0, 0, true)) {
    *error = path + ": " + buf.geterror();
    return false;
  }
  const OIIO::ROI area = buf.roi();
  if (buf.nchannels() != 4 || buf.pixeltype() != OIIO::TypeDesc::UINT8) {
    *error = path + ": not an 8-bit RGBA image";
    return false;
  }
  *image = RgbaImage{area.width(), area.height(), std::vector<uint8_t>(area.npixels() * 4)};
  return buf.get_pixels(buf.roi(), OIIO::TypeDesc::UINT8, image->bytes.data());
}

bool WritePng(const std::string& path, const RgbaImage& image, std::string* error) {
  OIIO::ImageSpec layout(image.width, image.height, 4, OIIO::TypeDesc::UINT8);
  layout.attribute("oiio:UnassociatedAlpha", 1);
  const OIIO::ImageBuf buf(layout, const_cast<uint8_t*>(image.bytes.data()));
  const std::string temp = path + ".partial";
  std::error_code ec;
  if (buf.write(temp, OIIO::TypeUnknown, "png") && (std::filesystem::rename(temp, path, ec), !ec)) return true;
  *error = path + ": " + (ec ? ec.message() : buf.geterror());
  std::filesystem::remove(temp, ec);
  return false;
}

}  // namespace tarvo::golden
