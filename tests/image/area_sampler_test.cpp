// The area sampler: coverage weights, the weight-255 rule, colour over the
// inside part and alpha over the whole box, and boxes beyond the limits of
// 32-bit sums. The sampling golden pins it on a whole frame.
#include "area_sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "fixed_point.h"
#include "test_picture.h"

namespace tarvo {
namespace {

using testing::Picture;
using testing::PixelIs;

// Samples the box with corners (top, left) and (bottom, right).
PF_Pixel SampleBox(const Picture& t, float top, float left, float bottom, float right) {
  const float upper[4] = {top, left, top, right}, lower[4] = {bottom, left, bottom, right};
  return AreaSampleQuad(t.image, upper, lower);
}

TEST(AreaSampler, BoxesWithKnownResults) {
  Picture t(6, 5);
  t.Randomize(1);
  t.At(2, 3) = PF_Pixel{255, 200, 100, 0};
  // Within one pixel: row and column weights are both 192 − 64 = 128, and
  // 255 stays 255 through the clamp.
  EXPECT_TRUE(PixelIs(SampleBox(t, 2.25f, 3.25f, 2.75f, 3.75f), 255, 200, 100, 0));
  const PixelSum row = RowBoxSum(t.image.RowAt(2).Pixels(), FloatToFixed(3.25), FloatToFixed(0.5), 6);
  EXPECT_EQ(row.red, 200u * 128);
  // A weight of 255 counts fully: a left edge 1/256 into column 0 sums as
  // the box starting exactly at 0.
  const PixelSum cut = RowBoxSum(t.image.RowAt(0).Pixels(), 256, 2 * 65536 - 256, 6);
  EXPECT_EQ(cut.green, (uint64_t(t.At(0, 0).green) + t.At(0, 1).green) * 256);

  t.Fill(PF_Pixel{255, 40, 150, 255});
  EXPECT_TRUE(PixelIs(SampleBox(t, 0, 0, 2, 2), 255, 40, 150, 255));  // exact pixel edges
  EXPECT_TRUE(PixelIs(SampleBox(t, 1, 3, 5, 6), 255, 40, 150, 255));  // up to the far edges
  // Half outside: colour averaged over the inside column, alpha over the box.
  EXPECT_TRUE(PixelIs(SampleBox(t, 0, -1, 2, 1), 128, 40, 150, 255));
  EXPECT_TRUE(PixelIs(SampleBox(t, 4, 2, 6, 3), 128, 40, 150, 255));
  for (const auto& b : {std::array<float, 4>{10, 10, 12, 12}, {-5, -5, -3, -3}, {1, 6, 2, 8}, {-3, 1, -1, 2}})
    EXPECT_TRUE(PixelIs(SampleBox(t, b[0], b[1], b[2], b[3]), 0, 0, 0, 0)) << b[0] << "," << b[1];
  const float unit[4] = {0, 0, 0, 1}, below[4] = {1, 0, 1, 1};
  EXPECT_TRUE(PixelIs(AreaSampleQuad(PixelImage(), unit, below), 0, 0, 0, 0));
}

// Only the bounding box counts: all 24 orders of four points.
TEST(AreaSampler, PointOrderDoesNotMatter) {
  Picture t(6, 5);
  t.Randomize(3);
  std::array<std::array<float, 2>, 4> p{{{1.3f, 2.7f}, {0.4f, 3.9f}, {2.2f, 1.1f}, {1.9f, 2.0f}}};
  std::sort(p.begin(), p.end());
  auto sample = [&] {
    const float upper[4] = {p[0][0], p[0][1], p[1][0], p[1][1]}, lower[4] = {p[2][0], p[2][1], p[3][0], p[3][1]};
    return AreaSampleQuad(t.image, upper, lower);
  };
  const PF_Pixel first = sample();
  while (std::next_permutation(p.begin(), p.end())) EXPECT_TRUE(PixelIs(sample(), first));
}

// 1,080,000 whole pixels of 255: 32-bit sums would wrap many times over.
TEST(AreaSampler, HugeBoxesDoNotWrap) {
  Picture big(1200, 900);
  big.Fill(PF_Pixel{255, 255, 200, 3});
  EXPECT_TRUE(PixelIs(SampleBox(big, 0, 0, 900, 1200), 255, 255, 200, 3));
  EXPECT_TRUE(PixelIs(SampleBox(big, 0.5f, 0.5f, 899.5f, 1199.5f), 255, 255, 200, 3));
}

// Not-finite and huge points run through the span tests; here what such
// boxes give.
TEST(AreaSampler, HugeBoxesAndEdgesBeyondFixedPoint) {
  Picture t(8, 8);
  t.Fill(PF_Pixel{255, 60, 70, 80});
  // A box 30,000 rows tall keeps the colour; its alpha is the image's share.
  EXPECT_TRUE(PixelIs(SampleBox(t, -1.5e4f, 0, 1.5e4f, 8), 0, 60, 70, 80));
  // Edges that do not fit 16.16 turn into INT32_MIN: nothing is read.
  EXPECT_TRUE(PixelIs(BoxSample(t.image, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 1.0f), 0, 0, 0, 0));
  EXPECT_TRUE(PixelIs(BoxSample(t.image, 0, INT32_MAX, 0, INT32_MAX, 64.0f), 0, 60, 70, 80));
}

}  // namespace
}  // namespace tarvo
