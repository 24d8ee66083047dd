#include "param_map.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <cmath>

namespace tarvo::frei0r {
namespace {

const ParamInfo kInfos[kNumParams] = {
    {"Radius",
     "Radius of the rippled area (percent of width / 100); the waves fade out between the radius "
     "and twice it. Default 0.25",
     Kind::Slider, 1},
    {"Center X", "Horizontal centre of the rings (fraction of the frame width, 0 = left edge). Default 0.5",
     Kind::CenterX, 2},
    {"Center Y", "Vertical centre of the rings (fraction of the frame height, 0 = top edge). Default 0.5",
     Kind::CenterY, 2},
    {"Wave Height",
     "Radial displacement at a crest: 0-1 is 0-25 percent of half the frame width. Default 0.125 "
     "(3.125 %)",
     Kind::Slider, 3},
    {"Angular Wave Height",
     "Sideways displacement along the rings: 0-1 is 0-25 percent of half the frame width. Default 0", Kind::Slider, 4},
    {"Wave Width", "Half a wavelength: 0-1 is 0-50 percent of the frame width. Default 0.125 (6.25 %)", Kind::Slider,
     5},
    {"WaveForm",
     "Wave shape in 24 steps of 1/24 (entry = value x 24 rounded down, plus 1): 1 Sine, 2 Triangle, "
     "3 Square, 4 Sawtooth, 5 Circle, 6 Semicircle, 7 Uncircle, 8 Half Sine, 9-22 Spectrum 1-14, "
     "23 and 24 two further shapes. Default 0.0208 (Sine)",
     Kind::Popup, 6},
    {"Frequency",
     "Wave periods per second that the rings travel: 0-1 is -150 to 150 (0.5 = still). Default "
     "0.5333 (10 per second)",
     Kind::Slider, 7},
    {"Intensity",
     "Strength in 3 steps of 1/3: Low (heights x 0.1), Normal, Super (heights x 10, wave width x 5). "
     "Default 0.5 (Normal)",
     Kind::Popup, 8},
    {"Stretch",
     "Stretch of the rings along Stretch Angle: 0-1 is -100 to 100 (0.5 = round, 1 = 11 times "
     "longer, 0 = squeezed to a tenth). Default 0.5",
     Kind::Slider, 9},
    {"Stretch Angle", "Direction of the stretch: 0-1 is 0-360 degrees. Default 0.25 (90 degrees)", Kind::Angle, 10},
    {"Twirl", "Twirl in 4 steps of 1/4: No Twirl, Twirl, Super Twirl, Hyper Twirl. Default 0.125 (No Twirl)",
     Kind::Popup, 11},
    {"Pin Mode",
     "What stays in place, in 9 steps of 1/9: No Pin, Pin Edges, Pin Center, Pin Left, Pin Top, "
     "Pin Right, Pin Bottom, Pin Horiz, Pin Vertical. Default 0.1667 (Pin Edges)",
     Kind::Popup, 12},
    {"Antialias",
     "Sampling in 3 steps of 1/3: High (area average; bilinear with Draft), Med (bilinear), Low "
     "(bilinear; nearest pixel with Draft). Default 0.1667 (High)",
     Kind::Popup, 13},
    {"Chaos Blend", "Mix of WaveForm with the chaos waveform: 0-1 is 0-100 percent chaos. Default 0", Kind::Slider, 14},
    {"Chaos",
     "Chaos waveform, a position along Spectrum 1-14: 0-1 is 10-140, ten per spectrum, neighbours "
     "morphed in between. Default 0 (Spectrum 1)",
     Kind::Slider, 15},
    {"Phase", "Phase of the waves: 0-1 is 0-360 degrees. Default 0", Kind::Angle, 16},
    {"Draft",
     "Render at the host's draft quality (Antialias High falls to Med, Low is honoured). Default 0 "
     "(full quality)",
     Kind::Draft, 0},
};

constexpr int kPluginParams = 16;
constexpr double kFixedOne = 65536.0;

PF_Fixed RoundToFixed(double v) {
  const double f = nearbyint(v * kFixedOne);
  if (!(f > -2147483648.0)) return INT32_MIN;
  if (!(f < 2147483647.0)) return INT32_MAX;
  return static_cast<PF_Fixed>(f);
}

PF_ParamType ExpectedType(Kind k) {
  switch (k) {
    case Kind::Slider: return PF_Param_FIX_SLIDER;
    case Kind::Angle: return PF_Param_ANGLE;
    case Kind::Popup: return PF_Param_POPUP;
    case Kind::CenterX:
    case Kind::CenterY: return PF_Param_POINT;
    case Kind::Draft: break;
  }
  return PF_Param_RESERVED;
}

const PF_ParamDef& Declared(const host::Host& host, int pluginIndex) {
  return host.Declared()[static_cast<size_t>(pluginIndex - 1)].def;
}

}  // namespace

const ParamInfo& Info(int index) { return kInfos[index]; }

std::vector<int32_t> MenuEntries(const ParamInfo& info, const host::Host& host) {
  const host::DeclaredParam& p = host.Declared()[static_cast<size_t>(info.pluginIndex - 1)];
  std::vector<int32_t> entries;
  for (int32_t v = 1; v <= p.def.u.pd.num_choices; ++v)
    if (static_cast<size_t>(v) > p.choices.size() || p.choices[static_cast<size_t>(v - 1)].rfind("(-", 0) != 0)
      entries.push_back(v);
  return entries;
}

std::string CheckDeclarations(const host::Host& host) {
  const auto& declared = host.Declared();
  if (declared.size() != kPluginParams)
    return "the plug-in declares " + std::to_string(declared.size()) + " parameters, not " +
           std::to_string(kPluginParams);
  for (const ParamInfo& s : kInfos) {
    if (s.kind == Kind::Draft) continue;
    const PF_ParamDef& d = Declared(host, s.pluginIndex);
    if (d.param_type != ExpectedType(s.kind))
      return "parameter " + std::to_string(s.pluginIndex) + " (" + s.name + ") is of type " +
             std::to_string(d.param_type) + ", not " + std::to_string(ExpectedType(s.kind));
    if (s.kind == Kind::Slider && !(d.u.fd.valid_min < d.u.fd.valid_max))
      return std::string("parameter ") + s.name + " has an empty range";
    if (s.kind == Kind::Popup) {
      if (MenuEntries(s, host).empty()) return std::string("parameter ") + s.name + " has an empty menu";
    }
  }
  return "";
}

double InitialValue(const ParamInfo& info, const host::Host& host) {
  if (info.kind == Kind::Draft) return 0.0;
  const PF_ParamDef& d = Declared(host, info.pluginIndex);
  switch (info.kind) {
    case Kind::Slider: {
      const double lo = d.u.fd.valid_min, hi = d.u.fd.valid_max;
      return std::clamp((d.u.fd.dephault - lo) / (hi - lo), 0.0, 1.0);
    }
    case Kind::Angle: return d.u.ad.dephault / kFixedOne / 360.0;
    case Kind::Popup: {
      // The middle of the default entry's step, so rounding in a user
      // interface keeps the same entry.
      const std::vector<int32_t> entries = MenuEntries(info, host);
      const auto e = std::find(entries.begin(), entries.end(), d.u.pd.dephault);
      const int pos = e == entries.end() ? 0 : static_cast<int>(e - entries.begin());
      return (pos + 0.5) / static_cast<double>(entries.size());
    }
    case Kind::CenterX: return d.u.td.x_dephault / kFixedOne / 100.0;
    case Kind::CenterY: return d.u.td.y_dephault / kFixedOne / 100.0;
    case Kind::Draft: break;
  }
  return 0.0;
}

bool ClampUnit(double* v, double fallback) {
  if (std::isnan(*v)) {
    *v = fallback;
    return false;
  }
  if (*v >= 0.0 && *v <= 1.0) return true;
  *v = std::clamp(*v, 0.0, 1.0);
  return false;
}

std::string ValueWarning(const ParamInfo& info, double given, double used) {
  char text[160];
  if (std::isnan(given))
    snprintf(text, sizeof text, "%s = nan is not a number; using %g", info.name, used);
  else
    snprintf(text, sizeof text, "%s = %g is outside the range 0 to 1; using %g", info.name, given, used);
  return text;
}

namespace {

// Splits text at unescaped, unquoted sep, as ffmpeg's filter graph syntax
// does; quotes and escapes are taken out of the parts.
std::vector<std::string> SplitGraph(const std::string& text, const std::string& seps, std::string* rest = nullptr) {
  std::vector<std::string> parts(1);
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\\' && i + 1 < text.size()) {
      parts.back() += text[++i];
    } else if (c == '\'') {
      quoted = !quoted;
    } else if (!quoted && seps.find(c) != std::string::npos) {
      if (rest && (c == ',' || c == ';' || c == '[')) {  // the end of this filter
        *rest = text.substr(i);
        return parts;
      }
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

}  // namespace

std::vector<std::string> SurplusValueWarnings(const std::vector<std::string>& args) {
  std::vector<std::string> warnings;
  for (const std::string& arg : args) {
    for (size_t at = arg.find("frei0r="); at != std::string::npos; at = arg.find("frei0r=", at + 1)) {
      std::string rest;
      const std::vector<std::string> options = SplitGraph(arg.substr(at + 7), ":,;[", &rest);
      std::string name, params;
      for (size_t k = 0; k < options.size(); ++k) {
        const size_t eq = options[k].find('=');
        const std::string key = eq == std::string::npos ? (k == 0   ? "filter_name"
                                                           : k == 1 ? "filter_params"
                                                                    : "")
                                                        : options[k].substr(0, eq);
        const std::string value = eq == std::string::npos ? options[k] : options[k].substr(eq + 1);
        if (key == "filter_name") name = value;
        if (key == "filter_params") params = value;
      }
      if (name != "tarvo_ripple" || params.empty()) continue;
      const size_t given = SplitGraph(params, "|").size();
      if (given > static_cast<size_t>(kNumParams))
        warnings.push_back("filter_params has " + std::to_string(given) + " values, the filter " +
                           std::to_string(kNumParams) + " parameters (Radius to Draft): the last " +
                           std::to_string(given - kNumParams) + " are ignored");
    }
  }
  return warnings;
}

void ApplyValue(const ParamInfo& info, double v, host::Host& host) {
  if (info.kind == Kind::Draft) {
    host.SetQuality(v >= 0.5 ? PF_Quality_LO : PF_Quality_HI);
    return;
  }
  PF_ParamDef& p = host.Param(info.pluginIndex);
  switch (info.kind) {
    case Kind::Slider: {
      PF_FixedSliderDef& fd = p.u.fd;
      const double lo = fd.valid_min / kFixedOne, hi = fd.valid_max / kFixedOne;
      fd.value = std::clamp(RoundToFixed(lo + v * (hi - lo)), fd.valid_min, fd.valid_max);
      break;
    }
    case Kind::Angle: p.u.ad.value = RoundToFixed(v * 360.0); break;
    case Kind::Popup: {
      // A small tolerance so that k / N, however it was rounded, selects entry k + 1.
      const std::vector<int32_t> entries = MenuEntries(info, host);
      const int n = static_cast<int>(entries.size());
      const int k = static_cast<int>(floor(v * n + 1e-9));
      p.u.pd.value = entries[static_cast<size_t>(std::clamp(k, 0, n - 1))];
      break;
    }
    case Kind::CenterX:
    case Kind::CenterY:
    case Kind::Draft: break;
  }
}

void ApplyCenter(double x, double y, int32_t width, int32_t height, host::Host& host) {
  host.SetPointPixels(kInfos[1].pluginIndex, RoundToFixed(x * width), RoundToFixed(y * height));
}

}  // namespace tarvo::frei0r
