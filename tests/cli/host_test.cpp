// The command line drives the plug-in as the video host does: each row's
// options give the pixels of an in-process render with the raw values a
// host sets for them. The rows are rendered twice in turn in one process
// and compared with the files of fresh processes: nothing of one render
// (wave, pin profiles, field branch, sampler) reaches the next.
#include <stdlib.h>

#include <filesystem>

#include "image_io.h"
#include "module_test.h"

namespace tarvo::host {
namespace {

struct Setting {
  const char* options;
  std::vector<std::pair<int, PF_Fixed>> values;  // by parameter index, as the host stores them
  PF_Fixed centerX = -1, centerY = 0;            // pixels (16.16); -1 keeps the default
  PF_Quality quality = PF_Quality_HI;
  int32_t time = 0, timeStep = 1;
  uint32_t timeScale = 30;
};

// clang-format off
const Setting kSettings[] = {
    {"--radius 40.5 --center 30.25,20 --wave-height 5 --angular-wave-height 2 --wave-width 10 --waveform 3 "
     "--frequency -20 --intensity super --stretch 50 --stretch-angle 30 --twirl 'Hyper Twirl' --pin-mode pin-left "
     "--antialias med --chaos-blend 40 --chaos 70 --phase -45.5 --quality low --time 7 --time-step 2 --time-scale 24",
     {{kRadius, 2654208}, {kWaveHeight, 5 * kOne}, {kAngularWaveHeight, 2 * kOne}, {kWaveWidth, 10 * kOne},
      {kWaveForm, 3}, {kFrequency, -20 * kOne}, {kIntensity, 3}, {kStretch, 50 * kOne}, {kStretchAngle, 30 * kOne},
      {kTwirl, 4}, {kPinMode, 5}, {kAntialias, 2}, {kChaosBlend, 40 * kOne}, {kChaos, 70 * kOne},
      {kPhase, -2981888}},
     1982464, 20 * kOne, PF_Quality_LO, 7, 2, 24},
    {"--radius 40 --stretch 40 --stretch-angle 30 --chaos-blend 60 --chaos 90 --pin-mode pin-center",
     {{kRadius, 40 * kOne}, {kStretch, 40 * kOne}, {kStretchAngle, 30 * kOne}, {kChaosBlend, 60 * kOne},
      {kChaos, 90 * kOne}, {kPinMode, 3}}},
    {"--waveform triangle --twirl hyper-twirl --angular-wave-height 2 --pin-mode pin-left --antialias low "
     "--quality low",
     {{kWaveForm, 2}, {kTwirl, 4}, {kAngularWaveHeight, 2 * kOne}, {kPinMode, 5}, {kAntialias, 3}},
     -1, 0, PF_Quality_LO},
    // Values truncate toward zero; the declared default is accepted outside the range.
    {"--radius 24.9999923706 --stretch -0.00001 --chaos 0", {{kRadius, 1638399}}},
    {"", {}},
};
// clang-format on

void Set(Host& host, int index, PF_Fixed value) {
  PF_ParamDef& p = host.Param(index);
  if (p.param_type == PF_Param_POPUP) {
    p.u.pd.value = value;
  } else if (p.param_type == PF_Param_ANGLE) {
    p.u.ad.value = value;
  } else {
    p.u.fd.value = value;
  }
}

class CommandLine : public PluginTest {};

TEST_F(CommandLine, RendersWhatTheHostRendersWithTheSameValues) {
  const std::string dir = TARVO_CLI_WORK_DIR, cli = std::string("cd ") + dir + " && " TARVO_RIPPLE_EXE " ";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  ASSERT_EQ(system((cli + "--demo in.png --size 120x90 --radius 0").c_str()), 0);
  std::string error;
  Image input, file;
  ASSERT_TRUE(cli::ReadImage(dir + "/in.png", &input, &error)) << error;
  ASSERT_EQ(host->GlobalSetup(), PF_Err_NONE);
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  for (int pass = 0; pass < 2; ++pass) {
    for (size_t k = 0; k < std::size(kSettings); ++k) {
      const Setting& s = kSettings[k];
      const std::string out = std::to_string(k) + ".png";
      if (pass == 0) {
        ASSERT_EQ(system((cli + "in.png " + out + " " + s.options).c_str()), 0) << s.options;
      }
      host->SetParamsToDefaults();
      for (const auto& [index, value] : s.values) Set(*host, index, value);
      if (s.centerX >= 0) host->SetPointPixels(kCenter, s.centerX, s.centerY);
      host->SetQuality(s.quality);
      host->SetTime(s.time, s.timeStep, s.timeScale);
      Image rendered(input.width, input.height);
      ASSERT_EQ(Render(input, rendered), PF_Err_NONE);
      ASSERT_TRUE(cli::ReadImage(dir + "/" + out, &file, &error)) << error;
      EXPECT_EQ(Pixels(rendered), Pixels(file)) << "pass " << pass << ": " << s.options;
    }
  }
}

}  // namespace
}  // namespace tarvo::host
