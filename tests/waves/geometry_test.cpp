// Arctangent table and the frame timing read from the current host call.
#include <math.h>
#include <stdint.h>

#include <gtest/gtest.h>

#include "geometry.h"
#include "host_call.h"
#include "wave_table.h"

namespace tarvo {
namespace {

TEST(ArcTanTable, TruncatedEntriesLookupAndHeldInputs) {
  ArcTanTable t;
  EXPECT_EQ(t.built, 0);
  t.Build();
  EXPECT_EQ(t.entries[1], 163);
  t.entries[7] = -1;
  t.Build();  // built once
  EXPECT_EQ(t.entries[7], -1);

  const float top = 51471.0f / 65536.0f;  // π/4 truncated to 16.16: 0.78538513
  const struct {
    float x, value;
  } cases[] = {{0.0f, 0.0f},      {0.5f, 30385.0f / 65536.0f},   // exactly entry 200
               {1.0f, top},       {0.00125f, 81.0f / 65536.0f},  // f = 128: (163 × 128) >> 8
               {-0.5f, 0.0f},     {NAN, 0.0f},
               {1.0000001f, top}, {1.0e30f, top},
               {INFINITY, top}};
  for (const auto& c : cases) EXPECT_EQ(t.Lookup(c.x), c.value) << c.x;
}

TEST(HostTiming, FrameIndexPhaseOffsetAndQuality) {
  testing::HostCall call;
  auto at = [&](int32_t time, int32_t step, uint32_t scale) {
    call.in.current_time = time, call.in.time_step = step, call.in.time_scale = scale;
  };
  const struct {
    int32_t time, step;
    float frame;
  } frames[] = {{299, 100, 2.0f}, {-299, 100, -2.0f}, {99, 100, 0.0f}, {299, 0, 0.0f}, {INT32_MIN, -1, 2147483648.0f}};
  for (const auto& f : frames) {
    at(f.time, f.step, 30);
    EXPECT_EQ(FrameIndex(), f.frame) << f.time << "/" << f.step;
  }
  at(300, 100, 30);  // frame 3
  EXPECT_EQ(FrequencyPhaseOffset(2.5f), 90.0f);
  at(299, 100, 30);  // still frame 2: the frame index is whole
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), 24.0f);
  at(99, 100, 30);  // before the first time step the phase is the Phase parameter
  EXPECT_EQ(FrequencyPhaseOffset(150.0f), 0.0f);
  at(300, 100, 0xFFFFFFFFu);  // time_scale is read as a signed number
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), -1080.0f);
  at(300, 100, 0);  // a zero time_scale divides as IEEE does, without trapping
  EXPECT_EQ(FrequencyPhaseOffset(1.0f), INFINITY);
  EXPECT_TRUE(isnan(FrequencyPhaseOffset(0.0f)));

  for (int32_t q : {int32_t{PF_Quality_HI}, int32_t{PF_Quality_LO}, 2, -1}) {
    call.in.quality = q;
    EXPECT_EQ(RenderQualityLevel(), q == PF_Quality_HI ? 2 : 1) << q;
  }
}

}  // namespace
}  // namespace tarvo
