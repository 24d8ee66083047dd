// From parameter values to the renderer's inputs in source pixels.
#include <gtest/gtest.h>

#include "render_ripple.h"
#include "source_map.h"

namespace tarvo {
namespace {

TEST(ParameterMapping, StretchAndSamplingMode) {
  EXPECT_EQ(StretchFactor(0.0), 1.0f);
  EXPECT_EQ(StretchFactor(10.0), 2.0f);
  EXPECT_EQ(StretchFactor(-10.0), 0.5f);
  EXPECT_EQ(StretchFactor(-100.0), static_cast<float>(1.0 / 11.0));
  EXPECT_EQ(FloorStretch(StretchFactor(-100.0)), 0.1f);
  EXPECT_EQ(FloorStretch(StretchFactor(-90.0)), 0.1f);  // exactly 0.1f, not below it
  EXPECT_EQ(FloorStretch(3.0f), 3.0f);

  // (Intensity shows in the intensity goldens, values outside its menu in
  // tests/robustness.) Rows: host quality level 2 (high), 1 (any other); columns: Antialias
  // High, Med, Low, and an index beyond the menu.
  const int32_t modes[2][4] = {{kSampleArea, kSampleBilinear, kSampleBilinear, kSampleBilinear},
                               {kSampleBilinear, kSampleBilinear, kSampleNearest, kSampleBilinear}};
  for (int q = 0; q < 2; ++q)
    for (int a = 0; a < 4; ++a) EXPECT_EQ(ChooseSamplingMode(2 - q, a == 3 ? 200 : a), modes[q][a]) << q << a;
}

TEST(ParameterMapping, LengthsInSourcePixels) {
  // One pixel wide at wave width 0.5: the divisor 0.5 is floored at 1, so
  // 180 degrees per pixel; 0.0625 × 640 = 40 pixels per half wave.
  EXPECT_EQ(ToSourcePixels(1, 1, 0, 0, 0.5f, 0, 0, 0).degreesPerPixel, 180.0f);
  EXPECT_EQ(ToSourcePixels(640, 480, 0, 0, 0.0625f, 0, 0, 0).degreesPerPixel, 4.5f);
  // Heights use the integer half width (320, not 320.5); the centre row the height.
  const RippleLengths odd = ToSourcePixels(641, 101, 0.25f, 0.125f, 0.0f, 0.25f, 0.5f, 0.5f);
  EXPECT_EQ(odd.waveHeightPx, 80.0f);
  EXPECT_EQ(odd.angularHeightPx, 40.0f);
  EXPECT_EQ(odd.radiusPx, 160.25f);
  EXPECT_EQ(odd.centreCol, 320.5f);
  EXPECT_EQ(odd.centreRow, 50.5f);
  // A centre outside the frame stays outside; the renderer clamps it.
  const RippleLengths outside = ToSourcePixels(640, 480, 0, 0, 0, 0, -0.25f, 1.5f);
  EXPECT_EQ(outside.centreCol, -160.0f);
  EXPECT_EQ(outside.centreRow, 720.0f);
}

}  // namespace
}  // namespace tarvo
