// Point sampling, the span rules of resampling, the row loops against the
// per-pixel samplers, destinations of other sizes and a stop.
#include <gtest/gtest.h>

#include <math.h>

#include <random>

#include "area_sampler.h"
#include "fixed_point.h"
#include "host_call.h"
#include "output_stage.h"
#include "simd_level.h"
#include "test_picture.h"

namespace tarvo {
namespace {

using testing::HostCall;
using testing::Picture;
using testing::PixelIs;

constexpr PF_Pixel kClear{0, 0, 0, 0};
constexpr PF_Pixel kMark{9, 9, 9, 9};

RenderSetup SetupFor(const Picture& src, int32_t mode) { return RenderSetup{&src.image, src.w, src.h, mode, kClear}; }

// Writes every point of row y in [first, last] at its own grid position
// moved by (dy, dx), and records the span.
void WriteRow(SourceMap& map, int32_t y, int32_t first, int32_t last, float dy = 0, float dx = 0) {
  for (int32_t x = first; x <= last; ++x)
    map.At(y, x) = MapPoint{static_cast<float>(y) + dy, static_cast<float>(x) + dx};
  map.SetRowSpan(y, first, last);
}

// Floor: truncate, and for a negative value with a fraction truncate v − 1;
// values beyond the int32 range and not-a-number as TruncToInt32 has them.
TEST(PointSampling, FloorMatchesItsDefinition) {
  auto byDefinition = [](float v) {
    return v < 0 && fmod(static_cast<double>(v), 1.0) != 0 ? TruncToInt32(v - 1.0) : TruncToInt32(v);
  };
  const float samples[] = {
      2.7f,       -2.0f,       -2.5f,       -0.25f,      0.0f,         -0.0f,          -1e-30f,
      -0.999999f, -1.0000001f, -8388607.5f, -8388608.0f, -16777217.0f, -2147483520.0f, -2147483904.0f,
      0.5f,       1e30f,       -1e30f,      -3e9f,       NAN,          -INFINITY};
  for (float v : samples) EXPECT_EQ(FloorToInt(v), byDefinition(v)) << v;
  EXPECT_EQ(FloorToInt(-2.5f), -3);
}

// IsInsideSource includes row = height and column = width. Nearest
// sampling then rounds (+0.5) to a row or column past the edge and reads
// the background; bilinear rejects them itself and runs toward transparent
// over the last half pixel.
TEST(PointSampling, EdgesOfTheSource) {
  Picture src(12, 8);
  src.Fill(PF_Pixel{255, 200, 100, 50});
  src.At(7, 3) = PF_Pixel{255, 1, 2, 3};
  const RenderSetup s = SetupFor(src, kSampleNearest);
  EXPECT_TRUE(IsInsideSource(s, 8.0f, 12.0f) && IsInsideSource(s, 0.0f, 0.0f));
  for (const auto& [r, c] : {std::pair{8.001f, 3.0f}, {3.0f, 12.001f}, {-0.0001f, 3.0f}, {3.0f, -0.0001f}, {NAN, 3.0f}})
    EXPECT_FALSE(IsInsideSource(s, r, c)) << r << "," << c;
  const struct {
    int32_t mode;
    float row, column;
    PF_Pixel want;
  } cases[] = {{kSampleNearest, 7.4f, 3.0f, {255, 1, 2, 3}},
               {kSampleNearest, 8.0f, 3.0f, kClear},
               {kSampleNearest, 7.5f, 3.0f, kClear},
               {kSampleNearest, 2.0f, 11.5f, kClear},
               {kSampleBilinear, 2.0f, 11.5f, {127, 100, 50, 25}},
               {kSampleBilinear, 7.5f, 5.0f, {127, 100, 50, 25}},
               {kSampleBilinear, 7.5f, 11.5f, {63, 50, 25, 12}},
               {kSampleBilinear, 3.0f, 5.0f, {255, 200, 100, 50}},
               {kSampleBilinear, 8.0f, 5.0f, kClear}};
  for (const auto& c : cases) {
    PF_Pixel out = kMark;
    SampleMapPoint(SetupFor(src, c.mode), MapPoint{c.row, c.column}, out);
    EXPECT_TRUE(PixelIs(out, c.want)) << c.mode << ": " << c.row << "," << c.column;
  }
}

class Resample : public ::testing::Test {
 protected:
  HostCall call;
};

// Between the columns that a row and the next both wrote, pixels are
// sampled; elsewhere, and in rows that share no column, the source is copied.
TEST_F(Resample, CopiesOutsideTheSharedSpanAndSamplesInside) {
  Picture src(12, 8), dst(12, 8);
  src.Randomize(5);
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleNearest));
  ASSERT_TRUE(map.ok);
  WriteRow(map, 2, 3, 7, 0.0f, 1.0f);  // rows 2 and 3 share columns 4..7
  WriteRow(map, 3, 4, 9, 0.0f, 1.0f);
  WriteRow(map, 5, 0, 3, 0.0f, 1.0f);  // row 5 ends before row 6 starts
  WriteRow(map, 6, 5, 12, 0.0f, 1.0f);
  ResampleOutput(map, dst.image);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      const bool sampled = y == 2 && x >= 4 && x < 7;
      ASSERT_TRUE(PixelIs(dst.At(y, x), src.At(y, sampled ? x + 1 : x))) << y << "," << x;
    }
  EXPECT_EQ(call.progressCalls, 8);  // one stop check per row
}

TEST_F(Resample, IdentityMapReproducesTheSourceInEveryMode) {
  Picture src(16, 10);
  src.Randomize(6);
  for (int x = 0; x < 16; ++x) src.At(3, x).alpha = 255;
  for (int32_t mode : {kSampleArea, kSampleBilinear, kSampleNearest}) {
    Picture dst(16, 10);
    SourceMap map(11, 17, SetupFor(src, mode));
    for (int y = 0; y <= 10; ++y) WriteRow(map, y, 0, 16);
    ResampleOutput(map, dst.image);
    for (int y = 0; y < 10; ++y)
      for (int x = 0; x < 16; ++x) ASSERT_TRUE(PixelIs(dst.At(y, x), src.At(y, x))) << mode << ": " << y << "," << x;
  }
}

// The row loops at every vector width against the per-pixel samplers on
// maps of random points, some exactly on an edge, on a pixel or not finite:
// every pixel is what SampleMapPoint (point sampling, held to the setup's
// size) or AreaSampleQuad gives.
TEST_F(Resample, RowLoopsMatchThePerPixelSamplers) {
  Picture src(23, 17, 3), dst(23, 17);
  // The last: a setup narrower and shorter than the source image.
  const struct {
    float spread;
    int w, h, maps;
  } runs[] = {{0.0f, 23, 17, 4},  {0.7f, 23, 17, 4}, {3.0f, 23, 17, 4},
              {30.0f, 23, 17, 4}, {2.0f, 19, 12, 1}, {2.0f, 9, 17, 1}};
  uint32_t seed = 1;
  for (const int32_t mode : {kSampleArea, kSampleBilinear, kSampleNearest}) {
    for (const auto& [spread, w, h, maps] : runs) {
      for (int n = 0; n < maps; ++n, ++seed) {
        src.Randomize(seed);
        const RenderSetup setup{&src.image, w, h, mode, kClear};
        SourceMap map(18, 24, setup);
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> jitter(-spread, spread);
        for (int y = 0; y < 18; ++y) {
          for (int x = 0; x < 24; ++x) {
            MapPoint p{y + jitter(rng), x + jitter(rng)};
            switch (rng() % 40) {
              case 0: p.row = static_cast<float>(h); break;
              case 1: p.column = static_cast<float>(w); break;
              case 2: p.column = w - 0.5f; break;
              case 3: p.row = -0.0f; break;
              case 4: p.row = std::nextafter(static_cast<float>(h), 0.0f); break;
              case 5: p.column = NAN; break;
              case 6: p.row = -INFINITY; break;
              case 7: p.row = std::round(p.row) - 0.5f; break;  // rounds half up in nearest sampling
              case 8: p.row = 1e30f; break;
              case 9: p = MapPoint{static_cast<float>(y % h), static_cast<float>(x % w)}; break;  // on a pixel
            }
            map.At(y, x) = p;
          }
          map.SetRowSpan(y, 0, 23);
        }
        for (const SimdLevel level : {SimdLevel::kScalar, SimdLevel::kSse2, SimdLevel::kAvx2}) {
          LimitSimd(level);
          map.setup.simd = ActiveSimd();  // the widest the processor has, up to level
          ResampleOutput(map, dst.image);
          for (int y = 0; y < 17; ++y)
            for (int x = 0; x < 23; ++x) {
              PF_Pixel want = kClear;
              const MapPoint a = map.At(y, x), b = map.At(y, x + 1), c = map.At(y + 1, x), d = map.At(y + 1, x + 1);
              const float upper[4] = {a.row, a.column, b.row, b.column}, lower[4] = {c.row, c.column, d.row, d.column};
              if (mode == kSampleArea)
                want = AreaSampleQuad(src.image, upper, lower);
              else
                SampleMapPoint(setup, a, want);
              ASSERT_TRUE(PixelIs(dst.At(y, x), want))
                  << "mode " << mode << " width " << static_cast<int>(level) << " seed " << seed << " at " << y << ","
                  << x << ": point (" << a.row << ", " << a.column << ")";
            }
        }
        LimitSimd(SimdLevel::kAvx2);
      }
    }
  }
}

// The host hands over images of equal size; anything else stays inside what
// both images hold. A whole-row copy takes the source's stride, limited to
// the destination row; beyond the source nothing is written; a setup that
// claims more than the source image holds is held to the image.
TEST_F(Resample, OtherSizesStayInsideBothImages) {
  Picture src(12, 8, 3);  // stride 15
  src.Randomize(7);
  Picture narrow(6, 8, 0, 16);  // stride 6, then 16 guard pixels
  narrow.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleArea));
  WriteRow(map, 4, 2, 12);
  WriteRow(map, 5, 2, 12);
  ResampleOutput(map, narrow.image);
  for (size_t i = 0; i < narrow.pixels.size(); ++i)
    EXPECT_TRUE(PixelIs(narrow.pixels[i], i < 48 ? src.At(int(i) / 6, int(i) % 6) : kMark)) << i;

  Picture large(20, 12);
  large.Fill(kMark);
  RenderSetup lying = SetupFor(src, kSampleNearest);
  lying.width = 400, lying.height = 300;
  SourceMap wide(9, 13, lying);
  for (int y = 0; y <= 8; ++y) WriteRow(wide, y, 0, 12, 0.0f, 0.6f);
  ResampleOutput(wide, large.image);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 20; ++x) {
      const PF_Pixel want = y >= 8 || x >= 12 ? kMark : x == 11 ? kClear : src.At(y, x + 1);
      EXPECT_TRUE(PixelIs(large.At(y, x), want)) << y << "," << x;
    }
}

TEST_F(Resample, StopClearsTheDestinationAndBrokenMapsWriteNothing) {
  Picture src(12, 8), dst(12, 8);
  src.Randomize(9);
  dst.Fill(kMark);
  SourceMap map(9, 13, SetupFor(src, kSampleArea));
  for (int y = 0; y <= 8; ++y) WriteRow(map, y, 0, 12);
  call.stopAt = 3;
  ResampleOutput(map, dst.image);
  EXPECT_EQ(map.aborted, 1);
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
  EXPECT_EQ(call.progressCalls, 3);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(PixelIs(p, kClear));

  // An aborted map, a map without buffers, a map without a source.
  dst.Fill(kMark);
  ResampleOutput(map, dst.image);
  SourceMap broken(0, 5, SetupFor(src, kSampleArea));
  ResampleOutput(broken, dst.image);
  RenderSetup none = SetupFor(src, kSampleArea);
  none.source = nullptr;
  SourceMap noSource(9, 13, none);
  for (int y = 0; y <= 8; ++y) WriteRow(noSource, y, 0, 12);
  ResampleOutput(noSource, dst.image);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(PixelIs(p, kMark));
}

}  // namespace
}  // namespace tarvo
