// The expected output of the frei0r filter: the in-process host rendering
// RGBA frames with parameters set in the units the host's controls show.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fixed_point.h"
#include "host.h"

namespace tarvo::frei0r_test {

// frei0r's R, G, B, A bytes ↔ the plug-in's A, R, G, B.
inline void RgbaToHost(const uint8_t* rgba, host::Image& img) {
  for (size_t i = 0; i < static_cast<size_t>(img.width) * img.height * 4; i += 4)
    std::rotate_copy(rgba + i, rgba + i + 3, rgba + i + 4, img.data.begin() + i);
}

inline std::vector<uint8_t> HostToRgba(const host::Image& img) {
  std::vector<uint8_t> rgba(static_cast<size_t>(img.width) * img.height * 4);
  for (size_t i = 0; i < rgba.size(); i += 4)
    std::rotate_copy(img.data.begin() + i, img.data.begin() + i + 1, img.data.begin() + i + 4, rgba.begin() + i);
  return rgba;
}

// "INDEX=VALUE": sliders and angles as shown, popups as the 1-based menu
// value, the centre (a point) as "X,Y" layer pixels; "draft" for low
// quality. False for anything else.
inline bool ApplySetting(host::Host& h, const std::string& setting) {
  if (setting == "draft") {
    h.SetQuality(PF_Quality_LO);
    return true;
  }
  const size_t eq = setting.find('=');
  if (eq == std::string::npos) return false;
  const int index = atoi(setting.substr(0, eq).c_str());
  const std::string value = setting.substr(eq + 1);
  if (index < 1 || index > static_cast<int>(h.Declared().size())) return false;
  PF_ParamDef& p = h.Param(index);
  switch (p.param_type) {
    case PF_Param_FIX_SLIDER: p.u.fd.value = FloatToFixed(atof(value.c_str())); return true;
    case PF_Param_ANGLE: p.u.ad.value = FloatToFixed(atof(value.c_str())); return true;
    case PF_Param_POPUP: p.u.pd.value = atoi(value.c_str()); return true;
    case PF_Param_POINT: {
      const size_t comma = value.find(',');
      if (comma == std::string::npos) return false;
      h.SetPointPixels(index, FloatToFixed(atof(value.substr(0, comma).c_str())),
                       FloatToFixed(atof(value.substr(comma + 1).c_str())));
      return true;
    }
    default: return false;
  }
}

}  // namespace tarvo::frei0r_test
