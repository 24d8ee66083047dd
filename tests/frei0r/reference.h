// The expected output of the frei0r filter: the in-process host rendering
// RGBA frames with parameters set in the units the host's controls show.
// Used by the adapter tests and by reference_render for e2e.sh.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fixed_point.h"
#include "host.h"

namespace tarvo::frei0r_test {

// "INDEX=VALUE": sliders and angles as shown, popups as the 1-based menu
// value, the centre (a point) as "X,Y" layer pixels; "draft" for low
// quality. False for anything else.
inline bool ApplySetting(host::Host& h, const std::string& setting) {
  if (setting == "draft") return h.SetQuality(PF_Quality_LO), true;
  int index = 0, used = 0;
  double v = 0, y = 0;
  if (sscanf(setting.c_str(), "%d=%lf%n", &index, &v, &used) != 2 || index < 1 ||
      index > static_cast<int>(h.Declared().size()))
    return false;
  PF_ParamDef& p = h.Param(index);
  switch (p.param_type) {
    case PF_Param_FIX_SLIDER: p.u.fd.value = FloatToFixed(v); return true;
    case PF_Param_ANGLE: p.u.ad.value = FloatToFixed(v); return true;
    case PF_Param_POPUP: p.u.pd.value = static_cast<int32_t>(v); return true;
    case PF_Param_POINT:
      if (sscanf(setting.c_str() + used, ",%lf", &y) != 1) return false;
      h.SetPointPixels(index, FloatToFixed(v), FloatToFixed(y));
      return true;
    default: return false;
  }
}

// Renders `frames` frames of w × h RGBA bytes (frei0r's byte order; the
// plug-in's is A, R, G, B) with a freshly loaded and set-up module, frame n
// at current_time firstMs + n × msPerFrame, time_step 1, time_scale 1000.
// Empty with *error set for a bad setting or a failed render.
inline std::vector<uint8_t> RenderFrames(const uint8_t* rgba, size_t frames, int w, int h, int32_t firstMs,
                                         int32_t msPerFrame, const std::vector<std::string>& settings,
                                         std::string* error) {
  auto module = host::Module::LoadBuilt(error);
  if (!module) return {};
  host::Host host(module->Entry());
  host.GlobalSetup();
  host.ParamsSetup();
  for (const std::string& s : settings)
    if (!ApplySetting(host, s)) return *error = "bad setting " + s, std::vector<uint8_t>();
  const size_t n = static_cast<size_t>(w) * h * 4;
  std::vector<uint8_t> out(frames * n);
  host::Image src(w, h), dst(w, h);
  for (size_t f = 0; f < frames; ++f) {
    const uint8_t* in = rgba + f * n;
    for (size_t i = 0; i < n; i += 4) std::rotate_copy(in + i, in + i + 3, in + i + 4, src.data.begin() + i);
    host.SetTime(firstMs + static_cast<int32_t>(f) * msPerFrame, 1, 1000);
    if (PF_Err err = host.Render(src, dst); err || !host.ErrorMessage().empty()) {
      *error = "render failed: " + std::to_string(err) + " " + host.ErrorMessage();
      return {};
    }
    auto d = dst.data.begin();
    for (size_t i = 0; i < n; i += 4) std::rotate_copy(d + i, d + i + 1, d + i + 4, out.begin() + f * n + i);
  }
  host.GlobalSetdown();
  return out;
}

}  // namespace tarvo::frei0r_test
