// Pin profiles and pinning of the source map. Which profiles each Pin Mode
// gives shows in the pin goldens, values outside the menu in tests/robustness.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "host_call.h"
#include "output_stage.h"
#include "test_picture.h"

namespace tarvo {
namespace {

std::vector<PinWeight> Profile(int32_t shape, int32_t n) {
  std::vector<PinWeight> p(static_cast<size_t>(n), PinWeight{-7.0f, -7.0f});
  FillPinProfile(shape, n, p.data());
  return p;
}

// Shapes 0 none, 1 both ends, 2 centre, 3 low end, 4 high end. With n
// entries, q = n / 4: on 101 entries q = 25 and the high ramp starts at 76.
// Listed entries have pin num / den (keep 1 − pin); the others are free.
TEST(PinProfile, Shapes) {
  const struct {
    int32_t shape, n, den;
    std::vector<std::array<int, 2>> pins;  // entry, num
    std::vector<std::array<int, 2>> free;  // first, last
  } cases[] = {
      {1, 101, 25, {{0, 25}, {1, 24}, {24, 1}, {76, 0}, {77, 1}, {100, 24}}, {{25, 75}}},
      {2, 101, 25, {{25, 0}, {49, 24}, {50, 26}, {75, 1}}, {{0, 24}, {76, 100}}},  // keep at 50 is −1/25
      {2, 100, 25, {{50, 25}}, {{0, 24}}},                                         // a multiple of 4 peaks at exactly 1
      {2, 4, 1, {{1, 0}, {2, 1}}, {{0, 0}, {3, 3}}},
      {3, 101, 25, {{0, 25}, {24, 1}}, {{25, 100}}},
      {4, 101, 25, {{76, 0}, {100, 24}}, {{0, 75}}},
      {0, 101, 25, {}, {{0, 100}}},
  };
  for (const auto& c : cases) {
    const auto p = Profile(c.shape, c.n);
    for (const auto& [i, num] : c.pins) {
      const float pin = static_cast<float>(static_cast<double>(num) / c.den);
      EXPECT_EQ(p[i].pin, pin) << "shape " << c.shape << " entry " << i;
      EXPECT_EQ(p[i].keep, static_cast<float>(1.0 - pin)) << "shape " << c.shape << " entry " << i;
    }
    for (const auto& [first, last] : c.free)
      for (int i = first; i <= last; ++i) EXPECT_TRUE(p[i].pin == 0.0f && p[i].keep == 1.0f) << c.shape << " " << i;
  }
  for (int shape = 0; shape <= 4; ++shape)  // fewer than 4 entries: q = 0, all free
    for (int n = 1; n <= 3; ++n)
      for (const PinWeight& w : Profile(shape, n)) EXPECT_TRUE(w.pin == 0.0f && w.keep == 1.0f) << shape << " " << n;
}

class Pinning : public ::testing::Test {
 protected:
  Pinning() : src(100, 100), map(101, 101, RenderSetup{&src.image, 100, 100, kSampleArea, {0, 0, 0, 0}}) {}
  void WriteRow(int32_t y, int32_t first, int32_t last, float dy, float dx) {
    for (int32_t x = first; x <= last; ++x) map.At(y, x) = MapPoint{y + dy, x + dx};
    map.SetRowSpan(y, first, last);
  }
  testing::HostCall call;
  testing::Picture src;
  SourceMap map;
};

TEST_F(Pinning, HeldPointsAndRamps) {
  const PinProfiles pins(1, 101, 101);  // Pin Edges
  WriteRow(0, 0, 100, 7.3f, -5.2f);
  WriteRow(50, 76, 100, 3.0f, -4.0f);  // row 50 is free; the span starts at column 76
  map.At(50, 75) = MapPoint{-1.0f, -1.0f};
  PinSourceMap(map, pins);
  // Row 0 has pin 1: every point of it ends exactly at its grid position.
  EXPECT_EQ(map.At(0, 0).row, 0.0f);
  EXPECT_EQ(map.At(0, 0).column, 0.0f);
  EXPECT_EQ(map.At(0, 50).column, 50.0f);
  // The last written column (grid column width) is pulled by its ramp.
  const double pin = static_cast<float>(24.0 / 25), keep = static_cast<float>(1.0 - pin);
  EXPECT_EQ(map.At(50, 100).column, static_cast<float>(100 * pin + 96.0 * keep));
  EXPECT_EQ(map.At(50, 100).row, static_cast<float>(50 * pin + 53.0 * keep));
  EXPECT_EQ(map.At(50, 76).column, 72.0f);  // the ramp starts at 0
  EXPECT_EQ(map.At(50, 75).row, -1.0f);     // outside the span: untouched
}

TEST_F(Pinning, UnwrittenRowsMissingOrShortProfilesAndAStop) {
  WriteRow(3, 0, 100, 1.0f, 1.0f);
  map.At(4, 0) = MapPoint{9.0f, 9.0f};  // row 4 is not written
  const PinProfiles small(1, 5, 5);     // profiles smaller than the map pin what they cover
  PinSourceMap(map, small);
  EXPECT_EQ(map.At(3, 0).column, 0.0f);
  EXPECT_EQ(map.At(3, 100).column, 101.0f);
  EXPECT_EQ(map.At(4, 0).column, 9.0f);

  const PinProfiles pins(1, 101, 101);
  for (int y = 0; y <= 100; ++y) WriteRow(y, 0, 100, 1.0f, 1.0f);
  call.stopAt = call.progressCalls + 3;  // rows 0 and 1 are pinned, then the host asks to stop
  PinSourceMap(map, pins);
  EXPECT_EQ(map.aborted, 1);
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
  EXPECT_EQ(map.At(1, 0).column, 0.0f);
  EXPECT_EQ(map.At(2, 0).column, 1.0f);
}

}  // namespace
}  // namespace tarvo
