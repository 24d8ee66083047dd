// The module's answers to the host's commands, through its exported "main":
// unknown commands, global set-up and set-down, about, and the render
// command's life cycle.
#include <string.h>

#include <climits>
#include <vector>

#include "plugin_fixture.h"

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
  const PF_Cmd silent[] = {2, 5, 6, 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18, 19, 24, 1000, -1, INT_MIN, INT_MAX};
  for (PF_Cmd cmd : silent) {
    Scribble();
    const int64_t allocs = stats->allocCount;
    Run(cmd, /*keepOutData=*/true);
    EXPECT_TRUE(OutDataUnchanged()) << "command " << cmd << " wrote to PF_OutData";
    EXPECT_EQ(stats->allocCount, allocs) << "command " << cmd;
  }
  EXPECT_EQ(host->counts().addParam + host->counts().fill + host->counts().copy + host->counts().progress, 0);
}

TEST_F(Commands, GlobalSetupReportsVersionAndAddsItsFlags) {
  host->SetOutFlagsOnEntry(0);
  Run(PF_Cmd_GLOBAL_SETUP);
  EXPECT_EQ(host->OutData().out_flags, 5);
  EXPECT_EQ(host->OutData().my_version, 0x00180600u);

  Scribble();
  host->OutData().out_flags = PF_OutFlag_USE_OUTPUT_EXTENT;
  snapshot.out_flags = 0x45;
  snapshot.my_version = 0x00180600;
  const int64_t allocs = stats->allocCount;
  Run(PF_Cmd_GLOBAL_SETUP, /*keepOutData=*/true);
  EXPECT_EQ(host->OutData().out_flags, 0x45);
  EXPECT_TRUE(OutDataUnchanged()) << "only my_version and out_flags are written";
  EXPECT_EQ(stats->allocCount, allocs) << "global set-up builds no parameter objects";
}

TEST_F(Commands, GlobalSetdownWritesNothing) {
  Scribble();
  Run(PF_Cmd_GLOBAL_SETDOWN, /*keepOutData=*/true);
  EXPECT_TRUE(OutDataUnchanged());
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

Image Filled(int32_t w, int32_t h, PF_Pixel p) {
  Image img(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) img.At(y, x) = p;
  return img;
}

bool AllTransparentBlack(const Image& img) {
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x) {
      const PF_Pixel& p = img.At(y, x);
      if (p.alpha || p.red || p.green || p.blue) return false;
    }
  return true;
}

TEST_F(Commands, RenderClearsTheOutputFirst) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  // A transparent black input can only render transparent black: whatever
  // the output held before must be gone.
  const Image input(24, 16);
  Image output = Filled(24, 16, PF_Pixel{0xEE, 0xEE, 0xEE, 0xEE});
  EXPECT_EQ(Render(input, output), PF_Err_NONE);
  EXPECT_EQ(host->counts().fill, 1);
  EXPECT_TRUE(AllTransparentBlack(output));
}

TEST_F(Commands, AFailedClearEndsTheRender) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  const Image input = Filled(8, 8, PF_Pixel{255, 1, 2, 3});
  Image output = Filled(8, 8, PF_Pixel{0xEE, 0xEE, 0xEE, 0xEE});
  const Image before = output;
  host->faults().fillError = PF_Err_OUT_OF_MEMORY;
  const int64_t allocs = stats->allocCount;
  EXPECT_EQ(Render(input, output), PF_Err_NONE);
  EXPECT_EQ(output.data, before.data);
  EXPECT_EQ(stats->allocCount, allocs);
  EXPECT_EQ(host->ErrorMessage(), "");
}

TEST_F(Commands, EachRenderBuildsAndFreesItsOwnParameters) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  const Image input = Filled(16, 12, PF_Pixel{255, 40, 80, 120});
  Image output(16, 12);
  const int64_t a0 = stats->allocCount;
  ASSERT_EQ(Render(input, output), PF_Err_NONE);
  const int64_t a1 = stats->allocCount;
  ASSERT_EQ(Render(input, output), PF_Err_NONE);
  EXPECT_GE(a1 - a0, 18) << "the parameter array and seventeen objects";
  EXPECT_EQ(stats->allocCount - a1, a1 - a0) << "nothing is cached between calls";
}

TEST_F(Commands, RenderSurvivesEveryAllocationFailing) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  const Image input(16, 12);
  for (int64_t k = 1; k < 400; ++k) {
    Image output = Filled(16, 12, PF_Pixel{0xEE, 0xEE, 0xEE, 0xEE});
    stats->failAt = k;
    ASSERT_EQ(Render(input, output), PF_Err_NONE) << "failing allocation " << k;
    EXPECT_TRUE(AllTransparentBlack(output)) << "failing allocation " << k;
    const bool failed = stats->failAt == 0;
    stats->failAt = 0;
    if (!failed) break;  // the render needed fewer than k allocations
  }
}

TEST_F(Commands, ZeroDownsampleDenominatorDoesNotTrap) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  host->SetDownsample(1, 0, 0, 0);
  const Image input = Filled(8, 6, PF_Pixel{255, 9, 9, 9});
  Image output(8, 6);
  EXPECT_EQ(Render(input, output), PF_Err_NONE);
}

}  // namespace
}  // namespace tarvo::host
