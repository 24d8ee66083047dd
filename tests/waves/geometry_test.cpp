// Arctangent table, sine and cosine in degrees, and the frame timing read
// from the current host call.
#include <math.h>
#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include "call_context.h"
#include "geometry.h"
#include "wave_table.h"

namespace tarvo {
namespace {

TEST(ArcTanTable, EntriesAreTruncatedSixteenSixteen) {
  ArcTanTable t;
  EXPECT_EQ(t.built, 0);
  t.Build();
  EXPECT_EQ(t.built, 1);
  EXPECT_EQ(t.entries[0], 0);
  EXPECT_EQ(t.entries[1], 163);
  EXPECT_EQ(t.entries[200], 30385);
  EXPECT_EQ(t.entries[400], 51471);  // π/4 truncated
  EXPECT_EQ(t.step, 0.0025f);
  EXPECT_EQ(t.invStep, 400.0f);
  EXPECT_EQ(t.offset, 0.0f);
}

TEST(ArcTanTable, BuildsOnce) {
  ArcTanTable t;
  t.Build();
  t.entries[7] = -1;
  t.Build();
  EXPECT_EQ(t.entries[7], -1);
}

TEST(ArcTanTable, Lookup) {
  ArcTanTable t;
  t.Build();
  EXPECT_EQ(t.Lookup(0.0f), 0.0f);
  EXPECT_EQ(t.Lookup(0.5f), 30385.0f / 65536.0f);  // exactly entry 200
  EXPECT_EQ(t.Lookup(1.0f), 51471.0f / 65536.0f);  // 0.78538513, last entry with weight 0
  EXPECT_FLOAT_EQ(t.Lookup(1.0f), 0.78538513f);
  // Half a step: f = 128 between entries 0 and 1 gives (163 × 128) >> 8.
  EXPECT_EQ(t.Lookup(0.00125f), 81.0f / 65536.0f);
}

TEST(ArcTanTable, InputsOutsideZeroToOneAreHeld) {
  ArcTanTable t;
  t.Build();
  const float top = 51471.0f / 65536.0f;
  EXPECT_EQ(t.Lookup(-0.5f), 0.0f);
  EXPECT_EQ(t.Lookup(-1.0e30f), 0.0f);
  EXPECT_EQ(t.Lookup(NAN), 0.0f);
  EXPECT_EQ(t.Lookup(1.0000001f), top);
  EXPECT_EQ(t.Lookup(2.0f), top);
  EXPECT_EQ(t.Lookup(1.0e30f), top);
  EXPECT_EQ(t.Lookup(INFINITY), top);
}

TEST(SinCosDeg, ReadTheSineTable) {
  g_sineTable.Build(kSine, false);
  EXPECT_EQ(SinDeg(30.0f), 0.5f);
  EXPECT_EQ(SinDeg(150.0f), 32767.0f / 65536.0f);
  EXPECT_EQ(CosDeg(0.0f), 1.0f);
  EXPECT_EQ(CosDeg(90.0f), 0.0f);
  EXPECT_EQ(CosDeg(-60.0f), SinDeg(30.0f));
  EXPECT_EQ(CosDeg(180.0f), -1.0f);
}

// Installs a PF_InData with the given timing and quality as the current call.
class HostTiming : public ::testing::Test {
 protected:
  void SetUp() override {
    memset(&in_, 0, sizeof in_);
    in_.downsample_x.num = in_.downsample_x.den = 1;
    in_.downsample_y.num = in_.downsample_y.den = 1;
  }
  void TearDown() override { StoreHostCall(PF_Cmd_ABOUT, nullptr, nullptr, nullptr, nullptr, nullptr); }

  void Call(int32_t current_time, int32_t time_step, uint32_t time_scale, int32_t quality = 0) {
    in_.current_time = current_time;
    in_.time_step = time_step;
    in_.time_scale = time_scale;
    in_.quality = quality;
    StoreHostCall(PF_Cmd_RENDER, &in_, nullptr, nullptr, nullptr, nullptr);
  }

  PF_InData in_;
};

TEST_F(HostTiming, FrameIndexTruncatesTowardZero) {
  Call(299, 100, 30);
  EXPECT_EQ(FrameIndex(), 2.0f);
  Call(-299, 100, 30);
  EXPECT_EQ(FrameIndex(), -2.0f);
  Call(299, 0, 30);
  EXPECT_EQ(FrameIndex(), 0.0f);
  Call(INT32_MIN, -1, 30);
  EXPECT_EQ(FrameIndex(), 2147483648.0f);
}

TEST_F(HostTiming, FrequencyPhaseOffset) {
  Call(300, 100, 30);  // frame 3
  EXPECT_EQ(FrequencyPhaseOffset(2.5f), 90.0f);
  EXPECT_EQ(FrequencyPhaseOffset(0.0f), 0.0f);
  Call(299, 100, 30);  // still frame 2: the frame index is whole
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), 24.0f);
  Call(300, 0, 30);
  EXPECT_EQ(FrequencyPhaseOffset(2.5f), 0.0f);
  // time_scale is read as a signed 32-bit number.
  Call(300, 100, 0xFFFFFFFFu);
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), -1080.0f);
  // A zero time_scale gives what IEEE division would, without trapping.
  Call(300, 100, 0);
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), INFINITY);
  EXPECT_EQ(FrequencyPhaseOffset(-1.0f), -INFINITY);
  EXPECT_TRUE(isnan(FrequencyPhaseOffset(0.0f)));
}

TEST_F(HostTiming, RenderQualityLevel) {
  Call(0, 1, 30, PF_Quality_HI);
  EXPECT_EQ(RenderQualityLevel(), 2);
  for (int32_t q : {int32_t{PF_Quality_LO}, 2, -1, 1000}) {
    Call(0, 1, 30, q);
    EXPECT_EQ(RenderQualityLevel(), 1) << q;
  }
}

}  // namespace
}  // namespace tarvo
