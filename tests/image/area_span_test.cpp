// AreaSampleSpan against AreaSampleQuad pixel by pixel: the row sampler's
// integer path must give every byte the per-pixel sampler gives, for boxes
// inside, across and outside the image, at 1/256 steps, at the limits of
// the integer path and beyond them, and for points that are not finite.
#include <gtest/gtest.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "area_sampler.h"
#include "pixel_image.h"

namespace tarvo {
namespace {

struct SpanImage {
  int w, h, stride;
  std::vector<PF_Pixel> pixels;
  PixelImage image;

  SpanImage(int width, int height, int pad, uint32_t seed)
      : w(width), h(height), stride(width + pad), pixels(static_cast<size_t>(width + pad) * height) {
    std::mt19937 rng(seed);
    for (PF_Pixel& p : pixels) {
      const uint32_t v = rng();
      // Some pixels at the channel extremes, where the clamps act.
      const uint32_t m = (v & 7) == 0 ? 0xFFFFFFFFu : (v & 7) == 1 ? 0u : v;
      p = PF_Pixel{uint8_t(m), uint8_t(m >> 8), uint8_t(m >> 16), uint8_t(m >> 24)};
    }
    image.Wrap(int16_t(w), int16_t(h), stride * 4, pixels.data(), AllRows);
  }
};

// Samples a line of count pixels from two lines of points and compares
// every pixel with AreaSampleQuad; returns the number of mismatches.
int Mismatches(const SpanImage& img, const std::vector<float>& upper, const std::vector<float>& lower) {
  const int count = static_cast<int>(upper.size() / 2) - 1;
  std::vector<PF_Pixel> got(static_cast<size_t>(count), PF_Pixel{7, 7, 7, 7});
  AreaSampleSpan(img.image, upper.data(), lower.data(), count, got.data());
  int bad = 0;
  for (int k = 0; k < count; ++k) {
    const float* u = &upper[2 * k];
    const float* l = &lower[2 * k];
    const PF_Pixel want = AreaSampleQuad(img.image, u[0], u[1], u[2], u[3], l[0], l[1], l[2], l[3]);
    if (memcmp(&want, &got[static_cast<size_t>(k)], sizeof want) != 0) {
      if (++bad <= 5) {
        ADD_FAILURE() << "pixel " << k << ": corners (" << u[0] << ", " << u[1] << ") (" << u[2] << ", " << u[3]
                      << ") (" << l[0] << ", " << l[1] << ") (" << l[2] << ", " << l[3] << ")";
      }
    }
  }
  return bad;
}

// Random corner lines: each point a grid position moved by up to spread
// pixels, on a 1/256 lattice (quantised) or anywhere.
void RandomLines(std::mt19937& rng, const SpanImage& img, int count, float spread, bool quantised,
                 std::vector<float>& upper, std::vector<float>& lower) {
  std::uniform_real_distribution<float> jitter(-spread, spread);
  std::uniform_int_distribution<int> row(-4, img.h + 4), col(-4, img.w + 4);
  const int y = row(rng), x0 = col(rng) - count / 2;
  upper.resize(2 * static_cast<size_t>(count + 1));
  lower.resize(upper.size());
  auto point = [&](float gy, float gx, float* p) {
    float v = gy + jitter(rng), h = gx + jitter(rng);
    if (quantised) {
      v = std::round(v * 256.0f) / 256.0f;
      h = std::round(h * 256.0f) / 256.0f;
    }
    p[0] = v;
    p[1] = h;
  };
  for (int k = 0; k <= count; ++k) {
    point(static_cast<float>(y), static_cast<float>(x0 + k), &upper[2 * static_cast<size_t>(k)]);
    point(static_cast<float>(y + 1), static_cast<float>(x0 + k), &lower[2 * static_cast<size_t>(k)]);
  }
}

TEST(AreaSampleSpan, MatchesTheQuadSamplerOnRandomBoxes) {
  const SpanImage imgs[] = {SpanImage(61, 37, 0, 1), SpanImage(13, 200, 3, 2), SpanImage(300, 4, 1, 3),
                            SpanImage(1, 1, 0, 4)};
  std::mt19937 rng(12345);
  std::vector<float> upper, lower;
  for (const SpanImage& img : imgs) {
    // Spreads from within a pixel to boxes of hundreds of pixels, which
    // leave the integer path (extent 128 and more).
    for (const float spread : {0.3f, 1.5f, 6.0f, 40.0f, 70.0f, 200.0f}) {
      for (const bool quantised : {true, false}) {
        for (int n = 0; n < 40; ++n) {
          RandomLines(rng, img, 24, spread, quantised, upper, lower);
          ASSERT_EQ(Mismatches(img, upper, lower), 0) << "spread " << spread << " image " << img.w << "x" << img.h;
        }
      }
    }
  }
}

TEST(AreaSampleSpan, MatchesTheQuadSamplerAtEdgesLimitsAndOddValues) {
  const SpanImage img(40, 30, 2, 9);
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  // Each case: one pixel given by its box (top, left, bottom, right).
  const float boxes[][4] = {
      {2.25f, 3.25f, 2.75f, 3.75f},          // within one pixel
      {0, 0, 30, 40},                        // the whole image
      {-0.5f, -0.5f, 0.5f, 0.5f},            // the top left corner, half outside
      {29.5f, 39.5f, 31, 41},                // the bottom right corner
      {-5, -5, -1, -1},                      // wholly outside
      {31, 41, 35, 45},                      // wholly outside, past the far edges
      {0, 0, 0, 0},                          // no extent at all
      {3, 4, 3, 9},                          // no height
      {1.0f / 256, 0, 1 + 255.0f / 256, 1},  // row weights 255
      {5, 5 + 1.0f / 256, 6, 6 - 1.0f / 256},
      {0, 0, 127.99f, 3},                    // just inside the integer path
      {0, 0, 128, 3},                        // just outside it
      {-16383.5f, 2, -16383, 3},             // edges at the path's limit
      {-16384.5f, 2, -16384, 3},             // and beyond
      {1e-40f, 1e-40f, 2, 2},                // denormal edges
      {-0.0f, -0.0f, 1, 1},                  // negative zeros
      {-3e9f, 2, 3e9f, 3},                   // beyond the fixed-point range
      {nan, 2, 3, 4}, {2, nan, 3, 4}, {2, 3, nan, 4},  // not numbers
      {-inf, 2, 3, 4}, {2, 3, inf, inf},
  };
  for (const auto& b : boxes) {
    // The same box twice, its corners in two orders.
    const std::vector<float> upper = {b[0], b[1], b[0], b[3], b[2], b[3]};
    const std::vector<float> lower = {b[2], b[1], b[2], b[3], b[0], b[1]};
    EXPECT_EQ(Mismatches(img, upper, lower), 0) << b[0] << " " << b[1] << " " << b[2] << " " << b[3];
  }
}

TEST(AreaSampleSpan, AnImageWithoutPixelsGivesWhatTheQuadSamplerGives) {
  PixelImage empty;
  const std::vector<float> upper = {0, 0, 0, 1, 0, 2}, lower = {1, 0, 1, 1, 1, 2};
  PF_Pixel got[2] = {{9, 9, 9, 9}, {9, 9, 9, 9}};
  AreaSampleSpan(empty, upper.data(), lower.data(), 2, got);
  for (int k = 0; k < 2; ++k) {
    const PF_Pixel want = AreaSampleQuad(empty, upper[2 * k], upper[2 * k + 1], upper[2 * k + 2], upper[2 * k + 3],
                                         lower[2 * k], lower[2 * k + 1], lower[2 * k + 2], lower[2 * k + 3]);
    EXPECT_EQ(memcmp(&want, &got[k], sizeof want), 0);
  }
}

}  // namespace
}  // namespace tarvo
