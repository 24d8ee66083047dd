// The option set comes from what the plug-in declares: the listing against
// the in-process host's record of add_param, and the naming, number and
// frame-pattern rules the options rely on.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli_support.h"
#include "param_options.h"
#include "sequence.h"

namespace tarvo::clitest {
namespace {

using cli::FormatFixed;
using cli::OptionName;

TEST(ListParams, JsonMatchesEveryDeclaredDefinition) {
  const std::string dir = TestDir();
  const RunResult r = RunCli({"--list-params", "--json"}, dir);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const nlohmann::json j = nlohmann::json::parse(r.out);

  InProcess p;
  const auto& declared = p.Host().Declared();
  EXPECT_EQ(j["effect"]["name"], "Tarvo FX Ripple");
  EXPECT_EQ(j["effect"]["version"], 0x00180600);
  ASSERT_EQ(j["parameters"].size(), declared.size());
  for (size_t i = 0; i < declared.size(); ++i) {
    const PF_ParamDef& d = declared[i].def;
    const nlohmann::json& e = j["parameters"][i];
    SCOPED_TRACE(d.name);
    EXPECT_EQ(e["index"], i + 1);
    EXPECT_EQ(e["name"], d.name);
    EXPECT_EQ(e["option"], "--" + OptionName(d.name));
    EXPECT_EQ(e["flags"], d.flags);
    switch (d.param_type) {
      case PF_Param_FIX_SLIDER:
        EXPECT_EQ(e["type"], "fixed_slider");
        EXPECT_EQ(e["fixed"]["min"], d.u.fd.valid_min);
        EXPECT_EQ(e["fixed"]["max"], d.u.fd.valid_max);
        EXPECT_EQ(e["fixed"]["default"], d.u.fd.dephault);
        EXPECT_DOUBLE_EQ(e["default"].get<double>(), d.u.fd.dephault / 65536.0);
        EXPECT_EQ(e["precision"], d.u.fd.precision);
        break;
      case PF_Param_ANGLE:
        EXPECT_EQ(e["type"], "angle");
        EXPECT_EQ(e["fixed"]["default"], d.u.ad.dephault);
        break;
      case PF_Param_POINT:
        EXPECT_EQ(e["type"], "point");
        EXPECT_EQ(e["fixed"]["default"][0], d.u.td.x_dephault);
        EXPECT_EQ(e["fixed"]["default"][1], d.u.td.y_dephault);
        EXPECT_EQ(e["restrict_bounds"], d.u.td.restrict_bounds != 0);
        break;
      case PF_Param_POPUP:
        EXPECT_EQ(e["type"], "popup");
        EXPECT_EQ(e["default"], d.u.pd.dephault);
        EXPECT_EQ(e["num_choices"], d.u.pd.num_choices);
        ASSERT_EQ(e["choices"].size(), static_cast<size_t>(d.u.pd.num_choices));
        for (size_t k = 0; k < declared[i].choices.size(); ++k)
          if (declared[i].choices[k] != "(-") {
            EXPECT_EQ(e["choices"][k], declared[i].choices[k]);
          }
        break;
      default: ADD_FAILURE() << "unexpected type " << d.param_type;
    }
  }

  // Unnamed entries and separator lines are null among the choices; only
  // the separators are missing from the entries the command line accepts.
  const nlohmann::json& waves = j["parameters"][5];
  EXPECT_EQ(waves["choices"][23], nullptr);
  EXPECT_EQ(waves["entries"].size(), 24u);
  EXPECT_EQ(waves["entries"][22], nlohmann::json::parse(R"({"value": 23, "name": null, "option_value": "23"})"));
  const nlohmann::json& pins = j["parameters"][11];
  EXPECT_EQ(pins["choices"][3], nullptr);
  EXPECT_EQ(pins["separators"], nlohmann::json::parse("[4, 9]"));
  ASSERT_EQ(pins["entries"].size(), 9u);
  EXPECT_EQ(pins["entries"][3],
            nlohmann::json::parse(R"({"value": 5, "name": "Pin Left", "option_value": "pin-left"})"));
  EXPECT_EQ(j["parameters"][14]["also_accepted"][0]["value"], 0);  // Chaos: its default lies below 10
  EXPECT_EQ(j["parameters"][13]["also_accepted"].size(), 0u);
}

TEST(ListParams, TextListsEveryOptionWithItsRangeAndDefault) {
  const std::string dir = TestDir();
  const RunResult r = RunCli({"--list-params"}, dir);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Tarvo FX Ripple 3.0 (Distort): 16 parameters\n"), std::string::npos);
  EXPECT_NE(r.out.find("--radius VALUE                Radius: 0 to 100, default 25\n"), std::string::npos);
  EXPECT_NE(r.out.find("--wave-height VALUE           Wave Height: 0 to 25, default 3.125\n"), std::string::npos);
  EXPECT_NE(r.out.find("--chaos VALUE                 Chaos: 10 to 140, default 0\n"), std::string::npos);
  EXPECT_NE(r.out.find("23 (unnamed), 24 (unnamed)\n"), std::string::npos);
  EXPECT_NE(r.out.find("3 Pin Center, 4 (separator), 5 Pin Left"), std::string::npos);
}

// Option names follow the display names; fixed values print exactly.
TEST(OptionNames, NamesAndFixedValues) {
  EXPECT_EQ(OptionName("Angular Wave Height"), "angular-wave-height");
  EXPECT_EQ(OptionName("WaveForm"), "waveform");
  EXPECT_EQ(OptionName("  Pin   Center "), "pin-center");
  EXPECT_EQ(OptionName("Spectrum 14"), "spectrum-14");
  EXPECT_EQ(OptionName("(-"), "");
  EXPECT_EQ(FormatFixed(204800), "3.125");
  EXPECT_EQ(FormatFixed(-9830400), "-150");
  EXPECT_EQ(FormatFixed(1), "0.0000152587890625");
  EXPECT_EQ(FormatFixed(-1), "-0.0000152587890625");
  EXPECT_EQ(FormatFixed(0), "0");
}

TEST(FramePatterns, ParseFormatAndRefuse) {
  cli::FramePattern p;
  std::string error;
  ASSERT_TRUE(cli::ParseFramePattern("out/f_%04d.png", &p, &error));
  EXPECT_EQ(cli::FramePath(p, 7), "out/f_0007.png");
  EXPECT_EQ(cli::FramePath(p, 12345), "out/f_12345.png");
  ASSERT_TRUE(cli::ParseFramePattern("100%%_%d.tif", &p, &error));
  EXPECT_EQ(cli::FramePath(p, 3), "100%_3.tif");
  ASSERT_TRUE(cli::ParseFramePattern("a%3d", &p, &error));
  EXPECT_EQ(cli::FramePath(p, 5), "a  5");
  ASSERT_TRUE(cli::ParseFramePattern("plain.png", &p, &error));
  EXPECT_FALSE(p.hasFrame);
  EXPECT_EQ(cli::FramePath(p, 9), "plain.png");

  for (const char* bad : {"f_%d_%d.png", "50%.png", "f_%s.png", "f_%00d.png"})
    EXPECT_FALSE(cli::ParseFramePattern(bad, &p, &error)) << bad;
  EXPECT_FALSE(cli::HasFrameNumber("50%.png"));
  EXPECT_TRUE(cli::HasFrameNumber("f%d.png"));
}

TEST(FramePatterns, Ranges) {
  int32_t a = -1, b = -1;
  std::string error;
  ASSERT_TRUE(cli::ParseFrameRange("0-23", &a, &b, &error));
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 23);
  ASSERT_TRUE(cli::ParseFrameRange("7", &a, &b, &error));
  EXPECT_EQ(a, 7);
  EXPECT_EQ(b, 7);
  for (const char* bad : {"", "-3", "1-", "a-b", "1-2-3", "+1-2", "99999999999-1", "5-3"})
    EXPECT_FALSE(cli::ParseFrameRange(bad, &a, &b, &error)) << bad;
}

}  // namespace
}  // namespace tarvo::clitest
