// The module's answers to the host's commands, through its exported "main":
// commands without work, global set-up, about, parameter set-up (what the
// host receives, in which order, and what happens when the host or the
// allocator refuses) and the render command's life cycle.
#include <string.h>

#include <algorithm>
#include <climits>
#include <string>

#include "module_test.h"

namespace tarvo::host {
namespace {

class Commands : public PluginTest {
 protected:
  // Fills out_data with a pattern that no answer would write.
  void Scribble() {
    memset(&host->OutData(), 0xA5, sizeof(PF_OutData));
    snapshot = host->OutData();
  }
  bool OutDataUnchanged() { return memcmp(&snapshot, &host->OutData(), sizeof(PF_OutData)) == 0; }
  PF_OutData snapshot{};
};

TEST_F(Commands, CommandsWithoutWorkWriteNothingAndBuildNothing) {
  const PF_Cmd silent[] = {2, 3, 5, 6, 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18, 19, 24, 1000, -1, INT_MIN, INT_MAX};
  for (PF_Cmd cmd : silent) {
    Scribble();
    const int64_t allocs = stats->allocCount;
    Run(cmd, /*keepOutData=*/true);
    EXPECT_TRUE(OutDataUnchanged()) << "command " << cmd << " wrote to PF_OutData";
    EXPECT_EQ(stats->allocCount, allocs) << "command " << cmd;
  }
  EXPECT_EQ(host->Counts().addParam + host->Counts().fill + host->Counts().copy + host->Counts().progress, 0);
}

// The version word and the flags it adds (5) are the property list's, which
// PropertyList checks against a global set-up; here, that it keeps the
// host's other bits and writes nothing else.
TEST_F(Commands, GlobalSetupReportsVersionAndAddsItsFlags) {
  Scribble();
  host->OutData().out_flags = PF_OutFlag_USE_OUTPUT_EXTENT;
  snapshot.out_flags = 0x45;
  snapshot.my_version = 0x00180600;
  const int64_t allocs = stats->allocCount;
  Run(PF_Cmd_GLOBAL_SETUP, /*keepOutData=*/true);
  EXPECT_TRUE(OutDataUnchanged()) << "only my_version and out_flags (bits kept) are written";
  EXPECT_EQ(stats->allocCount, allocs) << "global set-up builds no parameter objects";
}

TEST_F(Commands, AboutGivesNameAndVersionThenCreditsEndedByACarriageReturn) {
  const int64_t allocs = stats->allocCount;
  Run(PF_Cmd_ABOUT);
  const std::string text = host->ReturnMessage();
  const std::string first = "Tarvo FX Ripple, v3.0\r";
  ASSERT_GT(text.size(), first.size() + 1);
  EXPECT_EQ(text.substr(0, first.size()), first);
  EXPECT_EQ(text.back(), '\r');
  EXPECT_NE(text[text.size() - 2], '\r') << "credits follow the version line";
  EXPECT_EQ(text.find('%'), std::string::npos);
  EXPECT_EQ(host->OutData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE, 0);
  EXPECT_EQ(stats->allocCount, allocs) << "about builds no parameter objects";
}

constexpr PF_Fixed Fx(double v) { return static_cast<PF_Fixed>(v * 65536.0); }

// What each declared parameter must look like, index 1..16: sliders (min =
// valid and slider min, max, default), angles (default), popups (names,
// number of choices, default), the point (always at 50 %, 50 %, kept
// inside the layer).
struct Expected {
  const char* name;
  PF_ParamType type;
  PF_ParamFlags flags;
  PF_Fixed min, max, dflt;
  const char* choices;
  int16_t numChoices;
};
const Expected kExpected[16] = {
    {"Radius", PF_Param_FIX_SLIDER, 0, 0, Fx(100), Fx(25), nullptr, 0},
    {"Center", PF_Param_POINT, 0, 0, 0, 3276800, nullptr, 0},
    {"Wave Height", PF_Param_FIX_SLIDER, 0, 0, 1638400, 204800, nullptr, 0},
    {"Angular Wave Height", PF_Param_FIX_SLIDER, 0, 0, 1638400, 0, nullptr, 0},
    {"Wave Width", PF_Param_FIX_SLIDER, 0, 0, Fx(50), Fx(6.25), nullptr, 0},
    {"WaveForm", PF_Param_POPUP, 0, 0, 0, 1,
     "Sine|Triangle|Square|Sawtooth|Circle|Semicircle|Uncircle|Half Sine|Spectrum 1|Spectrum 2|Spectrum 3|"
     "Spectrum 4|Spectrum 5|Spectrum 6|Spectrum 7|Spectrum 8|Spectrum 9|Spectrum 10|Spectrum 11|Spectrum 12|"
     "Spectrum 13|Spectrum 14|",
     24},
    {"Frequency", PF_Param_FIX_SLIDER, 0, Fx(-150), Fx(150), Fx(10), nullptr, 0},
    {"Intensity", PF_Param_POPUP, 0, 0, 0, 2, "Low|Normal|Super", 3},
    {"Stretch", PF_Param_FIX_SLIDER, 0x20, Fx(-100), Fx(100), 0, nullptr, 0},
    {"Stretch Angle", PF_Param_ANGLE, 0x20, 0, 0, 5898240, nullptr, 0},
    {"Twirl", PF_Param_POPUP, 0x20, 0, 0, 1, "No Twirl|Twirl|Super Twirl|Hyper Twirl", 4},
    {"Pin Mode", PF_Param_POPUP, 0x20, 0, 0, 2,
     "No Pin|Pin Edges|Pin Center|(-|Pin Left|Pin Top|Pin Right|Pin Bottom|(-|Pin Horiz|Pin Vertical", 11},
    {"Antialias", PF_Param_POPUP, 0x20, 0, 0, 1, "High|Med|Low", 3},
    {"Chaos Blend", PF_Param_FIX_SLIDER, 0x20, 0, Fx(100), 0, nullptr, 0},
    {"Chaos", PF_Param_FIX_SLIDER, 0x20, Fx(10), Fx(140), 0, nullptr, 0},  // default below the minimum
    {"Phase", PF_Param_ANGLE, 0x20, 0, 0, 0, nullptr, 0},
};

// A second set-up declares the same again: the flags of 1..8 start from 0.
TEST_F(Commands, ParamsSetupDeclaresSixteenParametersInIndexOrder) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(ParamsSetup(), PF_Err_NONE);
    EXPECT_EQ(host->Counts().addParam, 16 * (round + 1));
    EXPECT_EQ(host->OutData().num_params, 17);
    EXPECT_EQ(host->ErrorMessage(), "");
    const auto& declared = host->Declared();
    ASSERT_EQ(declared.size(), 16u);
    for (size_t i = 0; i < 16; ++i) {
      const Expected& e = kExpected[i];
      const PF_ParamDef& d = declared[i].def;
      SCOPED_TRACE(std::string("index ") + std::to_string(i + 1) + " " + e.name);
      EXPECT_STREQ(d.name, e.name);
      EXPECT_EQ(d.param_type, e.type);
      EXPECT_EQ(d.flags, e.flags);
      EXPECT_EQ(d.ui_flags, 0);
      if (e.type == PF_Param_FIX_SLIDER) {
        const PF_FixedSliderDef& f = d.u.fd;
        EXPECT_EQ(std::vector<PF_Fixed>({f.valid_min, f.slider_min, f.valid_max, f.slider_max, f.dephault, f.value}),
                  std::vector<PF_Fixed>({e.min, e.min, e.max, e.max, e.dflt, e.dflt}));
        EXPECT_EQ(f.precision, 2);
        EXPECT_EQ(f.display_flags, 0);
        EXPECT_EQ(f.value_str[0] + f.value_desc[0], 0);
      } else if (e.type == PF_Param_ANGLE) {
        EXPECT_EQ(d.u.ad.dephault, e.dflt);
        EXPECT_EQ(d.u.ad.value, e.dflt);
      } else if (e.type == PF_Param_POPUP) {
        ASSERT_NE(d.u.pd.u.namesptr, nullptr);
        EXPECT_STREQ(d.u.pd.u.namesptr, e.choices);
        EXPECT_EQ(d.u.pd.num_choices, e.numChoices);
        EXPECT_EQ(d.u.pd.dephault, e.dflt);
        EXPECT_EQ(d.u.pd.value, e.dflt);
      } else {
        EXPECT_EQ(d.u.td.x_dephault, e.dflt);
        EXPECT_EQ(d.u.td.y_dephault, e.dflt);
        EXPECT_EQ(d.u.td.restrict_bounds, 1);
      }
    }
    // WaveForm's menu names 22 shapes; values 23 and 24 are valid but unnamed.
    EXPECT_EQ(declared[5].choices.size(), 22u);
  }
}

TEST_F(Commands, AFailedDeclarationEndsTheList) {
  host->Faults().addParamFailAt = 3;
  EXPECT_EQ(ParamsSetup(), PF_Err_NONE) << "main answers 0 whatever happened";
  EXPECT_EQ(host->Counts().addParam, 3);
  EXPECT_EQ(host->Declared().size(), 2u);
  EXPECT_EQ(host->OutData().num_params, 17);
}

TEST_F(Commands, AllocationFailuresInParamsSetupStopTheListWithAMessage) {
  // Allocation 1 is the parameter array, allocation 2 + i the object at
  // index i: the host then receives indices 1..i − 1.
  for (int64_t k = 1; k <= 19; ++k) {
    SCOPED_TRACE("failing allocation " + std::to_string(k));
    host = std::make_unique<TestHost>(module().Entry());
    stats->failAt = k;
    EXPECT_EQ(ParamsSetup(), PF_Err_NONE);
    stats->failAt = 0;
    EXPECT_EQ(host->Counts().addParam, k >= 19 ? 16 : static_cast<int>(std::max<int64_t>(0, k - 3)));
    EXPECT_EQ(host->OutData().num_params, k == 1 ? 1 : 17);
    EXPECT_EQ(host->ErrorMessage(), k >= 19 ? "" : "Memory Allocation Failure!");
  }
}

// The render clears the output first (a transparent black input can only
// render transparent black); a failed clear ends it with the output
// untouched; each render builds and frees its own parameter objects.
TEST_F(Commands, RenderClearsTheOutputFirstAndKeepsNothing) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  Image output = Guarded(24, 16);
  const Image before = output;
  const int64_t a0 = stats->allocCount;
  EXPECT_EQ(Render(Image(24, 16), output), PF_Err_NONE);
  EXPECT_EQ(host->Counts().fill, 1);
  EXPECT_TRUE(AllTransparentBlack(output));
  const int64_t a1 = stats->allocCount;
  EXPECT_EQ(Render(Image(24, 16), output), PF_Err_NONE);
  EXPECT_GE(a1 - a0, 18) << "the parameter array and seventeen objects";
  EXPECT_EQ(stats->allocCount - a1, a1 - a0) << "nothing is cached between calls";

  output = before;
  host->Faults().fillError = PF_Err_OUT_OF_MEMORY;
  const int64_t a2 = stats->allocCount;
  EXPECT_EQ(Render(Pattern(24, 16), output), PF_Err_NONE);
  EXPECT_EQ(output.data, before.data);
  EXPECT_EQ(stats->allocCount, a2);
  EXPECT_EQ(host->ErrorMessage(), "");
}

}  // namespace
}  // namespace tarvo::host
