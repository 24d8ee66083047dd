// Whole renders through the built module, driven as a host drives it:
// frequency and phase, a stop requested between quadrant rows, and every
// allocation of a render failing in turn.
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>

#include "host.h"

namespace tarvo::host {
namespace {

constexpr int kW = 64, kH = 48;

Image Pattern() {
  Image img(kW, kH);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      img.At(y, x) = PF_Pixel{255, static_cast<uint8_t>(x * 4), static_cast<uint8_t>(y * 5),
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

bool SamePixels(const Image& a, const Image& b) {
  for (int y = 0; y < a.height; ++y)
    if (memcmp(a.Row(y), b.Row(y), static_cast<size_t>(a.width) * sizeof(PF_Pixel)) != 0) return false;
  return true;
}

class ModuleRender : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    module = Module::LoadBuilt(&error);
    ASSERT_NE(module, nullptr) << error;
    host = std::make_unique<Host>(module->Entry());
    ASSERT_EQ(host->GlobalSetup(), PF_Err_NONE);
    ASSERT_EQ(host->ParamsSetup(), PF_Err_NONE);
  }

  void SetFixed(int index, double value) { host->Param(index).u.fd.value = static_cast<PF_Fixed>(value * 65536); }
  void SetAngle(int index, double degrees) { host->Param(index).u.ad.value = static_cast<PF_Fixed>(degrees * 65536); }
  void SetPopup(int index, int value1Based) { host->Param(index).u.pd.value = value1Based; }

  Image RenderNow() {
    Image out(kW, kH);
    EXPECT_EQ(host->Render(input, out), PF_Err_NONE);
    return out;
  }

  std::unique_ptr<Module> module;
  std::unique_ptr<Host> host;
  Image input = Pattern();
};

TEST_F(ModuleRender, RipplesTheFrame) {
  const Image out = RenderNow();
  EXPECT_EQ(host->ErrorMessage(), "");
  EXPECT_FALSE(SamePixels(out, input));
  EXPECT_FALSE(AllTransparentBlack(out));
}

TEST_F(ModuleRender, PhaseIsThePhaseParameterUntilTheFirstTimeStep) {
  SetAngle(16, 40.0);  // Phase 40°
  host->SetTime(99, 100, 30);
  SetFixed(7, 0.0);
  const Image still = RenderNow();
  SetFixed(7, 150.0);
  const Image moving = RenderNow();
  EXPECT_TRUE(SamePixels(still, moving));
  // From the first full time step on, Frequency moves the rings.
  host->SetTime(100, 100, 7);
  const Image later = RenderNow();
  EXPECT_FALSE(SamePixels(still, later));
}

TEST_F(ModuleRender, AStopAtQuadrantRowKLeavesTheClearedOutputAndNoMessage) {
  SetPopup(12, 1);  // No Pin: after the field only resampling asks the host
  for (const bool rotated : {false, true}) {
    SetFixed(9, rotated ? 10.0 : 0.0);  // Stretch
    SetAngle(10, rotated ? 120.0 : 90.0);  // Stretch Angle as shown: 90° reads 0
    // Radius 25 % of 64: outer radius 32 px, centre row 24 → 25 quadrant rows.
    for (int k : {1, 2, 13, 25}) {
      const int before = host->counts().progress;
      host->faults().stopAtProgress = before + k;
      const Image out = RenderNow();
      EXPECT_EQ(host->counts().progress - before, k) << rotated << " " << k;
      EXPECT_TRUE(AllTransparentBlack(out)) << rotated << " " << k;
      EXPECT_EQ(host->ErrorMessage(), "") << rotated << " " << k;
    }
    host->faults().stopAtProgress = 0;
    const int before = host->counts().progress;
    RenderNow();
    EXPECT_EQ(host->counts().progress - before, 25 + kH) << rotated;  // field rows, then output rows
  }
}

TEST_F(ModuleRender, EveryAllocationFailureReportsOnceAndLeavesTheClearedOutput) {
  ModuleAllocStats* stats = module->AllocStats();
  ASSERT_NE(stats, nullptr);
  for (const bool rotated : {false, true}) {
    SetFixed(9, rotated ? 10.0 : 0.0);
    SetAngle(10, rotated ? 120.0 : 90.0);
    const int64_t startCount = stats->allocCount;
    const int64_t live = stats->liveBlocks;
    RenderNow();
    const int64_t allocations = stats->allocCount - startCount;
    ASSERT_GT(allocations, 10);
    EXPECT_EQ(stats->liveBlocks, live);
    for (int64_t failAt = 1; failAt <= allocations; ++failAt) {
      SCOPED_TRACE(::testing::Message() << "rotated " << rotated << " failAt " << failAt);
      stats->failAt = failAt;
      const int sprintfs = host->counts().sprintf;
      const Image out = RenderNow();
      EXPECT_EQ(stats->failAt, 0);
      // The first two blocks are the records of the output and input
      // Worlds; a World that cannot wrap leaves an empty image, which
      // renders nothing and reports nothing.
      const bool world = failAt <= 2;
      EXPECT_EQ(host->ErrorMessage(), world ? "" : "Memory Allocation Failure!");
      EXPECT_EQ(host->counts().sprintf - sprintfs, world ? 0 : 1);
      EXPECT_TRUE(AllTransparentBlack(out));
      EXPECT_EQ(stats->liveBlocks, live);
    }
  }
}

// Any 32-bit value in any parameter renders without a fault, a leak or a
// long loop (huge radii and centres far outside are bounded by the frame).
TEST_F(ModuleRender, ExtremeParameterValuesRenderSafely) {
  ModuleAllocStats* stats = module->AllocStats();
  ASSERT_NE(stats, nullptr);
  const PF_Fixed values[] = {INT32_MIN, INT32_MIN + 1, -65536, -1, 0, 1, 7 << 16, INT32_MAX};
  for (int index = 1; index <= 16; ++index) {
    for (PF_Fixed v : values) {
      SCOPED_TRACE(::testing::Message() << "param " << index << " value " << v);
      host->SetParamsToDefaults();
      PF_ParamDef& p = host->Param(index);
      switch (p.param_type) {
        case PF_Param_ANGLE: p.u.ad.value = v; break;
        case PF_Param_POPUP: p.u.pd.value = v; break;
        case PF_Param_POINT: p.u.td.x_value = v, p.u.td.y_value = v; break;
        default: p.u.fd.value = v; break;
      }
      const int64_t live = stats->liveBlocks;
      Image out(kW, kH);
      EXPECT_EQ(host->Render(input, out), PF_Err_NONE);
      EXPECT_EQ(stats->liveBlocks, live);
      const std::string message = host->ErrorMessage();
      EXPECT_TRUE(message.empty() || message == "Memory Allocation Failure!") << message;
    }
  }
  // A zero time scale makes the phase not a number.
  host->SetParamsToDefaults();
  host->SetTime(500, 100, 0);
  Image out(kW, kH);
  EXPECT_EQ(host->Render(input, out), PF_Err_NONE);
}

}  // namespace
}  // namespace tarvo::host
