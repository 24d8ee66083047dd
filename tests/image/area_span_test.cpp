// AreaSampleSpan against AreaSampleQuad pixel by pixel: the row sampler
// must give every byte the per-pixel sampler gives, for boxes inside,
// across and outside the image, at 1/256 steps, at the limits of its
// integer path and beyond them, and for points that are not finite. Random
// boxes: simd_paths_test, whose narrowest width is the per-pixel sampler.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "area_sampler.h"
#include "test_picture.h"

namespace tarvo {
namespace {

using testing::Picture;

// Samples count pixels from two lines of count + 1 points; returns the
// number of pixels that differ from AreaSampleQuad's.
int Mismatches(const PixelImage& image, const std::vector<float>& upper, const std::vector<float>& lower) {
  const int count = static_cast<int>(upper.size() / 2) - 1;
  std::vector<PF_Pixel> got(static_cast<size_t>(count), PF_Pixel{7, 7, 7, 7});
  AreaSampleSpan(image, upper.data(), lower.data(), count, got.data());
  int bad = 0;
  for (int k = 0; k < count; ++k) {
    const float* u = &upper[2 * k];
    const float* l = &lower[2 * k];
    const PF_Pixel want = AreaSampleQuad(image, u, l);
    if (!testing::Same(want, got[static_cast<size_t>(k)]) && ++bad <= 5)
      ADD_FAILURE() << "pixel " << k << ": corners (" << u[0] << ", " << u[1] << ") (" << u[2] << ", " << u[3] << ") ("
                    << l[0] << ", " << l[1] << ") (" << l[2] << ", " << l[3] << ")";
  }
  return bad;
}

TEST(AreaSampleSpan, MatchesTheQuadSamplerAtEdgesLimitsAndOddValues) {
  Picture img(40, 30, 2);
  img.Randomize(9, true);
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float boxes[][4] = {
      // top, left, bottom, right
      {2.25f, 3.25f, 2.75f, 3.75f},  // within one pixel
      {0, 0, 30, 40},                // the whole image
      {-0.5f, -0.5f, 0.5f, 0.5f},    // the top left corner, half outside
      {29.5f, 39.5f, 31, 41},        // the bottom right corner
      {-5, -5, -1, -1},
      {31, 41, 35, 45},  // wholly outside
      {0, 0, 0, 0},
      {3, 4, 3, 9},                          // no extent, no height
      {1.0f / 256, 0, 1 + 255.0f / 256, 1},  // weights of 255
      {5, 5 + 1.0f / 256, 6, 6 - 1.0f / 256},
      {0, 0, 127.99f, 3},
      {0, 0, 128, 3},  // either side of the integer path's extent
      {-16383.5f, 2, -16383, 3},
      {-16384.5f, 2, -16384, 3},  // at its coordinate limit and beyond
      {1e-40f, 1e-40f, 2, 2},
      {-0.0f, -0.0f, 1, 1},
      {-3e9f, 2, 3e9f, 3},
      {nan, 2, 3, 4},
      {2, nan, 3, 4},
      {2, 3, nan, 4},
      {-inf, 2, 3, 4},
      {2, 3, inf, inf},
  };
  for (const auto& b : boxes) {
    // The same box twice, its corners in two orders.
    const std::vector<float> upper = {b[0], b[1], b[0], b[3], b[2], b[3]};
    const std::vector<float> lower = {b[2], b[1], b[2], b[3], b[0], b[1]};
    EXPECT_EQ(Mismatches(img.image, upper, lower), 0) << b[0] << " " << b[1] << " " << b[2] << " " << b[3];
    EXPECT_EQ(Mismatches(PixelImage(), upper, lower), 0) << "image without pixels";
  }
}

}  // namespace
}  // namespace tarvo
