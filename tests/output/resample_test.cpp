// Point sampling, the span rules of resampling, destinations of other sizes
// and a stop during resampling.
#include <gtest/gtest.h>

#include <math.h>

#include <vector>

#include "fixed_point.h"
#include "output_stage.h"
#include "output_test_util.h"

namespace tarvo {
namespace {

using outtest::HostCall;
using outtest::Picture;
using outtest::Same;
using outtest::SetupFor;
using outtest::WriteRow;

constexpr PF_Pixel kClear{0, 0, 0, 0};
constexpr PF_Pixel kMark{9, 9, 9, 9};

void ExpectPixel(const PF_Pixel& got, int a, int r, int g, int b) {
  EXPECT_EQ(got.alpha, a);
  EXPECT_EQ(got.red, r);
  EXPECT_EQ(got.green, g);
  EXPECT_EQ(got.blue, b);
}

TEST(PointSampling, FloorAndCell) {
  EXPECT_EQ(FloorToInt(2.7f), 2);
  EXPECT_EQ(FloorToInt(-2.0f), -2);
  EXPECT_EQ(FloorToInt(-2.5f), -3);
  EXPECT_EQ(FloorToInt(-0.25f), -1);
  EXPECT_EQ(FloorToInt(0.0f), 0);
  EXPECT_EQ(FloorToInt(-3e9f), INT32_MIN);
  // The definition: truncate, and for a negative value with a fraction
  // truncate v − 1.
  auto byDefinition = [](float v) {
    return v < 0 && fmod(static_cast<double>(v), 1.0) != 0 ? TruncToInt32(v - 1.0) : TruncToInt32(v);
  };
  const float samples[] = {-0.0f, -1e-30f, -0.999999f, -1.0f, -1.0000001f, -8388607.5f, -8388608.0f,
                           -16777217.0f, -2147483520.0f, -2147483904.0f, 0.5f, 1e30f, -1e30f, NAN, -INFINITY};
  for (float v : samples) EXPECT_EQ(FloorToInt(v), byDefinition(v)) << v;

  BilinearWeights w = BilinearCell(2.25f, 3.5f);
  EXPECT_EQ(w.r0, 2);
  EXPECT_EQ(w.r1, 3);
  EXPECT_EQ(w.c0, 3);
  EXPECT_EQ(w.c1, 4);
  EXPECT_EQ(w.w00, 0.375f);
  EXPECT_EQ(w.w01, 0.375f);
  EXPECT_EQ(w.w10, 0.125f);
  EXPECT_EQ(w.w11, 0.125f);

  w = BilinearCell(-0.25f, 5.0f);
  EXPECT_EQ(w.r0, -1);
  EXPECT_EQ(w.w10, 0.75f);
  EXPECT_EQ(w.w00, 0.25f);
  EXPECT_EQ(w.w01, 0.0f);
}

TEST(PointSampling, InsideSourceHasInclusiveUpperBounds) {
  Picture src(12, 8);
  const RenderSetup s = SetupFor(src, kSampleNearest);
  EXPECT_TRUE(IsInsideSource(s, 8.0f, 12.0f));
  EXPECT_TRUE(IsInsideSource(s, 0.0f, 0.0f));
  EXPECT_FALSE(IsInsideSource(s, 8.001f, 3.0f));
  EXPECT_FALSE(IsInsideSource(s, 3.0f, 12.001f));
  EXPECT_FALSE(IsInsideSource(s, -0.0001f, 3.0f));
  EXPECT_FALSE(IsInsideSource(s, 3.0f, -0.0001f));
  EXPECT_FALSE(IsInsideSource(s, NAN, 3.0f));
}

TEST(PointSampling, NearestRoundsWithSixteenBitTruncation) {
  Picture src(12, 8);
  src.Randomize(2);
  src.At(7, 3) = PF_Pixel{255, 1, 2, 3};
  const RenderSetup s = SetupFor(src, kSampleNearest);
  PF_Pixel out = kMark;

  SampleMapPoint(s, MapPoint{7.4f, 3.0f}, out);
  EXPECT_TRUE(Same(out, src.At(7, 3)));
  // Row = height passes the inclusive test but rounds to row 8: background.
  SampleMapPoint(s, MapPoint{8.0f, 3.0f}, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));
  SampleMapPoint(s, MapPoint{7.5f, 3.0f}, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));
  SampleMapPoint(s, MapPoint{2.0f, 11.5f}, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));

  // Truncation toward zero: −0.7 + 0.5 lands on row 0.
  SampleNearest(s, -0.7f, 4.2f, out);
  EXPECT_TRUE(Same(out, src.At(0, 4)));
  SampleNearest(s, -1.6f, 4.2f, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));
  // 65,536.7 keeps its low 16 bits: row 0.
  SampleNearest(s, 65536.2f, 1.0f, out);
  EXPECT_TRUE(Same(out, src.At(0, 1)));
}

TEST(PointSampling, BilinearRunsTowardTransparentAtTheFarEdges) {
  Picture src(12, 8);
  src.Fill(PF_Pixel{255, 200, 100, 50});
  const RenderSetup s = SetupFor(src, kSampleBilinear);
  PF_Pixel out = kMark;

  SampleBilinear(s, 2.0f, 11.5f, out);  // column width − 0.5
  ExpectPixel(out, 127, 100, 50, 25);
  SampleBilinear(s, 7.5f, 4.0f, out);  // row height − 0.5
  ExpectPixel(out, 127, 100, 50, 25);
  SampleBilinear(s, 7.5f, 11.5f, out);
  ExpectPixel(out, 63, 50, 25, 12);
  SampleBilinear(s, 3.0f, 5.0f, out);
  ExpectPixel(out, 255, 200, 100, 50);

  // Row = height: inside for the map point test, rejected by bilinear's own.
  out = kMark;
  SampleMapPoint(s, MapPoint{8.0f, 3.0f}, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));
  SampleBilinear(s, -0.01f, 3.0f, out);
  EXPECT_TRUE(Same(out, g_backgroundPixel));

  src.At(4, 4) = PF_Pixel{10, 10, 0, 0};
  src.At(4, 5) = PF_Pixel{20, 20, 0, 0};
  src.At(5, 4) = PF_Pixel{30, 30, 0, 0};
  src.At(5, 5) = PF_Pixel{41, 41, 0, 0};
  SampleBilinear(s, 4.5f, 4.5f, out);
  ExpectPixel(out, 25, 25, 0, 0);
}

class Resample : public ::testing::Test {
 protected:
  HostCall call;
};

TEST_F(Resample, CopiesOutsideTheSpanAndSamplesInside) {
  Picture src(12, 8);
  src.Randomize(5);
  Picture dst(12, 8);
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleNearest));
  ASSERT_TRUE(map.ok);
  // Rows 2 and 3 share columns 4..7; points look one column to the right.
  WriteRow(map, 2, 3, 7, 0.0f, 1.0f);
  WriteRow(map, 3, 4, 9, 0.0f, 1.0f);
  // Row 5 ends at column 3, row 6 starts at 5: row 5 has no shared span.
  WriteRow(map, 5, 0, 3, 0.0f, 1.0f);
  WriteRow(map, 6, 5, 12, 0.0f, 1.0f);

  ResampleOutput(map, dst.image, kSampleNearest);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      const bool sampled = y == 2 && x >= 4 && x < 7;
      const PF_Pixel& want = sampled ? src.At(y, x + 1) : src.At(y, x);
      EXPECT_TRUE(Same(dst.At(y, x), want)) << y << "," << x;
    }
  EXPECT_EQ(call.progressCalls, 8);  // one stop check per row
}

TEST_F(Resample, IdentityMapReproducesTheSourceInEveryMode) {
  Picture src(16, 10);
  src.Randomize(6);
  for (int x = 0; x < 16; ++x) src.At(3, x).alpha = 255;
  for (int32_t mode : {kSampleArea, kSampleBilinear, kSampleNearest}) {
    Picture dst(16, 10);
    dst.Fill(kMark);
    SourceMap map(11, 17, SetupFor(src, mode));
    ASSERT_TRUE(map.ok);
    for (int y = 0; y <= 10; ++y) WriteRow(map, y, 0, 16);
    ResampleOutput(map, dst.image, mode);
    for (int y = 0; y < 10; ++y)
      for (int x = 0; x < 16; ++x) ASSERT_TRUE(Same(dst.At(y, x), src.At(y, x))) << mode << ": " << y << "," << x;
  }
}

TEST_F(Resample, AreaSamplingAveragesTheCornerBox) {
  Picture src(4, 4);
  src.Fill(PF_Pixel{255, 100, 100, 100});
  src.At(1, 2) = PF_Pixel{255, 200, 0, 100};
  Picture dst(4, 4);
  SourceMap map(5, 5, SetupFor(src, kSampleArea));
  for (int y = 0; y <= 4; ++y) WriteRow(map, y, 0, 4);
  // Output pixel (1, 1) covers source columns 1..2 of row 1.
  map.At(1, 2) = MapPoint{1.0f, 3.0f};
  map.At(2, 2) = MapPoint{2.0f, 3.0f};
  ResampleOutput(map, dst.image, kSampleArea);
  ExpectPixel(dst.At(1, 1), 255, 150, 50, 100);
}

TEST_F(Resample, WholeRowCopyIsLimitedToTheDestinationRow) {
  Picture src(12, 8, 3);  // stride of 15 pixels
  src.Randomize(7);
  Picture dst(6, 8, 0, 16);  // stride of 6 pixels, then 16 guard pixels
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleArea));
  WriteRow(map, 4, 2, 12);
  WriteRow(map, 5, 2, 12);
  ResampleOutput(map, dst.image, kSampleArea);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 6; ++x) EXPECT_TRUE(Same(dst.At(y, x), src.At(y, x))) << y << "," << x;
  for (size_t i = 6 * 8; i < dst.pixels.size(); ++i) EXPECT_TRUE(Same(dst.pixels[i], kMark)) << i;
}

TEST_F(Resample, LargerDestinationKeepsWhatLiesBeyondTheSource) {
  Picture src(12, 8);
  src.Randomize(8);
  Picture dst(20, 12);
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleBilinear));
  for (int y = 0; y <= 8; y += 2) WriteRow(map, y, 0, 12);
  for (int y = 1; y <= 8; y += 2) WriteRow(map, y, 0, 12);
  ResampleOutput(map, dst.image, kSampleBilinear);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 20; ++x) {
      const PF_Pixel& want = y < 8 && x < 12 ? src.At(y, x) : kMark;
      EXPECT_TRUE(Same(dst.At(y, x), want)) << y << "," << x;
    }

  // A setup that claims more than the source image holds is held to the image.
  RenderSetup lying = SetupFor(src, kSampleNearest);
  lying.width = 400;
  lying.height = 300;
  SourceMap wide(9, 13, lying);
  for (int y = 0; y <= 8; ++y) WriteRow(wide, y, 0, 12, 0.0f, 0.6f);
  dst.Fill(kMark);
  ResampleOutput(wide, dst.image, kSampleNearest);
  for (int y = 0; y < 8; ++y) EXPECT_TRUE(Same(dst.At(y, 11), g_backgroundPixel)) << y;
}

TEST_F(Resample, StopClearsTheWholeDestination) {
  Picture src(12, 8);
  src.Randomize(9);
  Picture dst(12, 8);
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleArea));
  for (int y = 0; y <= 8; ++y) WriteRow(map, y, 0, 12);
  call.stopAt = 3;
  ResampleOutput(map, dst.image, kSampleArea);
  EXPECT_EQ(map.aborted, 1);
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
  EXPECT_EQ(call.progressCalls, 3);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(Same(p, kClear));

  // An aborted map resamples nothing.
  dst.Fill(kMark);
  ResampleOutput(map, dst.image, kSampleArea);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(Same(p, kMark));
}

TEST_F(Resample, MapWithoutBuffersOrSourceDoesNothing) {
  Picture src(4, 4);
  Picture dst(4, 4);
  dst.Fill(kMark);
  SourceMap broken(0, 5, SetupFor(src, kSampleArea));
  EXPECT_FALSE(broken.ok);
  ResampleOutput(broken, dst.image, kSampleArea);
  RenderSetup none = SetupFor(src, kSampleArea);
  none.source = nullptr;
  SourceMap noSource(5, 5, none);
  ResampleOutput(noSource, dst.image, kSampleArea);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(Same(p, kMark));
}

}  // namespace
}  // namespace tarvo
