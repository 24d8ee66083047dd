// Every fault a render can meet, injected one at a time through the built
// module, for each displacement-field branch (circular, stretched along an
// axis, stretched at an angle) and each sampling mode (area, bilinear,
// nearest): each allocation fails in turn, the host asks to stop at each
// progress call in turn, and the host's world callbacks fail.
#include <stdio.h>
#include <string.h>

#include <ostream>
#include <string>
#include <vector>

#include "../plugin/plugin_fixture.h"

namespace tarvo::host {
namespace {

constexpr int kW = 64, kH = 48, kRowBytes = kW * 4 + 12;
constexpr uint8_t kGuard = 0xEE;
constexpr int kStretch = 9, kStretchAngle = 10, kAntialias = 13;

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
    {"circular_area", 0, 90, 1, PF_Quality_HI},       {"circular_bilinear", 0, 90, 2, PF_Quality_HI},
    {"circular_nearest", 0, 90, 3, PF_Quality_LO},    {"axis_area", 50, 90, 1, PF_Quality_HI},
    {"axis_bilinear", 50, 90, 2, PF_Quality_HI},      {"axis_nearest", 50, 90, 3, PF_Quality_LO},
    {"rotated_area", 50, 30, 1, PF_Quality_HI},       {"rotated_bilinear", 50, 30, 2, PF_Quality_HI},
    {"rotated_nearest", 50, 30, 3, PF_Quality_LO},
};

// Row padding holds kGuard in the input too: a whole-row copy carries it.
Image Pattern() {
  Image img(kW, kH, kRowBytes);
  memset(img.data.data(), kGuard, img.data.size());
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      img.At(y, x) = PF_Pixel{static_cast<uint8_t>(255 - x), static_cast<uint8_t>(x * 4), static_cast<uint8_t>(y * 5),
                              static_cast<uint8_t>((x * y) & 255)};
  return img;
}

bool AllTransparentBlack(const Image& img) {
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x) {
      const PF_Pixel& p = img.At(y, x);
      if (p.alpha || p.red || p.green || p.blue) return false;
    }
  return true;
}

bool PaddingIntact(const Image& img) {
  for (int y = 0; y < img.height; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(img.Row(y));
    for (int i = img.width * 4; i < img.rowbytes; ++i)
      if (row[i] != kGuard) return false;
  }
  return true;
}

class FaultMatrix : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  }
  void Apply(const Case& c) {
    host->Param(kStretch).u.fd.value = c.stretch * 65536;
    host->Param(kStretchAngle).u.ad.value = c.stretchAngle * 65536;
    host->Param(kAntialias).u.pd.value = c.antialias;
    host->SetQuality(c.quality);
  }

  // Renders into an output whose every byte starts as kGuard.
  Image RenderNow() {
    Image out(kW, kH, kRowBytes);
    memset(out.data.data(), kGuard, out.data.size());
    EXPECT_EQ(Render(input, out), PF_Err_NONE);
    EXPECT_TRUE(PaddingIntact(out));
    return out;
  }

  const Image input = Pattern();
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

class RenderFaults : public FaultMatrix, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    FaultMatrix::SetUp();
    Apply(GetParam());
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
    const int sprintfs = host->counts().sprintf;
    const Image out = RenderNow();
    EXPECT_EQ(stats->failAt, 0) << "the allocation was made";
    // The first two blocks are the records of the output and input Worlds:
    // an image that cannot be wrapped is empty, renders nothing and says
    // nothing. Every later failure is reported, once.
    const bool world = k <= 2;
    EXPECT_EQ(host->ErrorMessage(), world ? "" : "Memory Allocation Failure!");
    EXPECT_EQ(host->counts().sprintf - sprintfs, world ? 0 : 1);
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
  const int start = host->counts().progress;
  const Image clean = RenderNow();
  const int calls = host->counts().progress - start;
  ASSERT_GT(calls, kH);
  printf("[ faults   ] %s: %d stop points\n", GetParam().name, calls);

  for (int s = 1; s <= calls; ++s) {
    SCOPED_TRACE(::testing::Message() << "stop at progress call " << s << " of " << calls);
    const int before = host->counts().progress;
    host->faults().stopAtProgress = before + s;
    const int sprintfs = host->counts().sprintf;
    const Image out = RenderNow();
    EXPECT_EQ(host->counts().progress - before, s) << "no question after the stop";
    EXPECT_TRUE(AllTransparentBlack(out));
    EXPECT_EQ(host->ErrorMessage(), "");
    EXPECT_EQ(host->counts().sprintf, sprintfs);
  }
  host->faults().stopAtProgress = 0;
  EXPECT_EQ(RenderNow().data, clean.data);
}

// The render wraps the host's images; it never asks for a world, a copy or
// a layer, so failing those changes nothing.
TEST_P(RenderFaults, FailingWorldCopyAndCheckoutCallbacksChangeNothing) {
  const Image clean = RenderNow();
  host->faults().newWorldError = PF_Err_OUT_OF_MEMORY;
  host->faults().copyError = PF_Err_INTERNAL_STRUCT_DAMAGED;
  host->faults().checkoutError = PF_Err_INVALID_INDEX;
  const Image out = RenderNow();
  EXPECT_EQ(out.data, clean.data);
  EXPECT_EQ(host->ErrorMessage(), "");
  EXPECT_EQ(host->counts().newWorld + host->counts().copy + host->counts().checkout, 0);
}

INSTANTIATE_TEST_SUITE_P(BranchByMode, RenderFaults, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });

}  // namespace
}  // namespace tarvo::host
