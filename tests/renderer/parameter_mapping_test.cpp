// From parameter values to the renderer's inputs in source pixels.
#include <gtest/gtest.h>

#include "render_ripple.h"
#include "source_map.h"

namespace tarvo {
namespace {

TEST(StretchMapping, ZeroIsNoStretchAndTheFloorCatchesMinus100) {
  EXPECT_EQ(StretchFactor(0.0), 1.0f);
  EXPECT_EQ(StretchFactor(10.0), 2.0f);
  EXPECT_EQ(StretchFactor(-10.0), 0.5f);
  EXPECT_EQ(StretchFactor(-100.0), static_cast<float>(1.0 / 11.0));
  EXPECT_EQ(FloorStretch(StretchFactor(-100.0)), 0.1f);
  // −90 gives exactly the single-precision 0.1, which is not below 0.1.
  EXPECT_EQ(StretchFactor(-90.0), 0.1f);
  EXPECT_EQ(FloorStretch(0.1f), 0.1f);
  EXPECT_EQ(FloorStretch(0.0999f), 0.1f);
  EXPECT_EQ(FloorStretch(3.0f), 3.0f);
}

TEST(Intensity, SuperScalesWidthByFiveAndHeightsByTenLowLeavesWidth) {
  float wh = 0.03125f, ah = 0.2f, ww = 0.0625f;
  ScaleByIntensity(kIntensitySuper, wh, ah, ww);
  EXPECT_EQ(wh, 0.3125f);
  EXPECT_EQ(ah, 2.0f);
  EXPECT_EQ(ww, 0.3125f);

  wh = 0.03125f, ah = 0.2f, ww = 0.0625f;
  ScaleByIntensity(kIntensityLow, wh, ah, ww);
  EXPECT_EQ(wh, static_cast<float>(0.03125f * static_cast<double>(0.1f)));
  EXPECT_EQ(ah, static_cast<float>(0.2f * static_cast<double>(0.1f)));
  EXPECT_EQ(ww, 0.0625f);

  // Normal, and indices no menu produces, leave everything alone.
  for (int32_t intensity : {1, 3, 255, -1}) {
    wh = 0.03125f, ah = 0.2f, ww = 0.0625f;
    ScaleByIntensity(intensity, wh, ah, ww);
    EXPECT_EQ(wh, 0.03125f) << intensity;
    EXPECT_EQ(ah, 0.2f) << intensity;
    EXPECT_EQ(ww, 0.0625f) << intensity;
  }
}

TEST(SamplingModeTable, HighOnlyAtHighQualityLowOnlyBelowIt) {
  // quality 2 (host high quality): High, Med, Low.
  EXPECT_EQ(ChooseSamplingMode(2, 0), kSampleArea);
  EXPECT_EQ(ChooseSamplingMode(2, 1), kSampleBilinear);
  EXPECT_EQ(ChooseSamplingMode(2, 2), kSampleBilinear);
  // quality 1 (any other host quality).
  EXPECT_EQ(ChooseSamplingMode(1, 0), kSampleBilinear);
  EXPECT_EQ(ChooseSamplingMode(1, 1), kSampleBilinear);
  EXPECT_EQ(ChooseSamplingMode(1, 2), kSampleNearest);
  // An antialias index beyond the menu samples bilinearly.
  EXPECT_EQ(ChooseSamplingMode(2, 200), kSampleBilinear);
  EXPECT_EQ(ChooseSamplingMode(1, 200), kSampleBilinear);
}

TEST(PixelConversions, DegreesPerPixelDivisorIsFlooredAtOne) {
  // One pixel wide at wave width 0.5: 0.5 < 1, so 180 degrees per pixel.
  EXPECT_EQ(ToSourcePixels(1, 1, 0, 0, 0.5f, 0, 0, 0).degreesPerPixel, 180.0f);
  EXPECT_EQ(ToSourcePixels(640, 480, 0, 0, 0.0f, 0, 0, 0).degreesPerPixel, 180.0f);
  // 0.0625 × 640 = 40 pixels per half wave.
  EXPECT_EQ(ToSourcePixels(640, 480, 0, 0, 0.0625f, 0, 0, 0).degreesPerPixel, 4.5f);
}

TEST(PixelConversions, HeightsUseTheIntegerHalfWidthAndTheCentreRowTheHeight) {
  const RippleLengths odd = ToSourcePixels(641, 101, 0.25f, 0.125f, 0.0f, 0.25f, 0.5f, 0.5f);
  EXPECT_EQ(odd.waveHeightPx, 80.0f);      // 0.25 × 320, not × 320.5
  EXPECT_EQ(odd.angularHeightPx, 40.0f);   // 0.125 × 320
  EXPECT_EQ(odd.radiusPx, 160.25f);        // 0.25 × 641
  EXPECT_EQ(odd.centreCol, 320.5f);        // 0.5 × 641
  EXPECT_EQ(odd.centreRow, 50.5f);         // 0.5 × 101
  // A centre outside the frame stays outside; the renderer clamps it.
  const RippleLengths outside = ToSourcePixels(640, 480, 0, 0, 0, 0, -0.25f, 1.5f);
  EXPECT_EQ(outside.centreCol, -160.0f);
  EXPECT_EQ(outside.centreRow, 720.0f);
}

}  // namespace
}  // namespace tarvo
