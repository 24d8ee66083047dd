// The area sampler's and the pinning's vector widths: every row sampled at
// each width the processor has must give, pixel by pixel, the bytes of the
// per-pixel sampler AreaSampleQuad, on random rows and on rows holding edge
// values; pinned maps must be the same at every width. Point sampling at
// every width: resample_test.
#include <gtest/gtest.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "area_sampler.h"
#include "host_call.h"
#include "output_stage.h"
#include "pixel_image.h"
#include "simd_level.h"
#include "source_map.h"

namespace tarvo {
namespace {

// Runs f once at each width the processor has, narrowest first, and
// lifts the cap afterwards.
template <class F>
void AtEachWidth(F f) {
  const SimdLevel widest = ActiveSimd();
  for (const SimdLevel s : {SimdLevel::kScalar, SimdLevel::kSse2, SimdLevel::kAvx2}) {
    if (static_cast<int>(s) > static_cast<int>(widest)) break;
    LimitSimd(s);
    f(s);
  }
  LimitSimd(SimdLevel::kAvx2);
}

struct Image {
  int w, h;
  std::vector<PF_Pixel> pixels;
  PixelImage image;
  Image(int width, int height, int pad, uint32_t seed) : w(width), h(height), pixels(size_t(width + pad) * height) {
    std::mt19937 rng(seed);
    for (PF_Pixel& p : pixels) {
      const uint32_t v = rng();
      const uint32_t m = (v & 7) == 0 ? 0xFFFFFFFFu : (v & 7) == 1 ? 0u : v;  // clamps at work
      p = PF_Pixel{uint8_t(m), uint8_t(m >> 8), uint8_t(m >> 16), uint8_t(m >> 24)};
    }
    image.Wrap(int16_t(w), int16_t(h), (width + pad) * 4, pixels.data(), AllRows);
  }
};

// The row sampled at every width; fails at the first pixel that differs
// from what AreaSampleQuad gives for its four corners.
void ExpectQuadBytesAtEveryWidth(const PixelImage& image, const std::vector<float>& upper,
                                 const std::vector<float>& lower) {
  const int count = static_cast<int>(upper.size() / 2) - 1;
  AtEachWidth([&](SimdLevel s) {
    std::vector<PF_Pixel> got(size_t(count), PF_Pixel{7, 7, 7, 7});
    AreaSampleSpan(image, upper.data(), lower.data(), count, got.data());
    for (int k = 0; k < count; ++k) {
      const float *u = &upper[2 * size_t(k)], *l = &lower[2 * size_t(k)];
      const PF_Pixel want = AreaSampleQuad(image, u, l);
      ASSERT_EQ(memcmp(&want, &got[size_t(k)], sizeof(PF_Pixel)), 0)
          << "width " << static_cast<int>(s) << ", pixel " << k << ": corners (" << u[0] << ", " << u[1] << ") ("
          << u[2] << ", " << u[3] << ") (" << l[0] << ", " << l[1] << ") (" << l[2] << ", " << l[3] << ")";
    }
  });
}

// Two lines of count + 1 corner points around grid row y from column x0,
// each moved by up to spread (on a 1/256 lattice when quantised).
void Lines(std::mt19937& rng, int y, int x0, int count, float spread, bool quantised, std::vector<float>& upper,
           std::vector<float>& lower) {
  std::uniform_real_distribution<float> jitter(-spread, spread);
  upper.resize(2 * size_t(count + 1));
  lower.resize(upper.size());
  for (int k = 0; k <= count; ++k) {
    for (int line = 0; line < 2; ++line) {
      float v = float(y + line) + jitter(rng), h = float(x0 + k) + jitter(rng);
      if (quantised) {
        v = std::round(v * 256.0f) / 256.0f;
        h = std::round(h * 256.0f) / 256.0f;
      }
      float* p = line == 0 ? &upper[2 * size_t(k)] : &lower[2 * size_t(k)];
      p[0] = v;
      p[1] = h;
    }
  }
}

TEST(SimdPaths, AreaRowsAreThePerPixelBytesAtEveryWidthOnRandomBoxes) {
  // Odd widths, padded rows, a one-pixel image; rows placed anywhere from
  // above the image to below it, so that groups straddle every edge.
  const Image imgs[] = {Image(61, 37, 0, 1), Image(13, 200, 3, 2), Image(300, 5, 1, 3), Image(1, 1, 0, 4),
                        Image(7, 9, 0, 5)};
  std::mt19937 rng(2024);
  std::vector<float> upper, lower;
  for (const Image& img : imgs) {
    std::uniform_int_distribution<int> row(-3, img.h + 2), col(-12, img.w + 2), len(1, 41);
    for (const float spread : {0.0f, 0.3f, 0.9f, 1.6f, 3.0f, 40.0f, 200.0f}) {
      for (const bool quantised : {true, false}) {
        for (int n = 0; n < 30; ++n) {
          Lines(rng, row(rng), col(rng), len(rng), spread, quantised, upper, lower);
          ExpectQuadBytesAtEveryWidth(img.image, upper, lower);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

// The row sampler at every width against the per-pixel sampler on boxes
// at the image's edges and corners, at 1/256 steps, at the eight-wide
// path's limits of four rows and four columns, at the integer path's extent
// and coordinate limit and beyond, not finite, signed zeros; each box put
// into a row of eleven plain boxes at every position (so that it shares its
// group of eight with boxes the eight-wide path takes), and once alone with
// its corners in another order; over an image and over one without pixels.
TEST(AreaSampleSpan, EveryWidthGivesThePerPixelBytesOnEdgeBoxes) {
  const Image img(40, 30, 2, 9);
  const PixelImage none;
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float boxes[][4] = {
      // top, left, bottom, right
      {2.25f, 3.25f, 2.75f, 3.75f},          // within one pixel
      {0, 0, 30, 40},                        // the whole image
      {26, 36, 30, 40},                      // four rows and columns up to the last ones
      {25.5f, 35.5f, 29.5f, 39.5f},          // five rows and columns, cut
      {26, 36, 29.99f, 39.99f},              // four, the last cut
      {29, 36.5f, 30, 40},                   // the last row; columns to the right edge
      {28.2f, 36.7f, 29.9f, 39.9f},          // starting three columns before the edge
      {29.5f, 39.5f, 31, 41},                // the bottom right corner, half outside
      {2, 3, 6 + 1.0f / 256, 4},             // five rows by a 1/256
      {2, 3, 3, 7 + 1.0f / 256},             // five columns by a 1/256
      {1.0f / 256, 0, 1 + 255.0f / 256, 1},  // weights of 255
      {5, 5 + 1.0f / 256, 6, 6 - 1.0f / 256},
      {-0.5f, -0.5f, 0.5f, 0.5f},  // the top left corner, half outside
      {-5, -5, -1, -1},            // wholly outside
      {31, 41, 35, 45},
      {0, 0, 0, 0},  // no extent, no height
      {3, 4, 3, 9},
      {-0.0f, -0.0f, 1, 1},  // negative zeros
      {1e-40f, 1e-40f, 2, 2},
      {0, 0, 127.99f, 3},  // either side of the integer path's extent
      {0, 0, 128, 3},
      {-16383.5f, 2, -16383, 3},  // at its coordinate limit and beyond
      {-16384.5f, 2, -16384, 3},
      {-3e9f, 2, 3e9f, 3},  // beyond the fixed-point range
      {nan, 2, 3, 4},       // not numbers
      {2, nan, 3, 4},
      {2, 3, nan, 4},
      {-inf, 2, 3, 4},
      {2, 3, inf, inf},
  };
  const int kCount = 11;
  for (const auto& b : boxes) {
    SCOPED_TRACE(::testing::Message() << "box " << b[0] << " " << b[1] << " " << b[2] << " " << b[3]);
    // Alone, then again with its corners in another order.
    ExpectQuadBytesAtEveryWidth(img.image, {b[0], b[1], b[0], b[3], b[2], b[3]}, {b[2], b[1], b[2], b[3], b[0], b[1]});
    ExpectQuadBytesAtEveryWidth(none, {b[0], b[1], b[0], b[3], b[2], b[3]}, {b[2], b[1], b[2], b[3], b[0], b[1]});
    for (int at = 0; at < kCount; ++at) {
      std::vector<float> upper, lower;
      for (int k = 0; k <= kCount; ++k) {
        // A plain box per pixel: rows 10.3 .. 11.6, columns k + 0.2 ..
        const float x = float(k) + 0.2f;
        upper.insert(upper.end(), {10.3f, x});
        lower.insert(lower.end(), {11.6f, x + 0.1f});
      }
      // Pixel `at` gets the box: its four corners are upper[at], upper[at
      // + 1], lower[at], lower[at + 1], which it shares with its
      // neighbours, so their boxes change too.
      upper[2 * size_t(at)] = b[0], upper[2 * size_t(at) + 1] = b[1];
      upper[2 * size_t(at) + 2] = b[0], upper[2 * size_t(at) + 3] = b[3];
      lower[2 * size_t(at)] = b[2], lower[2 * size_t(at) + 1] = b[1];
      lower[2 * size_t(at) + 2] = b[2], lower[2 * size_t(at) + 3] = b[3];
      ExpectQuadBytesAtEveryWidth(img.image, upper, lower);
      ASSERT_FALSE(HasFatalFailure()) << "at " << at;
    }
  }
}

// Pinning at every width, every pin mode, bit for bit: points anywhere,
// with signed zeros, NaN, infinities and huge values among them, rows
// written over part of their columns.
TEST(SimdPaths, PinnedMapsAreTheSameAtEveryWidth) {
  if (ActiveSimd() == SimdLevel::kScalar) GTEST_SKIP() << "no vector width here";
  tarvo::testing::HostCall call;
  const float specials[] = {
      -0.0f, 0.0f, std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity(), 3e38f, -1e-40f};
  std::mt19937 rng(5);
  for (const int w : {3, 16, 37}) {
    const int h = 13;
    RenderSetup setup{nullptr, w, h, kSampleArea, PF_Pixel{0, 0, 0, 0}};
    for (int mode = 0; mode <= 10; ++mode) {
      const PinProfiles pins(mode, h + 1, w + 1);
      ASSERT_TRUE(pins.ok);
      std::vector<std::vector<MapPoint>> results;
      const uint32_t seed = rng();
      AtEachWidth([&](SimdLevel level) {
        SourceMap map(h + 1, w + 1, setup);
        ASSERT_TRUE(map.ok);
        map.setup.simd = level;
        std::mt19937 local(seed);  // the same points at every width
        std::uniform_real_distribution<float> jitter(-3.0f, 3.0f);
        std::uniform_int_distribution<int> pick(0, 11), col(0, w);
        for (int y = 0; y <= h; ++y) {
          for (int x = 0; x <= w; ++x) {
            MapPoint q{float(y) + jitter(local), float(x) + jitter(local)};
            const int k = pick(local);
            if (k < 6) (k & 1 ? q.row : q.column) = specials[k];
            map.At(y, x) = q;
          }
          const int a = col(local), b = col(local);
          if (y % 5 != 4) map.SetRowSpan(y, std::min(a, b), std::max(a, b));
        }
        PinSourceMap(map, pins);
        results.emplace_back(&map.At(0, 0), &map.At(0, 0) + size_t(h + 1) * (w + 1));
      });
      for (size_t r = 1; r < results.size(); ++r) {
        ASSERT_EQ(memcmp(results[0].data(), results[r].data(), results[0].size() * sizeof(MapPoint)), 0)
            << "width " << w << ", pin mode " << mode << ", level " << r;
      }
    }
  }
}

}  // namespace
}  // namespace tarvo
