// Writes the video editor's effect description for the frei0r filter from
// what the plug-in declares at parameter set-up, so the two never disagree.
//
//   tarvo-kdenlive-effect MODULE OUTPUT.xml
//
// Every frei0r parameter appears in the filter's order, under its frei0r
// name, with the frei0r value that gives the plug-in's default. Menus are
// lists of the frei0r values that select each entry (the middle of the
// entry's step) with the plug-in's own entry names; Draft is a switch; the
// centre is two percentages of the frame, as the format has no point for a
// frei0r filter.
#include <stdio.h>

#include <string>

#include "host.h"
#include "param_map.h"

namespace {

using tarvo::frei0r::Info;
using tarvo::frei0r::Kind;
using tarvo::frei0r::ParamInfo;

std::string Escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

// Ten digits carry a default through the frei0r mapping to the same
// 1/65536 step; list values only need to fall inside their entry's step.
std::string Number(double v, int digits = 10) {
  char buf[40];
  snprintf(buf, sizeof buf, "%.*g", digits, v);
  return buf;
}

std::string Parameter(const ParamInfo& info, const tarvo::host::Host& host) {
  const double initial = tarvo::frei0r::InitialValue(info, host);
  const std::string name = Escape(info.name);
  std::string x;
  if (info.kind == Kind::Popup) {
    const auto& choices = host.Declared()[static_cast<size_t>(info.pluginIndex - 1)].choices;
    std::string values, labels;
    const std::vector<int32_t> entries = tarvo::frei0r::MenuEntries(info, host);
    for (size_t k = 0; k < entries.size(); ++k) {
      values += (k ? ";" : "") + Number((static_cast<double>(k) + 0.5) / static_cast<double>(entries.size()), 6);
      const size_t entry = static_cast<size_t>(entries[k] - 1);
      const std::string label = entry < choices.size() ? choices[entry] : std::to_string(entries[k]);
      labels += (k ? "," : "") + Escape(label);
    }
    x = "  <parameter type=\"list\" name=\"" + name + "\" default=\"" + Number(initial, 6) + "\" paramlist=\"" +
        values + "\">\n    <paramlistdisplay>" + labels + "</paramlistdisplay>\n";
  } else if (info.kind == Kind::Draft) {
    x = "  <parameter type=\"bool\" name=\"" + name + "\" default=\"0\">\n";
  } else {
    // The editor shows value × factor from min to max and has no offset:
    // a range from 0 is shown in the plug-in's units, an angle in degrees,
    // anything else in thousandths of the frei0r value.
    std::string range = "min=\"0\" max=\"1000\" factor=\"1000\" decimals=\"0\"";
    if (info.kind == Kind::Angle) {
      range = "min=\"0\" max=\"360\" factor=\"360\" decimals=\"2\" suffix=\"°\"";
    } else if (info.kind == Kind::Slider) {
      const PF_FixedSliderDef& fd = host.Declared()[static_cast<size_t>(info.pluginIndex - 1)].def.u.fd;
      if (fd.valid_min == 0) {
        const std::string max = Number(fd.valid_max / 65536.0);
        range = "min=\"0\" max=\"" + max + "\" factor=\"" + max + "\" decimals=\"" + std::to_string(fd.precision) +
                "\"";
      }
    } else {
      range = "min=\"0\" max=\"100\" factor=\"100\" decimals=\"2\" suffix=\"%\"";
    }
    x = "  <parameter type=\"animated\" name=\"" + name + "\" default=\"" + Number(initial) + "\" " + range + ">\n";
  }
  x += "    <name>" + Escape(info.name) + "</name>\n    <comment>" + Escape(info.explanation) +
       "</comment>\n  </parameter>\n";
  return x;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: tarvo-kdenlive-effect MODULE OUTPUT.xml\n");
    return 2;
  }
  std::string error;
  auto module = tarvo::host::Module::Load(argv[1], &error);
  if (!module) {
    fprintf(stderr, "tarvo-kdenlive-effect: %s\n", error.c_str());
    return 1;
  }
  tarvo::host::Host host(module->Entry());
  if (host.GlobalSetup() != PF_Err_NONE || host.ParamsSetup() != PF_Err_NONE) {
    fprintf(stderr, "tarvo-kdenlive-effect: the plug-in failed at set-up: %s\n", host.ErrorMessage().c_str());
    return 1;
  }
  error = tarvo::frei0r::CheckDeclarations(host);
  if (!error.empty()) {
    fprintf(stderr, "tarvo-kdenlive-effect: %s\n", error.c_str());
    return 1;
  }
  std::string xml =
      "<?xml version=\"1.0\"?>\n"
      "<!DOCTYPE kpartgui>\n"
      "<effect LC_NUMERIC=\"C\" tag=\"frei0r.tarvo_ripple\" id=\"frei0r.tarvo_ripple\">\n"
      "  <name>Tarvo Ripple</name>\n"
      "  <description>Concentric waves spreading from a centre, with stretch, twirl and pinning</description>\n"
      "  <author>Tarvo FX</author>\n";
  for (int i = 0; i < tarvo::frei0r::kNumParams; ++i) xml += Parameter(Info(i), host);
  xml += "</effect>\n";
  host.GlobalSetdown();

  // Written beside the target and renamed over it, so a failed write leaves
  // no half-written description.
  const std::string tmp = std::string(argv[2]) + ".tmp";
  FILE* f = fopen(tmp.c_str(), "wb");
  bool ok = f && fwrite(xml.data(), 1, xml.size(), f) == xml.size();
  if (f) ok = fclose(f) == 0 && ok;
  if (!ok || rename(tmp.c_str(), argv[2]) != 0) {
    remove(tmp.c_str());
    fprintf(stderr, "tarvo-kdenlive-effect: cannot write %s\n", argv[2]);
    return 1;
  }
  return 0;
}
