// The renderer object: angle and centre normalisation, quadrant sizing and
// the ellipse spans. Its allocation failures are injected through the
// module in tests/faults.
#include <gtest/gtest.h>
#include <math.h>

#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::Inputs;
using rendertest::Rendered;

TEST(RendererSetup, StretchAngleRoundsHalfAwayAndNormalisesInto0To359) {
  const float in[] = {-360.0f, -90.0f, 359.6f, 359.4f, -1.0f, -0.5f, 0.5f, 720.0f, -32768.0f};
  const int32_t out[] = {0, 270, 0, 359, 359, 359, 1, 0, 352};
  for (size_t i = 0; i < sizeof in / sizeof in[0]; ++i) EXPECT_EQ(NormaliseStretchAngle(in[i]), out[i]) << in[i];
  const int32_t nan = NormaliseStretchAngle(NAN);  // any angle, but in range
  EXPECT_TRUE(nan >= 0 && nan < 360);
}

// On a 640 × 480 frame; the shifts are the buffer columns of the centre's
// reflections.
TEST(RendererSetup, CentreRoundedHalfAwayAndClampedFromAboveOnly) {
  const struct {
    float row, col;
    int32_t centreRow, centreCol;
    float centreY;
    int32_t leftShift, rightShift;
  } cases[] = {{479.5f, 700.2f, 479, 639, 479.5f, 1, 1279}, {-30.5f, -5.4f, -31, -5, -30.5f, 645, 635}};
  for (const auto& c : cases) {
    Inputs in;
    in.centreRow = c.row, in.centreCol = c.col;
    Rendered r(640, 480, in);
    EXPECT_EQ(r->centreRow, c.centreRow);
    EXPECT_EQ(r->centreCol, c.centreCol);
    EXPECT_EQ(r->centreY, c.centreY);
    EXPECT_EQ(r->leftShift, c.leftShift);
    EXPECT_EQ(r->rightShift, c.rightShift);
  }
}

// Radius 50 (outer radius 100) about the middle of a 600 × 600 frame.
TEST(RendererSetup, AxisStretchGrowsTheStretchedAxisOnly) {
  const struct {
    float stretch, angle;
    int32_t cols, rows;
  } cases[] = {{2, 0, 200, 100}, {2, 90, 100, 200}, {0.5f, 0, 100, 100}};  // a squeeze keeps the circle's size
  for (const auto& c : cases) {
    Inputs in;
    in.centreRow = 300, in.centreCol = 300, in.radiusPx = 50, in.stretch = c.stretch, in.stretchAngle = c.angle;
    Rendered r(600, 600, in);
    EXPECT_EQ(r->quadCols, c.cols) << c.stretch << " " << c.angle;
    EXPECT_EQ(r->quadRows, c.rows) << c.stretch << " " << c.angle;
  }
}

TEST(RendererSetup, SqueezedRotatedStretchBuildsTheCircle) {
  Inputs in;
  in.centreRow = 50, in.centreCol = 60, in.radiusPx = 10, in.stretch = 0.5f, in.stretchAngle = 45;
  Rendered r(120, 100, in);
  ASSERT_TRUE(r->ready);
  EXPECT_EQ(r->spans->stretch, 1.0f);
  EXPECT_EQ(r->spans->rows, 51);  // max(50, 100 − 50 − 1) + 1
  EXPECT_EQ(r->quadCols, 242);
  // Chords of the circle of radius 20 about buffer column width.
  for (int32_t j = 0; j < r->spans->rows; ++j) {
    const double y = j + 0.5;
    if (fabs(y - 20) < 0.01) continue;
    ASSERT_EQ(r->spans->hasSpan[j], y < 20) << j;
    if (y > 20) continue;
    EXPECT_NEAR(r->spans->firstCol[j], 120 - sqrt(400.0 - y * y), 1.0) << j;
    EXPECT_NEAR(r->spans->lastCol[j], 120 + sqrt(400.0 - y * y), 1.0) << j;
  }
}

}  // namespace
}  // namespace tarvo
