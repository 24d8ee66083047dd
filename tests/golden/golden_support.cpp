#include "golden_support.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarvo::golden {

namespace {

PF_Fixed ToFixed(double shown) { return static_cast<PF_Fixed>(std::trunc(shown * 65536.0)); }

// Renders that show a family clearly on the 128 × 96 pattern: a ring every
// 16 pixels, full strength out to 38 pixels, gone at 77 (the corners stay
// untouched), waves of 5 pixels.
const std::vector<Setting> kBase = {{kRadius, 30}, {kWaveHeight, 8}};
// A ripple that covers the whole frame, for the pin modes and centres.
const std::vector<Setting> kWhole = {{kRadius, 50}, {kWaveHeight, 10}, {kAngularHeight, 3}};

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

std::string Two(int n) {
  char s[8];
  std::snprintf(s, sizeof s, "%02d", n);
  return s;
}

std::string Stem(const std::string& label) {
  std::string s;
  for (char c : label) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
      s += c;
    else if (!s.empty() && s.back() != '-')
      s += '-';
  }
  while (!s.empty() && s.back() == '-') s.pop_back();
  return s;
}

std::vector<Case> MakeCases() {
  std::vector<Case> cases;
  auto add = [&](const std::string& family, const std::string& stem, const std::string& label,
                 std::vector<Setting> settings) -> Case& {
    Case c;
    c.family = family;
    c.name = family + "-" + stem;
    c.label = label;
    c.settings = std::move(settings);
    cases.push_back(std::move(c));
    return cases.back();
  };

  add("default", "parameters", "Defaults", {});

  const char* shapes[] = {"Sine", "Triangle", "Square", "Sawtooth", "Circle", "Semicircle", "Uncircle", "Half Sine"};
  for (int v = 1; v <= 24; ++v) {
    std::string label = v <= 8 ? shapes[v - 1] : v <= 22 ? "Spectrum " + std::to_string(v - 8) : "";
    if (v == 23) label = "Ramp 180 (no name)";
    if (v == 24) label = "Ramp 90 (no name)";
    add("waveform", Two(v) + "-" + Stem(label), label, With(kBase, {{kWaveForm, static_cast<double>(v)}}));
  }

  // Stretch 10 is a factor of 2, -10 of 0.5; the renderer's angle is the
  // shown one minus 90.
  add("field", "circular", "Circular", kBase);
  add("field", "stretch-0", "Stretch 2 at 0", With(kBase, {{kStretch, 10}, {kStretchAngle, 90}}));
  add("field", "stretch-90", "Stretch 2 at 90", With(kBase, {{kStretch, 10}, {kStretchAngle, 180}}));
  add("field", "squeeze-0", "Stretch 0.5 at 0", With(kBase, {{kStretch, -10}, {kStretchAngle, 90}}));
  add("field", "rotated-30", "Stretch 2 at 30", With(kBase, {{kStretch, 10}, {kStretchAngle, 120}}));
  add("field", "rotated-30-squeeze", "Stretch 0.5 at 30", With(kBase, {{kStretch, -10}, {kStretchAngle, 120}}));
  // The angular wave turns one way unstretched and the other way stretched.
  const std::vector<Setting> angular = {{kRadius, 30}, {kWaveHeight, 0}, {kAngularHeight, 6}};
  add("field", "angular-circular", "Angular, circular", angular);
  add("field", "angular-stretched", "Angular, stretch 1.2", With(angular, {{kStretch, 2}, {kStretchAngle, 90}}));

  const char* twirls[] = {"No Twirl", "Twirl", "Super Twirl", "Hyper Twirl"};
  for (int v = 1; v <= 4; ++v)
    add("twirl", Two(v) + "-" + Stem(twirls[v - 1]), twirls[v - 1],
        {{kRadius, 30}, {kWaveHeight, 0}, {kAngularHeight, 4}, {kTwirl, static_cast<double>(v)}});

  const char* pins[] = {"No Pin",     "Pin Edges",  "Pin Center", "Separator 4", "Pin Left",    "Pin Top",
                        "Pin Right",  "Pin Bottom", "Separator 9", "Pin Horiz",  "Pin Vertical"};
  for (int v = 1; v <= 11; ++v)
    add("pin", Two(v) + "-" + Stem(pins[v - 1]), pins[v - 1], With(kWhole, {{kPinMode, static_cast<double>(v)}}));

  const std::vector<Setting> sampled = {{kRadius, 30}, {kWaveHeight, 12}, {kWaveForm, 3}};
  add("sampling", "area", "Area (High, HQ)", With(sampled, {{kAntialias, 1}}));
  add("sampling", "bilinear", "Bilinear (Med, HQ)", With(sampled, {{kAntialias, 2}}));
  add("sampling", "nearest", "Nearest (Low, draft)", With(sampled, {{kAntialias, 3}})).lowQuality = true;

  // Chaos is a position along the fourteen spectra, × 0.1; Chaos Blend a
  // percentage of the chaos shape mixed into WaveForm. Whole positions
  // render exactly as the spectrum's own WaveForm (checked in tests/e2e), so
  // the pure cases sit between two spectra.
  add("chaos", "blend-50-square", "Square + 50% chaos 2.5",
      With(kBase, {{kWaveForm, 3}, {kChaos, 25}, {kChaosBlend, 50}}));
  for (int chaos : {25, 45, 95, 133})
    add("chaos", "pure-" + std::to_string(chaos), "Chaos " + std::to_string(chaos),
        With(kBase, {{kChaos, static_cast<double>(chaos)}, {kChaosBlend, 100}}));

  Case& leftAbove = add("centre", "left-above", "Centre left, above", kWhole);
  leftAbove.centre = true, leftAbove.centreX = -0.15, leftAbove.centreY = -0.2;
  Case& rightBelow = add("centre", "right-below", "Centre right, below", kWhole);
  rightBelow.centre = true, rightBelow.centreX = 1.15, rightBelow.centreY = 1.2;

  add("intensity", "low", "Intensity Low", With(kBase, {{kIntensity, 1}}));
  add("intensity", "super", "Intensity Super", With(kBase, {{kIntensity, 3}}));

  // Frame n at 30 frames a second moves the phase by -n × Frequency × 12°:
  // -120° for Frequency 10 at frame 1, +300° for -25.
  add("time", "frequency-10-frame-1", "Frequency 10, frame 1", kBase).time = 1;
  add("time", "frequency-minus-25-frame-1", "Frequency -25, frame 1", With(kBase, {{kFrequency, -25}})).time = 1;
  add("time", "phase-90", "Phase 90", With(kBase, {{kPhase, 90}}));
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

std::unique_ptr<Renderer> Renderer::Create(std::string* error) {
  std::unique_ptr<Renderer> r(new Renderer);
  r->module_ = host::Module::LoadBuilt(error);
  if (!r->module_) return nullptr;
  r->host_ = std::make_unique<host::Host>(r->module_->Entry());
  if (r->host_->GlobalSetup() != PF_Err_NONE || r->host_->ParamsSetup() != PF_Err_NONE) {
    *error = "the module's global or parameter set-up failed";
    return nullptr;
  }
  return r;
}

bool Renderer::Render(const Case& c, const host::Image& input, host::Image* out, std::string* error) {
  host::Host& h = *host_;
  h.SetParamsToDefaults();
  h.SetQuality(c.lowQuality ? PF_Quality_LO : PF_Quality_HI);
  h.SetTime(c.time, 1, 30);
  for (const Setting& s : c.settings) {
    PF_ParamDef& p = h.Param(s.param);
    switch (p.param_type) {
      case PF_Param_POPUP: p.u.pd.value = static_cast<int32_t>(s.shown); break;
      case PF_Param_ANGLE: p.u.ad.value = ToFixed(s.shown); break;
      case PF_Param_FIX_SLIDER: p.u.fd.value = ToFixed(s.shown); break;
      default: *error = "parameter " + std::to_string(s.param) + " is not a slider, angle or popup"; return false;
    }
  }
  if (c.centre) h.SetPointPixels(kCenter, ToFixed(c.centreX * input.width), ToFixed(c.centreY * input.height));
  *out = host::Image(input.width, input.height);
  const PF_Err err = h.Render(input, *out);
  if (err != PF_Err_NONE || !h.ErrorMessage().empty()) {
    *error = "render failed: error " + std::to_string(err) + " " + h.ErrorMessage();
    return false;
  }
  return true;
}

std::vector<uint8_t> RgbaBytes(const host::Image& image) {
  std::vector<uint8_t> bytes;
  bytes.reserve(static_cast<size_t>(image.width) * image.height * 4);
  for (int32_t y = 0; y < image.height; ++y)
    for (int32_t x = 0; x < image.width; ++x) {
      const PF_Pixel& p = image.At(y, x);
      bytes.insert(bytes.end(), {p.red, p.green, p.blue, p.alpha});
    }
  return bytes;
}

bool WritePng(const std::string& path, const host::Image& image, std::string* error, bool withAlpha) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) {
    *error = OIIO::geterror();
    return false;
  }
  OIIO::ImageSpec layout(image.width, image.height, withAlpha ? 4 : 3, OIIO::TypeDesc::UINT8);
  std::vector<uint8_t> bytes = RgbaBytes(image);
  if (withAlpha) {
    layout.attribute("oiio:UnassociatedAlpha", 1);
  } else {
    layout.attribute("png:compressionLevel", 9);
    size_t n = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
      if (i % 4 != 3) bytes[n++] = bytes[i];
    bytes.resize(n);
  }
  // Written beside the target and renamed into place: a failed write never
  // leaves a partial file under the real name.
  const std::string temp = path + ".partial.png";
  if (!out->open(temp, layout) || !out->write_image(OIIO::TypeDesc::UINT8, bytes.data()) || !out->close()) {
    *error = path + ": " + out->geterror();
    std::remove(temp.c_str());
    return false;
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    *error = path + ": cannot rename the written file into place";
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

bool ReadPng(const std::string& path, host::Image* image, std::string* error) {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    *error = OIIO::geterror();
    return false;
  }
  const OIIO::ImageSpec& layout = in->spec();
  if (layout.nchannels != 4 || layout.format != OIIO::TypeDesc::UINT8) {
    *error = path + ": not an 8-bit RGBA image";
    return false;
  }
  std::vector<uint8_t> bytes(static_cast<size_t>(layout.width) * layout.height * 4);
  if (!in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, bytes.data())) {
    *error = path + ": " + in->geterror();
    return false;
  }
  *image = host::Image(layout.width, layout.height);
  const uint8_t* b = bytes.data();
  for (int32_t y = 0; y < layout.height; ++y)
    for (int32_t x = 0; x < layout.width; ++x, b += 4) image->At(y, x) = PF_Pixel{b[3], b[0], b[1], b[2]};
  return true;
}

}  // namespace tarvo::golden
