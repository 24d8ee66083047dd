#include "param_options.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

#include "fixed_point.h"

namespace tarvo::cli {

namespace {

bool IsAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

enum class Number { kOk, kNotANumber, kTooLarge };

// A decimal number, nothing before or after it. One too small for a double
// is 0 (it truncates to 0 as a host value anyway); one too large, or an
// infinity, is kTooLarge: a number, but outside every range.
Number ParseNumber(const std::string& text, double* v) {
  const char* b = text.data();
  const char* e = b + text.size();
  if (b != e && *b == '+') ++b;
  if (b == e) return Number::kNotANumber;
#if defined(_LIBCPP_VERSION) && _LIBCPP_VERSION < 170000
  // This libc++ (the WebAssembly build's) has no from_chars for doubles:
  // strtod on the same plain decimal syntax (no blanks, hex, inf or nan).
  for (const char* c = b; c != e; ++c)
    if (!((*c >= '0' && *c <= '9') || *c == '.' || *c == 'e' || *c == 'E' || *c == '-' || *c == '+'))
      return Number::kNotANumber;
  if (*b == '+') return Number::kNotANumber;
  const std::string plain(b, e);
  char* end = nullptr;
  *v = strtod(plain.c_str(), &end);
  if (end != plain.c_str() + plain.size()) return Number::kNotANumber;
#else
  auto [ptr, ec] = std::from_chars(b, e, *v);
  if (ptr != e || (ec != std::errc() && ec != std::errc::result_out_of_range) || std::isnan(*v))
    return Number::kNotANumber;
  if (ec == std::errc::result_out_of_range) {
    const size_t exp = text.find_first_of("eE");
    const bool tiny = exp != std::string::npos && text.find('-', exp) != std::string::npos;
    if (!tiny) return Number::kTooLarge;
    *v = text[0] == '-' ? -0.0 : 0.0;
  }
#endif
  return std::isinf(*v) ? Number::kTooLarge : Number::kOk;
}

bool ParseInt(const std::string& text, int64_t* v) {
  const char* b = text.data();
  const char* e = b + text.size();
  if (b != e && *b == '+') ++b;
  if (b == e) return false;
  auto [ptr, ec] = std::from_chars(b, e, *v);
  return ec == std::errc() && ptr == e;
}

// Shown value → 16.16, truncated toward zero; false when it cannot be held.
bool ToFixed(double v, int32_t* fixed) {
  const double scaled = v * 65536.0;
  if (!(scaled > -2147483649.0 && scaled < 2147483648.0)) return false;
  *fixed = tarvo::FloatToFixed(v);
  return true;
}

std::vector<std::string> SplitComma(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t comma = text.find(',', start);
    parts.push_back(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    if (comma == std::string::npos) return parts;
    start = comma + 1;
  }
}

bool IsSeparator(const std::string& choice) { return choice.rfind("(-", 0) == 0; }
bool Selectable(const std::string& choice) { return !choice.empty() && !IsSeparator(choice); }

// Name of menu value v (1-based), "" when it has none or is a separator line.
std::string EntryName(const ParamOption& opt, int v) {
  const auto& c = opt.declared.choices;
  return v >= 1 && static_cast<size_t>(v) <= c.size() && Selectable(c[static_cast<size_t>(v - 1)])
             ? c[static_cast<size_t>(v - 1)]
             : "";
}

// "1 sine, 2 triangle, ..., 23, 24": every value the menu accepts.
std::string EntryList(const ParamOption& opt) {
  std::string list;
  for (int v = 1; v <= opt.declared.def.u.pd.num_choices; ++v) {
    if (IsSeparatorEntry(opt, v)) continue;
    const std::string name = OptionName(EntryName(opt, v));
    list += (list.empty() ? "" : ", ") + std::to_string(v) + (name.empty() ? "" : " " + name);
  }
  return list;
}

constexpr const char* kFixedRange = "-32768 to 32768";

std::string JsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

}  // namespace

bool IsSeparatorEntry(const ParamOption& opt, int v) {
  const auto& c = opt.declared.choices;
  return v >= 1 && static_cast<size_t>(v) <= c.size() && IsSeparator(c[static_cast<size_t>(v - 1)]);
}

std::string MatchKey(const std::string& name) {
  std::string key;
  for (char c : name) {
    if (c == ' ' || c == '-' || c == '_' || c == '\t') continue;
    key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return key;
}

std::string VersionText(uint32_t v) {
  const uint32_t major = ((v >> 19) & 7) | (((v >> 26) & 15) << 3);
  const uint32_t minor = (v >> 15) & 15;
  return std::to_string(major) + "." + std::to_string(minor);
}

std::string OptionName(const std::string& displayName) {
  std::string out;
  bool pendingDash = false;
  for (char c : displayName) {
    if (IsAlnum(c)) {
      if (pendingDash && !out.empty()) out.push_back('-');
      pendingDash = false;
      out.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
    } else {
      pendingDash = true;
    }
  }
  return out;
}

std::vector<ParamOption> OptionsFromDeclared(const std::vector<host::DeclaredParam>& declared) {
  std::vector<ParamOption> options;
  for (size_t i = 0; i < declared.size(); ++i) {
    const PF_ParamDef& def = declared[i].def;
    switch (def.param_type) {
      case PF_Param_SLIDER:
      case PF_Param_FIX_SLIDER:
      case PF_Param_ANGLE:
      case PF_Param_CHECKBOX:
      case PF_Param_COLOR:
      case PF_Param_POINT:
      case PF_Param_POPUP: break;
      default: continue;
    }
    ParamOption o;
    o.index = static_cast<int>(i + 1);
    o.displayName = def.name;
    o.name = OptionName(def.name);
    o.declared = declared[i];
    if (o.name.empty()) continue;
    options.push_back(std::move(o));
  }
  return options;
}

std::string FormatFixed(int32_t fixed) {
  // Every 16.16 value is a multiple of 2^-16, exact in at most 16 decimals.
  char buf[64];
  snprintf(buf, sizeof buf, "%.16f", fixed / 65536.0);
  std::string s = buf;
  while (!s.empty() && s.back() == '0') s.pop_back();
  if (!s.empty() && s.back() == '.') s.pop_back();
  if (s == "-0") s = "0";
  return s;
}

int PopupNumber(const ParamOption& opt, const std::string& name) {
  const std::string wanted = MatchKey(name);
  if (wanted.empty()) return 0;
  for (int v = 1; v <= opt.declared.def.u.pd.num_choices; ++v)
    if (const std::string entry = EntryName(opt, v); !entry.empty() && MatchKey(entry) == wanted) return v;
  return 0;
}

std::string ClosestName(const std::string& name, const std::vector<std::string>& candidates) {
  // Optimal string alignment distance.
  auto distance = [](const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i)
      for (size_t j = 1; j <= b.size(); ++j) {
        d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
        if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
          d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    return d[a.size()][b.size()];
  };
  const std::string key = MatchKey(name);
  const size_t limit = key.size() <= 4 ? 1 : 2;
  std::string best;
  size_t bestDistance = limit + 1;
  for (const std::string& c : candidates)
    if (const size_t k = distance(key, MatchKey(c)); k < bestDistance) best = c, bestDistance = k;
  return best;
}

bool ApplyValue(const ParamOption& opt, const std::string& text, host::Host& host, std::string* error) {
  const std::string what = "--" + opt.name + " " +
                           (text.empty() || text.find(' ') != std::string::npos ? "\"" + text + "\"" : text);
  PF_ParamDef& p = host.Param(opt.index);
  const PF_ParamDef& d = opt.declared.def;
  switch (d.param_type) {
    case PF_Param_FIX_SLIDER:
    case PF_Param_ANGLE: {
      double v;
      int32_t fixed;
      const Number parsed = ParseNumber(text, &v);
      if (parsed == Number::kNotANumber) {
        *error = what + " is not a number";
        return false;
      }
      const std::string range = d.param_type == PF_Param_ANGLE
                                    ? std::string(kFixedRange) + ", what the host's fixed-point numbers hold"
                                    : FormatFixed(d.u.fd.valid_min) + " to " + FormatFixed(d.u.fd.valid_max);
      if (parsed == Number::kTooLarge || !ToFixed(v, &fixed)) {
        *error = what + " is outside the range " + range;
        return false;
      }
      if (d.param_type == PF_Param_ANGLE) {
        p.u.ad.value = fixed;
        return true;
      }
      // The declared default is always accepted, even outside the range.
      if (fixed != d.u.fd.dephault && (fixed < d.u.fd.valid_min || fixed > d.u.fd.valid_max)) {
        *error = what + " is outside the range " + range;
        return false;
      }
      p.u.fd.value = fixed;
      return true;
    }
    case PF_Param_SLIDER: {
      int64_t v;
      if (!ParseInt(text, &v)) {
        *error = what + " is not a whole number";
        return false;
      }
      if (v != d.u.sd.dephault && (v < d.u.sd.valid_min || v > d.u.sd.valid_max)) {
        *error = what + " is outside the range " + std::to_string(d.u.sd.valid_min) + " to " +
                 std::to_string(d.u.sd.valid_max);
        return false;
      }
      p.u.sd.value = static_cast<PF_ParamValue>(v);
      return true;
    }
    case PF_Param_POPUP: {
      int64_t v;
      const int n = d.u.pd.num_choices;
      const std::string choose = ": choose one of " + EntryList(opt);
      if (ParseInt(text, &v)) {
        if (v < 1 || v > n) {
          *error = what + " is outside the menu" + choose;
          return false;
        }
        if (IsSeparatorEntry(opt, static_cast<int>(v))) {
          *error = what + " is a separator line of the menu" + choose;
          return false;
        }
        p.u.pd.value = static_cast<PF_ParamValue>(v);
        return true;
      }
      const int number = PopupNumber(opt, text);
      if (number == 0) {
        *error = what + " is not in the menu" + choose;
        return false;
      }
      p.u.pd.value = number;
      return true;
    }
    case PF_Param_POINT: {
      const auto parts = SplitComma(text);
      double x, y;
      int32_t fx, fy;
      const Number px = parts.size() == 2 ? ParseNumber(parts[0], &x) : Number::kNotANumber;
      const Number py = parts.size() == 2 ? ParseNumber(parts[1], &y) : Number::kNotANumber;
      if (px == Number::kNotANumber || py == Number::kNotANumber) {
        *error = what + " is not a point: give X,Y in pixels of the layer";
        return false;
      }
      if (px == Number::kTooLarge || py == Number::kTooLarge || !ToFixed(x, &fx) || !ToFixed(y, &fy)) {
        *error = what + " is outside the range " + kFixedRange + ", what the host's fixed-point numbers hold";
        return false;
      }
      host.SetPointPixels(opt.index, fx, fy);
      return true;
    }
    case PF_Param_CHECKBOX: {
      const std::string t = MatchKey(text);
      if (t == "1" || t == "on" || t == "true" || t == "yes") {
        p.u.bd.value = 1;
      } else if (t == "0" || t == "off" || t == "false" || t == "no") {
        p.u.bd.value = 0;
      } else {
        *error = what + " is not on or off";
        return false;
      }
      return true;
    }
    case PF_Param_COLOR: {
      int64_t c[3];
      const auto parts = SplitComma(text);
      bool good = false;
      if (text.size() == 7 && text[0] == '#') {
        unsigned r, g, b;
        int used = 0;
        good = sscanf(text.c_str() + 1, "%2x%2x%2x%n", &r, &g, &b, &used) == 3 && used == 6;
        c[0] = r, c[1] = g, c[2] = b;
      } else if (parts.size() == 3) {
        good = true;
        for (int i = 0; i < 3; ++i)
          good = good && ParseInt(parts[static_cast<size_t>(i)], &c[i]) && c[i] >= 0 && c[i] <= 255;
      }
      if (!good) {
        *error = what + " is not a colour: give R,G,B (0 to 255) or #RRGGBB";
        return false;
      }
      p.u.cd.value.red = static_cast<uint8_t>(c[0]);
      p.u.cd.value.green = static_cast<uint8_t>(c[1]);
      p.u.cd.value.blue = static_cast<uint8_t>(c[2]);
      return true;
    }
    default: *error = what + ": parameters of this kind cannot be set"; return false;
  }
}

std::string CheckPointInLayer(const ParamOption& opt, host::Host& host, int32_t width, int32_t height) {
  const PF_ParamDef& d = opt.declared.def;
  if (d.param_type != PF_Param_POINT || !d.u.td.restrict_bounds) return "";
  const PF_ParamDef& p = host.Param(opt.index);
  const int64_t w = static_cast<int64_t>(width) * 65536, h = static_cast<int64_t>(height) * 65536;
  if (p.u.td.x_value < 0 || p.u.td.y_value < 0 || p.u.td.x_value > w || p.u.td.y_value > h)
    return "--" + opt.name + " " + FormatFixed(p.u.td.x_value) + "," + FormatFixed(p.u.td.y_value) +
           " is outside the " + std::to_string(width) + "x" + std::to_string(height) + " layer";
  return "";
}

std::string OptionTypeName(const ParamOption& opt) {
  switch (opt.declared.def.param_type) {
    case PF_Param_SLIDER: return "slider";
    case PF_Param_FIX_SLIDER: return "fixed_slider";
    case PF_Param_ANGLE: return "angle";
    case PF_Param_CHECKBOX: return "checkbox";
    case PF_Param_COLOR: return "color";
    case PF_Param_POINT: return "point";
    case PF_Param_POPUP: return "popup";
    default: return "other";
  }
}

std::string OptionHelp(const ParamOption& opt) {
  const PF_ParamDef& d = opt.declared.def;
  const std::string& n = opt.displayName;
  switch (d.param_type) {
    case PF_Param_FIX_SLIDER:
      return n + ": " + FormatFixed(d.u.fd.valid_min) + " to " + FormatFixed(d.u.fd.valid_max) + ", default " +
             FormatFixed(d.u.fd.dephault);
    case PF_Param_SLIDER:
      return n + ": " + std::to_string(d.u.sd.valid_min) + " to " + std::to_string(d.u.sd.valid_max) + ", default " +
             std::to_string(d.u.sd.dephault);
    case PF_Param_ANGLE: return n + ": degrees, default " + FormatFixed(d.u.ad.dephault);
    case PF_Param_CHECKBOX: return n + ": on or off, default " + (d.u.bd.dephault ? "on" : "off");
    case PF_Param_COLOR: {
      char buf[16];
      snprintf(buf, sizeof buf, "#%02x%02x%02x", d.u.cd.dephault.red, d.u.cd.dephault.green, d.u.cd.dephault.blue);
      return n + ": R,G,B or #RRGGBB, default " + buf;
    }
    case PF_Param_POINT:
      return n + ": X,Y in pixels of the layer, default " + FormatFixed(d.u.td.x_dephault) + " %, " +
             FormatFixed(d.u.td.y_dephault) + " % of the layer" + (d.u.td.restrict_bounds ? " (kept inside it)" : "");
    case PF_Param_POPUP: {
      std::string s = n + ": 1 to " + std::to_string(d.u.pd.num_choices) + " or a name, default " +
                      std::to_string(d.u.pd.dephault);
      const auto& c = opt.declared.choices;
      if (d.u.pd.dephault >= 1 && static_cast<size_t>(d.u.pd.dephault) <= c.size() &&
          Selectable(c[d.u.pd.dephault - 1]))
        s += " (" + c[static_cast<size_t>(d.u.pd.dephault - 1)] + ")";
      return s;
    }
    default: return n;
  }
}

std::string DescribeText(const host::PropertyInfo& info, const std::vector<ParamOption>& options) {
  std::ostringstream out;
  out << info.name << " " << VersionText(info.version) << " (" << info.category << "): " << options.size()
      << " parameters\n";
  for (const ParamOption& o : options) {
    std::string left = "--" + o.name;
    const PF_ParamType t = o.declared.def.param_type;
    left += t == PF_Param_POINT   ? " X,Y"
            : t == PF_Param_POPUP ? " N|NAME"
            : t == PF_Param_ANGLE ? " DEGREES"
                                  : " VALUE";
    out << "  " << left << std::string(left.size() < 30 ? 30 - left.size() : 1, ' ') << OptionHelp(o) << "\n";
    if (t == PF_Param_POPUP) {
      std::string line;
      for (int v = 1; v <= o.declared.def.u.pd.num_choices; ++v) {
        const auto& c = o.declared.choices;
        std::string label = static_cast<size_t>(v) <= c.size() ? c[static_cast<size_t>(v - 1)] : "";
        if (IsSeparator(label)) label = "(separator)";
        if (label.empty()) label = "(unnamed)";
        line += (v > 1 ? ", " : "") + std::to_string(v) + " " + label;
      }
      out << "      " << line << "\n";
    }
  }
  return out.str();
}

std::string DescribeJson(const host::PropertyInfo& info, const std::vector<ParamOption>& options) {
  std::ostringstream out;
  out << "{\n  \"effect\": {\"name\": " << JsonString(info.name) << ", \"category\": " << JsonString(info.category)
      << ", \"match_name\": " << JsonString(info.matchName) << ", \"version\": " << info.version
      << ", \"version_text\": " << JsonString(VersionText(info.version)) << "},\n  \"parameters\": [";
  for (size_t i = 0; i < options.size(); ++i) {
    const ParamOption& o = options[i];
    const PF_ParamDef& d = o.declared.def;
    out << (i ? ",\n" : "\n") << "    {\"index\": " << o.index << ", \"name\": " << JsonString(o.displayName)
        << ", \"option\": " << JsonString("--" + o.name) << ", \"type\": " << JsonString(OptionTypeName(o))
        << ", \"flags\": " << d.flags;
    switch (d.param_type) {
      case PF_Param_FIX_SLIDER: {
        out << ", \"min\": " << FormatFixed(d.u.fd.valid_min) << ", \"max\": " << FormatFixed(d.u.fd.valid_max)
            << ", \"default\": " << FormatFixed(d.u.fd.dephault)
            << ", \"slider_min\": " << FormatFixed(d.u.fd.slider_min)
            << ", \"slider_max\": " << FormatFixed(d.u.fd.slider_max) << ", \"precision\": " << d.u.fd.precision
            << ", \"also_accepted\": [";
        // The declared default is accepted wherever it lies.
        if (d.u.fd.dephault < d.u.fd.valid_min || d.u.fd.dephault > d.u.fd.valid_max)
          out << "{\"value\": " << FormatFixed(d.u.fd.dephault) << ", \"why\": "
              << JsonString(
                     "the declared default, outside the declared range: the plug-in declares it so and renders it")
              << "}";
        out << "], \"fixed\": {\"min\": " << d.u.fd.valid_min << ", \"max\": " << d.u.fd.valid_max
            << ", \"default\": " << d.u.fd.dephault << "}";
        break;
      }
      case PF_Param_SLIDER:
        out << ", \"min\": " << d.u.sd.valid_min << ", \"max\": " << d.u.sd.valid_max
            << ", \"default\": " << d.u.sd.dephault;
        break;
      case PF_Param_ANGLE:
        // Angles declare no range: any angle the host's numbers hold.
        out << ", \"min\": " << FormatFixed(INT32_MIN) << ", \"max\": " << FormatFixed(INT32_MAX)
            << ", \"default\": " << FormatFixed(d.u.ad.dephault) << ", \"fixed\": {\"min\": " << INT32_MIN
            << ", \"max\": " << INT32_MAX << ", \"default\": " << d.u.ad.dephault << "}";
        break;
      case PF_Param_CHECKBOX: out << ", \"default\": " << (d.u.bd.dephault ? "true" : "false"); break;
      case PF_Param_COLOR:
        out << ", \"default\": [" << int{d.u.cd.dephault.red} << ", " << int{d.u.cd.dephault.green} << ", "
            << int{d.u.cd.dephault.blue} << "]";
        break;
      case PF_Param_POINT:
        out << ", \"default_percent\": [" << FormatFixed(d.u.td.x_dephault) << ", " << FormatFixed(d.u.td.y_dephault)
            << "], \"restrict_bounds\": " << (d.u.td.restrict_bounds ? "true" : "false")
            << ", \"fixed\": {\"default\": [" << d.u.td.x_dephault << ", " << d.u.td.y_dephault << "]}";
        break;
      case PF_Param_POPUP: {
        // choices: the name of each menu value 1..num_choices, null for a
        // separator line or an entry the menu string leaves unnamed;
        // entries: every value the command line accepts, with its name.
        const int n = d.u.pd.num_choices;
        std::string choices, entries, separators;
        for (int v = 1; v <= n; ++v) {
          const std::string name = EntryName(o, v);
          choices += std::string(v > 1 ? ", " : "") + (name.empty() ? "null" : JsonString(name));
          if (IsSeparatorEntry(o, v)) {
            separators += (separators.empty() ? "" : ", ") + std::to_string(v);
            continue;
          }
          entries += std::string(entries.empty() ? "" : ", ") + "{\"value\": " + std::to_string(v) +
                     ", \"name\": " + (name.empty() ? "null" : JsonString(name)) +
                     ", \"option_value\": " + JsonString(name.empty() ? std::to_string(v) : OptionName(name)) + "}";
        }
        out << ", \"default\": " << d.u.pd.dephault << ", \"num_choices\": " << n << ", \"choices\": [" << choices
            << "], \"separators\": [" << separators << "], \"entries\": [" << entries << "]";
        break;
      }
      default: break;
    }
    out << "}";
  }
  out << "\n  ]\n}\n";
  return out.str();
}

}  // namespace tarvo::cli
