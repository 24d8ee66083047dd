// The option grammar as a user meets it: each row is a command line and
// what it must give, either the same file as another command line or one
// line on stderr. Then the round trip with --list-params --json: whatever
// it lists is accepted, and the values just outside are refused.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli_support.h"

namespace tarvo::clitest {
namespace {

struct GrammarCase {
  std::vector<std::string> args;  // after "in.png out.png" unless the first is an option of its own
  int exitCode;
  std::string err;                // whole stderr line without the program name; "" for none
  std::vector<std::string> same;  // exit 0: the file equals the one these options give
  std::string out = "";           // a line stdout must hold
};

TEST(CliGrammar, OneRowPerBehaviour) {
  const std::string dir = TestDir();
  ASSERT_TRUE(WritePicture(dir + "/in.png", MakePicture(24, 16, 4)));
  std::filesystem::copy_file(host::Module::BuiltModulePath(), dir + "/TarvoFXRipple.so");
  const std::string pins =
      "choose one of 1 no-pin, 2 pin-edges, 3 pin-center, 5 pin-left, 6 pin-top, 7 pin-right, 8 pin-bottom, "
      "10 pin-horiz, 11 pin-vertical";
  const GrammarCase cases[] = {
      // Menu entries and words match ignoring case, blanks, dashes and underscores.
      {{"--waveform", "halfsine"}, 0, "", {"--waveform", "8"}},
      {{"--waveform", "Spectrum14"}, 0, "", {"--waveform", "22"}},
      {{"--pin-mode", "pinleft"}, 0, "", {"--pin-mode", "5"}},
      {{"--pin-mode", "NO_PIN"}, 0, "", {"--pin-mode", "1"}},
      {{"--twirl", "super twirl", "--antialias", "LOW"}, 0, "", {"--twirl", "3", "--antialias", "3"}},
      {{"--quality", "HIGH"}, 0, "", {"--quality", "high"}},
      {{"--pin-mode", "4"}, 2, "--pin-mode 4 is a separator line of the menu: " + pins, {}},
      {{"--pin-mode", "9"}, 2, "--pin-mode 9 is a separator line of the menu: " + pins, {}},
      {{"--pin-mode", "(-"}, 2, "--pin-mode (- is not in the menu: " + pins, {}},
      {{"--intensity", "0"}, 2, "--intensity 0 is outside the menu: choose one of 1 low, 2 normal, 3 super", {}},
      // Empty values are refused, whatever the option.
      {{"--jobs", ""}, 2, "--jobs \"\" is empty", {}},
      {{"--png-compression", ""}, 2, "--png-compression \"\" is empty", {}},
      {{"--time", ""}, 2, "--time \"\" is empty", {}},
      {{"--time-step="}, 2, "--time-step \"\" is empty", {}},
      {{"--frames", ""}, 2, "--frames \"\" is empty", {}},
      {{"--size", ""}, 2, "--size \"\" is empty", {}},
      {{"--radius", ""}, 2, "--radius \"\" is empty", {}},
      // A repeated option takes its last value; option names match like menu entries.
      {{"--radius", "10", "--radius", "50"}, 0, "", {"--radius", "50"}},
      {{"--Wave-Height", "5", "--waveheight=6"}, 0, "", {"--wave-height", "6"}},
      {{"-radius", "10"}, 2, "-radius: long options take two dashes: --radius", {}},
      {{"--radus", "10"}, 2, "unknown option --radus; did you mean --radius?", {}},
      {{"--wave-heigth", "3"}, 2, "unknown option --wave-heigth; did you mean --wave-height?", {}},
      {{"--frekuenzy", "3"}, 2, "unknown option --frekuenzy; did you mean --frequency?", {}},
      {{"--bogus"}, 2, "unknown option --bogus (see --help)", {}},
      // Numbers beyond a double are numbers: too large is out of range, too small is 0.
      {{"--radius", "1e309"}, 2, "--radius 1e309 is outside the range 0 to 100", {}},
      {{"--phase", "-1e309"},
       2,
       "--phase -1e309 is outside the range -32768 to 32768, what the host's fixed-point numbers hold",
       {}},
      {{"--radius", "1e-400"}, 0, "", {"--radius", "0"}},
      {{"--radius", "inf"}, 2, "--radius inf is outside the range 0 to 100", {}},
      {{"--radius", "nan"}, 2, "--radius nan is not a number", {}},
      // Versions, and a module named by its file name in the current directory.
      {{"--version"}, 0, "", {}, "Tarvo FX Ripple 3.0 (plug-in module "},
      {{"-V", "--module", "TarvoFXRipple.so"}, 0, "", {}, "Tarvo FX Ripple 3.0 (plug-in module ./TarvoFXRipple.so)"},
      {{"--module", "TarvoFXRipple.so", "--radius", "30"}, 0, "", {"--radius", "30"}},
  };
  int n = 0;
  for (const GrammarCase& c : cases) {
    std::string shown;
    for (const auto& a : c.args) shown += a + " ";
    SCOPED_TRACE(shown);
    const std::string out = "o" + std::to_string(n++) + ".png";
    std::vector<std::string> args = {"in.png", out};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const RunResult r = RunCli(args, dir);
    EXPECT_EQ(r.exitCode, c.exitCode);
    EXPECT_EQ(r.err, c.err.empty() ? "" : "tarvo-ripple: " + c.err + "\n");
    EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
    if (c.exitCode != 0) {
      EXPECT_FALSE(Exists(dir + "/" + out));
    }
    if (c.same.empty()) continue;
    std::vector<std::string> sameArgs = {"in.png", "same.png"};
    sameArgs.insert(sameArgs.end(), c.same.begin(), c.same.end());
    ASSERT_EQ(RunCli(sameArgs, dir).exitCode, 0);
    EXPECT_EQ(ReadFile(dir + "/" + out), ReadFile(dir + "/same.png"));
  }
}

// Every value --list-params --json lists is accepted; the next value out is refused.
TEST(CliGrammar, ListedValuesRoundTrip) {
  const std::string dir = TestDir();
  ASSERT_TRUE(WritePicture(dir + "/in.png", MakePicture(8, 8, 4)));
  const nlohmann::json j = nlohmann::json::parse(RunCli({"--list-params", "--json"}, dir).out);
  auto refuses = [&](const std::string& option, const std::string& value) {
    return RunCli({"in.png", "o.png", option, value}, dir).exitCode == 2;
  };
  auto fixedText = [](int64_t fixed) {  // exact: every multiple of 2^-16 has at most 16 decimals
    char text[64];
    snprintf(text, sizeof text, "%.16f", static_cast<double>(fixed) / 65536.0);
    return std::string(text);
  };
  // Accepted values, run n taking the nth of each option's list.
  std::vector<std::vector<std::string>> runs;
  auto accept = [&](size_t n, const std::string& option, const std::string& value) {
    if (runs.size() <= n) runs.resize(n + 1, {"in.png", "o.png"});
    runs[n].insert(runs[n].end(), {option, value});
  };
  for (const nlohmann::json& q : j["parameters"]) {
    const std::string option = q["option"];
    SCOPED_TRACE(option);
    if (q["type"] == "popup") {
      size_t n = 0;
      for (const nlohmann::json& e : q["entries"]) accept(n++, option, e["option_value"]);
      for (const nlohmann::json& v : q["separators"]) EXPECT_TRUE(refuses(option, std::to_string(v.get<int>())));
      EXPECT_TRUE(refuses(option, "0"));
      EXPECT_TRUE(refuses(option, std::to_string(q["num_choices"].get<int>() + 1)));
    } else if (q["type"] == "fixed_slider" || q["type"] == "angle") {
      const int64_t lo = q["fixed"]["min"], hi = q["fixed"]["max"];
      accept(0, option, fixedText(lo));
      accept(1, option, fixedText(hi));
      size_t n = 2;
      for (const nlohmann::json& e : q.value("also_accepted", nlohmann::json::array()))
        accept(n++, option, e["value"].dump());
      EXPECT_TRUE(refuses(option, fixedText(lo - 1)));
      EXPECT_TRUE(refuses(option, fixedText(hi + 1)));
    }
  }
  for (const auto& run : runs) {
    const RunResult r = RunCli(run, dir);
    EXPECT_EQ(r.exitCode, 0) << r.err;
  }
}

}  // namespace
}  // namespace tarvo::clitest
