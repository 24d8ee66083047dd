#include "studio.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "demo_image.h"
#include "host.h"
#include "image_io.h"
#include "param_map.h"
#include "param_options.h"

#if defined(__EMSCRIPTEN__)
// The plug-in is linked into the page's program; this is its entry point.
extern "C" PF_Err PluginMain(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                             PF_LayerDef* output, void* extra);
extern "C" const unsigned char TarvoPropertyList[];
extern "C" const uint32_t TarvoPropertyListSize;
#endif

namespace tarvo::studio {
namespace {

struct Studio {
  std::unique_ptr<host::Module> module;  // native builds load the built module
  std::unique_ptr<host::Host> host;
  host::PropertyInfo info;
  std::vector<cli::ParamOption> options;
  host::Image input, output;
  std::vector<uint8_t> inputRgba, outputRgba;  // straight RGBA, rows packed
  std::string text;                            // the last text handed out
};

Studio* g_studio = nullptr;

const char* Hand(std::string s) {
  g_studio->text = std::move(s);
  return g_studio->text.c_str();
}

// The command line's whole-number rule for --time, --time-step, --time-scale.
bool ParseWhole(const std::string& name, const std::string& text, long long min, long long max, long long* v,
                std::string* error) {
  const char* b = text.data();
  const char* e = b + text.size();
  if (b != e && *b == '+') ++b;
  auto [ptr, ec] = std::from_chars(b, e, *v);
  if (b == e || ec != std::errc() || ptr != e) {
    *error = "--" + name + " \"" + text + "\" is not a whole number";
    return false;
  }
  if (*v < min || *v > max) {
    *error = "--" + name + " " + text + " is outside " + std::to_string(min) + " to " + std::to_string(max);
    return false;
  }
  return true;
}

// The host's ARGB rows to packed straight RGBA, and back.
void ToRgba(const host::Image& image, std::vector<uint8_t>* rgba) {
  rgba->resize(static_cast<size_t>(image.width) * image.height * 4);
  uint8_t* d = rgba->data();
  for (int32_t y = 0; y < image.height; ++y) {
    const PF_Pixel* row = image.Row(y);
    for (int32_t x = 0; x < image.width; ++x, d += 4) {
      d[0] = row[x].red;
      d[1] = row[x].green;
      d[2] = row[x].blue;
      d[3] = row[x].alpha;
    }
  }
}

void FromRgba(const std::vector<uint8_t>& rgba, host::Image* image) {
  const uint8_t* s = rgba.data();
  for (int32_t y = 0; y < image->height; ++y) {
    PF_Pixel* row = image->Row(y);
    for (int32_t x = 0; x < image->width; ++x, s += 4) row[x] = PF_Pixel{s[3], s[0], s[1], s[2]};
  }
}

const char* UseInput(host::Image image) {
  g_studio->input = std::move(image);
  ToRgba(g_studio->input, &g_studio->inputRgba);
  return Hand("");
}

// The frei0r value of parameter info for the host's current settings: the
// shortest text that the filter maps back onto exactly these host values
// (exact = false when none does, e.g. an angle outside 0 to 360 degrees).
struct FilterValue {
  std::string text;
  bool exact = false;
};

FilterValue FilterValueOf(const frei0r::ParamInfo& info, host::Host& h, int32_t width, int32_t height) {
  using frei0r::Kind;
  if (info.kind == Kind::Draft) return {h.InData().quality == PF_Quality_LO ? "1" : "0", true};
  PF_ParamDef& p = h.Param(info.pluginIndex);
  const PF_ParamDef kept = p;
  double v = 0.0;
  switch (info.kind) {
    case Kind::Slider:
      v = (p.u.fd.value - static_cast<double>(p.u.fd.valid_min)) /
          (p.u.fd.valid_max - static_cast<double>(p.u.fd.valid_min));
      break;
    case Kind::Angle: v = p.u.ad.value / 65536.0 / 360.0; break;
    case Kind::Popup: {
      const std::vector<int32_t> entries = frei0r::MenuEntries(info, h);
      for (size_t k = 0; k < entries.size(); ++k)
        if (entries[k] == p.u.pd.value) v = (static_cast<double>(k) + 0.5) / static_cast<double>(entries.size());
      break;
    }
    case Kind::CenterX: v = p.u.td.x_value / 65536.0 / width; break;
    case Kind::CenterY: v = p.u.td.y_value / 65536.0 / height; break;
    case Kind::Draft: break;
  }
  FilterValue out;  // four digits when no text is exact
  for (int digits = 4; digits <= 17; ++digits) {
    char text[40];
    snprintf(text, sizeof text, "%.*g", digits, v);
    if (digits == 4) out.text = text;
    double back = strtod(text, nullptr);
    bool same = false;
    if (frei0r::ClampUnit(&back, 0.0)) {
      if (info.kind == Kind::CenterX || info.kind == Kind::CenterY) {
        const double x = info.kind == Kind::CenterX ? back : kept.u.td.x_value / 65536.0 / width;
        const double y = info.kind == Kind::CenterY ? back : kept.u.td.y_value / 65536.0 / height;
        frei0r::ApplyCenter(x, y, width, height, h);
        same = p.u.td.x_value == kept.u.td.x_value && p.u.td.y_value == kept.u.td.y_value;
      } else {
        frei0r::ApplyValue(info, back, h);
        same = memcmp(&p.u, &kept.u, sizeof p.u) == 0;
      }
    }
    p = kept;
    if (same) return {text, true};
  }
  return out;
}

// True when the host holds the declared default of info's parameter.
bool AtDefault(const frei0r::ParamInfo& info, host::Host& h, int32_t width, int32_t height) {
  using frei0r::Kind;
  if (info.kind == Kind::Draft) return h.InData().quality != PF_Quality_LO;
  const PF_ParamDef& p = h.Param(info.pluginIndex);
  switch (info.kind) {
    case Kind::Slider: return p.u.fd.value == p.u.fd.dephault;
    case Kind::Angle: return p.u.ad.value == p.u.ad.dephault;
    case Kind::Popup: return p.u.pd.value == p.u.pd.dephault;
    case Kind::CenterX: return p.u.td.x_value == host::Host::PointDefaultPixels(p.u.td.x_dephault, width);
    case Kind::CenterY: return p.u.td.y_value == host::Host::PointDefaultPixels(p.u.td.y_dephault, height);
    case Kind::Draft: break;
  }
  return true;
}

}  // namespace
}  // namespace tarvo::studio

using namespace tarvo;
using namespace tarvo::studio;

STUDIO_API const char* StudioOpen() {
  if (g_studio) return Hand("");
  g_studio = new Studio();
  Studio& s = *g_studio;
  PF_EntryFunc entry = nullptr;
#if defined(__EMSCRIPTEN__)
  entry = PluginMain;
  s.info = host::ParsePropertyList(std::vector<uint8_t>(TarvoPropertyList, TarvoPropertyList + TarvoPropertyListSize));
#else
  std::string error;
  s.module = host::Module::LoadBuilt(&error);
  if (!s.module) return Hand("error: " + error);
  entry = s.module->Entry();
  s.info = host::ParsePropertyList(s.module->PropertyList());
#endif
  if (std::string bad = host::CheckEffectProperties(s.info); !bad.empty()) return Hand("error: " + bad);
  s.host = std::make_unique<host::Host>(entry);
  if (s.host->GlobalSetup() != PF_Err_NONE || !s.host->ErrorMessage().empty())
    return Hand("error: the effect failed its global set-up: " + s.host->ErrorMessage());
  if (s.host->ParamsSetup() != PF_Err_NONE || !s.host->ErrorMessage().empty())
    return Hand("error: the effect failed to declare its parameters: " + s.host->ErrorMessage());
  s.options = cli::OptionsFromDeclared(s.host->Declared());
  return Hand(cli::DescribeJson(s.info, s.options));
}

STUDIO_API const char* StudioUseDemo(int32_t width, int32_t height) {
  if (std::string bad = cli::CheckImageSize(width, height); !bad.empty()) return Hand("the demo picture " + bad);
  return UseInput(cli::MakeDemoImage(width, height));
}

STUDIO_API uint8_t* StudioInputBuffer(int32_t width, int32_t height) {
  if (!cli::CheckImageSize(width, height).empty()) return nullptr;
  g_studio->input = host::Image(width, height);
  g_studio->inputRgba.assign(static_cast<size_t>(width) * height * 4, 0);
  return g_studio->inputRgba.data();
}

STUDIO_API const char* StudioUseInputBuffer() {
  FromRgba(g_studio->inputRgba, &g_studio->input);
  return Hand("");
}

STUDIO_API const char* StudioCheckSize(int32_t width, int32_t height) {
  return Hand(cli::CheckImageSize(width, height));
}

STUDIO_API const char* StudioRender(const char* settings) {
  Studio& s = *g_studio;
  host::Host& h = *s.host;
  // Every render starts from the declared defaults and the command line's
  // host state, so that the same settings give the command line's bytes.
  h.SetParamsToDefaults();
  h.SetQuality(PF_Quality_HI);
  long long time = 0, step = 1, scale = 30;
  std::string error;
  for (const char* line = settings; *line;) {
    const char* end = strchr(line, '\n');
    const std::string pair(line, end ? end - line : strlen(line));
    line = end ? end + 1 : line + pair.size();
    const size_t eq = pair.find('=');
    if (pair.empty() || eq == std::string::npos) continue;
    const std::string name = pair.substr(0, eq), text = pair.substr(eq + 1);
    bool ok = true;
    if (name == "time") {
      ok = ParseWhole(name, text, INT32_MIN, INT32_MAX, &time, &error);
    } else if (name == "time-step") {
      ok = ParseWhole(name, text, INT32_MIN, INT32_MAX, &step, &error);
    } else if (name == "time-scale") {
      ok = ParseWhole(name, text, 1, UINT32_MAX, &scale, &error);
    } else if (name == "quality") {
      ok = text == "high" || text == "low";
      if (!ok) error = "--quality \"" + text + "\" is not high or low";
      h.SetQuality(text == "low" ? PF_Quality_LO : PF_Quality_HI);
    } else {
      const cli::ParamOption* o = nullptr;
      for (const cli::ParamOption& c : s.options)
        if (c.name == name) o = &c;
      if (!o) return Hand("the effect has no parameter --" + name);
      ok = cli::ApplyValue(*o, text, h, &error);
    }
    if (!ok) return Hand(error);
  }
  h.SetTime(static_cast<int32_t>(time), static_cast<int32_t>(step), static_cast<uint32_t>(scale));
  for (const cli::ParamOption& o : s.options)
    if (std::string bad = cli::CheckPointInLayer(o, h, s.input.width, s.input.height); !bad.empty()) return Hand(bad);

  s.output = host::Image(s.input.width, s.input.height);
  const PF_Err err = h.Render(s.input, s.output);
  if (std::string shown = h.ErrorMessage(); !shown.empty()) return Hand(s.info.name + ": " + shown);
  if (err != PF_Err_NONE) return Hand("the render ended with host error " + std::to_string(err));
  ToRgba(s.output, &s.outputRgba);
  return Hand("");
}

STUDIO_API uint8_t* StudioInputRgba() { return g_studio->inputRgba.data(); }
STUDIO_API uint8_t* StudioOutputRgba() { return g_studio->outputRgba.data(); }
STUDIO_API int32_t StudioWidth() { return g_studio->input.width; }
STUDIO_API int32_t StudioHeight() { return g_studio->input.height; }

STUDIO_API const char* StudioFilterValues() {
  Studio& s = *g_studio;
  std::string json = "[";
  for (int i = 0; i < frei0r::kNumParams; ++i) {
    const frei0r::ParamInfo& info = frei0r::Info(i);
    FilterValue v = FilterValueOf(info, *s.host, s.input.width, s.input.height);
    const bool changed = !AtDefault(info, *s.host, s.input.width, s.input.height);
    if (!changed && !v.exact) {
      // A default outside the filter's range (Chaos 0) is given as the
      // filter's own default, which renders the same.
      char initial[40];
      snprintf(initial, sizeof initial, "%.4g", frei0r::InitialValue(info, *s.host));
      v = {initial, true};
    }
    json += std::string(i ? "," : "") + "{\"name\":\"" + info.name + "\",\"value\":\"" + v.text +
            "\",\"exact\":" + (v.exact ? "true" : "false") + ",\"changed\":" + (changed ? "true" : "false") + "}";
  }
  return Hand(json + "]");
}
