// Every fault a render can meet, injected one at a time through the built
// module, for each displacement-field branch (circular, stretched along an
// axis, stretched at an angle) and each sampling mode (area, bilinear,
// nearest): each allocation fails in turn, the host asks to stop at each
// progress call in turn, and the host's world callbacks fail.
#include <stdio.h>

#include <ostream>
#include <string>
#include <vector>

#include "module_test.h"

namespace tarvo::host {
namespace {

// Rows of 269 bytes: host rows need not start 4-byte aligned (a stop
// during the last output row once cleared such rows through misaligned
// words).
constexpr int kW = 64, kH = 48, kRowBytes = kW * 4 + 13;

struct Case {
  const char* name;
  int stretch;       // as shown
  int stretchAngle;  // degrees as shown
  int antialias;     // 1 High, 2 Med, 3 Low
  PF_Quality quality;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// High antialias at high quality samples areas, Med samples bilinearly, Low
// at low quality takes the nearest pixel.
const Case kCases[] = {
    {"circular_area", 0, 90, 1, PF_Quality_HI},    {"circular_bilinear", 0, 90, 2, PF_Quality_HI},
    {"circular_nearest", 0, 90, 3, PF_Quality_LO}, {"axis_area", 50, 90, 1, PF_Quality_HI},
    {"axis_bilinear", 50, 90, 2, PF_Quality_HI},   {"axis_nearest", 50, 90, 3, PF_Quality_LO},
    {"rotated_area", 50, 30, 1, PF_Quality_HI},    {"rotated_bilinear", 50, 30, 2, PF_Quality_HI},
    {"rotated_nearest", 50, 30, 3, PF_Quality_LO},
};

class FaultMatrix : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  }
  void Apply(const Case& c) {
    host->Param(kStretch).u.fd.value = c.stretch * kOne;
    host->Param(kStretchAngle).u.ad.value = c.stretchAngle * kOne;
    host->Param(kAntialias).u.pd.value = c.antialias;
    host->SetQuality(c.quality);
  }

  // Renders into an output whose every byte starts as kGuard.
  Image RenderNow() {
    Image out = Guarded(kW, kH, kRowBytes);
    EXPECT_EQ(Render(input, out), PF_Err_NONE);
    return out;
  }

  const Image input = Pattern(kW, kH, kRowBytes);
};

// The matrix means something only if its nine settings render nine
// different pictures.
TEST_F(FaultMatrix, TheNineSettingsRenderNineDifferentPictures) {
  std::vector<std::vector<uint8_t>> seen;
  for (const Case& c : kCases) {
    Apply(c);
    const Image out = RenderNow();
    for (const auto& other : seen) EXPECT_NE(out.data, other) << c.name;
    seen.push_back(out.data);
  }
}

// The render wraps the host's images; it never asks for a world, a copy or
// a layer, so those callbacks fail throughout and must never be called.
class RenderFaults : public FaultMatrix, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    FaultMatrix::SetUp();
    Apply(GetParam());
    host->Faults().newWorldError = PF_Err_OUT_OF_MEMORY;
    host->Faults().copyError = PF_Err_INTERNAL_STRUCT_DAMAGED;
    host->Faults().checkoutError = PF_Err_INVALID_INDEX;
  }
  void TearDown() override {
    EXPECT_EQ(host->Counts().newWorld + host->Counts().copy + host->Counts().checkout, 0);
    FaultMatrix::TearDown();
  }
};

TEST_P(RenderFaults, EachAllocationFailingInTurnLeavesTransparentBlackAndNoBlock) {
  const int64_t start = stats->allocCount;
  const Image clean = RenderNow();
  const int64_t allocations = stats->allocCount - start;
  ASSERT_FALSE(AllTransparentBlack(clean));
  ASSERT_GT(allocations, 20);
  printf("[ faults   ] %s: %lld allocation points\n", GetParam().name, static_cast<long long>(allocations));

  for (int64_t k = 1; k <= allocations; ++k) {
    SCOPED_TRACE(::testing::Message() << "allocation " << k << " of " << allocations);
    stats->failAt = k;
    const int sprintfs = host->Counts().sprintf;
    const Image out = RenderNow();
    EXPECT_EQ(stats->failAt, 0) << "the allocation was made";
    // The first two blocks are the records of the output and input Worlds:
    // an image that cannot be wrapped is empty, renders nothing and says
    // nothing. Every later failure is reported, once.
    const bool world = k <= 2;
    EXPECT_EQ(host->ErrorMessage(), world ? "" : "Memory Allocation Failure!");
    EXPECT_EQ(host->Counts().sprintf - sprintfs, world ? 0 : 1);
    EXPECT_TRUE(AllTransparentBlack(out));
  }
  // One past the last: nothing fails and the render is the clean one.
  stats->failAt = allocations + 1;
  const Image again = RenderNow();
  EXPECT_EQ(stats->failAt, 1);
  stats->failAt = 0;
  EXPECT_EQ(again.data, clean.data);
  EXPECT_EQ(host->ErrorMessage(), "");
}

TEST_P(RenderFaults, AStopAtEachProgressCallInTurnLeavesTransparentBlackAndNoMessage) {
  const int start = host->Counts().progress;
  const Image clean = RenderNow();
  const int calls = host->Counts().progress - start;
  // One question a row on one thread, one a band on several.
  ASSERT_GT(calls, Threads() > 1 ? 8 : kH);
  printf("[ faults   ] %s: %d stop points\n", GetParam().name, calls);

  for (int s = 1; s <= calls; ++s) {
    SCOPED_TRACE(::testing::Message() << "stop at progress call " << s << " of " << calls);
    const int before = host->Counts().progress;
    host->Faults().stopAtProgress = before + s;
    const int sprintfs = host->Counts().sprintf;
    const Image out = RenderNow();
    EXPECT_EQ(host->Counts().progress - before, s) << "no question after the stop";
    EXPECT_TRUE(AllTransparentBlack(out));
    EXPECT_EQ(host->ErrorMessage(), "");
    EXPECT_EQ(host->Counts().sprintf, sprintfs);
  }
  host->Faults().stopAtProgress = 0;
  EXPECT_EQ(RenderNow().data, clean.data);
}

INSTANTIATE_TEST_SUITE_P(BranchByMode, RenderFaults, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });

}  // namespace
}  // namespace tarvo::host
