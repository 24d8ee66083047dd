// ResampleOutput's row loops against the per-pixel samplers: on maps of
// random points, inside, on and beyond the source's edges (also not finite),
// every sampled pixel is what SampleMapPoint (point sampling) or
// AreaSampleQuad (area sampling) gives for it, and for a setup smaller than
// the source image, only the setup's size counts.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "area_sampler.h"
#include "output_stage.h"
#include "output_test_util.h"

namespace tarvo {
namespace {

using outtest::HostCall;
using outtest::Picture;
using outtest::Same;

// A point near grid point (y, x): moved by up to spread, sometimes exactly
// onto an edge value or a value that is not finite.
MapPoint RandomPoint(std::mt19937& rng, int y, int x, float spread, int height, int width) {
  std::uniform_real_distribution<float> jitter(-spread, spread);
  std::uniform_int_distribution<int> pick(0, 39);
  MapPoint p{static_cast<float>(y) + jitter(rng), static_cast<float>(x) + jitter(rng)};
  switch (pick(rng)) {
    case 0: p.row = static_cast<float>(height); break;
    case 1: p.column = static_cast<float>(width); break;
    case 2: p.column = static_cast<float>(width) - 0.5f; break;
    case 3: p.row = -0.0f; break;
    case 4: p.row = std::nextafter(static_cast<float>(height), 0.0f); break;
    case 5: p.column = std::numeric_limits<float>::quiet_NaN(); break;
    case 6: p.row = -std::numeric_limits<float>::infinity(); break;
    case 7: p.row = std::round(p.row) - 0.5f; break;  // rounds half up in nearest sampling
    default: break;
  }
  return p;
}

void ExpectRowsMatch(int32_t mode, int setupWidth, int setupHeight, float spread, uint32_t seed) {
  HostCall call;
  Picture src(23, 17, 3);
  src.Randomize(seed);
  Picture dst(23, 17);
  RenderSetup setup{&src.image, setupWidth, setupHeight, mode, PF_Pixel{0, 0, 0, 0}};
  SourceMap map(18, 24, setup);
  ASSERT_TRUE(map.ok);
  std::mt19937 rng(seed);
  for (int y = 0; y < 18; ++y) {
    for (int x = 0; x < 24; ++x) map.At(y, x) = RandomPoint(rng, y, x, spread, setupHeight, setupWidth);
    map.SetRowSpan(y, 0, 23);
  }
  ResampleOutput(map, dst.image, mode);

  RenderSetup clipped = setup;
  clipped.width = std::min(setupWidth, 23);
  clipped.height = std::min(setupHeight, 17);
  for (int y = 0; y < 17; ++y) {
    for (int x = 0; x < 23; ++x) {
      PF_Pixel want{0, 0, 0, 0};
      if (mode == kSampleArea) {
        const MapPoint a = map.At(y, x), b = map.At(y, x + 1), c = map.At(y + 1, x), d = map.At(y + 1, x + 1);
        want = AreaSampleQuad(src.image, a.row, a.column, b.row, b.column, c.row, c.column, d.row, d.column);
      } else {
        SampleMapPoint(clipped, map.At(y, x), want);
      }
      ASSERT_TRUE(Same(dst.At(y, x), want)) << "mode " << mode << " at " << y << "," << x << ": point ("
                                            << map.At(y, x).row << ", " << map.At(y, x).column << ")";
    }
  }
}

TEST(ResampleRows, EveryModeMatchesThePerPixelSamplers) {
  uint32_t seed = 1;
  for (const int32_t mode : {kSampleArea, kSampleBilinear, kSampleNearest}) {
    for (const float spread : {0.0f, 0.7f, 3.0f, 30.0f}) {
      for (int n = 0; n < 4; ++n) ExpectRowsMatch(mode, 23, 17, spread, seed++);
    }
    // A setup narrower and shorter than the source bounds the point samplers.
    ExpectRowsMatch(mode, 19, 12, 2.0f, seed++);
  }
}

}  // namespace
}  // namespace tarvo
