// The renderer object: angle and centre normalisation. Quadrant sizes and
// ellipse spans show in the field goldens, allocation failures in
// tests/faults.
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

}  // namespace
}  // namespace tarvo
