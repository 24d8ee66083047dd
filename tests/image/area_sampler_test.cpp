// The area sampler: coverage weights, the weight-255 rule, colour over the
// inside part and alpha over the whole box, and wide boxes against a plain
// reference average.
#include "area_sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "fixed_point.h"
#include "pixel_image.h"

namespace tarvo {
namespace {

struct TestImage {
  int w, h;
  std::vector<PF_Pixel> pixels;
  PixelImage image;

  TestImage(int width, int height) : w(width), h(height), pixels(static_cast<size_t>(width) * height) {
    image.Wrap(int16_t(w), int16_t(h), w * 4, pixels.data(), AllRows);
  }
  PF_Pixel& At(int y, int x) { return pixels[static_cast<size_t>(y) * w + x]; }
  void Fill(PF_Pixel p) { std::fill(pixels.begin(), pixels.end(), p); }
  void Randomize(uint32_t seed) {
    std::mt19937 rng(seed);
    for (PF_Pixel& p : pixels) {
      const uint32_t v = rng();
      p = PF_Pixel{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    }
  }
};

// Samples the box with corners (top, left) and (bottom, right).
PF_Pixel SampleBox(const TestImage& t, float top, float left, float bottom, float right) {
  return AreaSampleQuad(t.image, top, left, top, right, bottom, left, bottom, right);
}

void ExpectPixel(const PF_Pixel& got, int a, int r, int g, int b) {
  EXPECT_EQ(got.alpha, a);
  EXPECT_EQ(got.red, r);
  EXPECT_EQ(got.green, g);
  EXPECT_EQ(got.blue, b);
}

TEST(AreaSampler, BoxInsideOnePixelKeepsThatPixel) {
  TestImage t(6, 6);
  t.Randomize(1);
  t.At(2, 3) = PF_Pixel{255, 200, 100, 0};
  ExpectPixel(SampleBox(t, 2.25f, 3.25f, 2.75f, 3.75f), 255, 200, 100, 0);

  // Row and column weights are both 192 − 64 = 128.
  const PixelSum row = RowBoxSum(t.image.RowAt(2).Pixels(), FloatToFixed(3.25), FloatToFixed(0.5), 6);
  EXPECT_EQ(row.red, 200u * 128);
  EXPECT_EQ(row.alpha, 255u * 128);
  EXPECT_EQ(row.blue, 0u);

  t.At(2, 3) = PF_Pixel{77, 1, 254, 128};
  ExpectPixel(SampleBox(t, 2.25f, 3.25f, 2.75f, 3.75f), 77, 1, 254, 128);
}

TEST(AreaSampler, ExactPixelEdgesOnUniformImage) {
  TestImage t(5, 4);
  t.Fill(PF_Pixel{255, 255, 0, 255});
  ExpectPixel(SampleBox(t, 0, 0, 2, 2), 255, 255, 0, 255);
  t.Fill(PF_Pixel{200, 10, 128, 254});
  ExpectPixel(SampleBox(t, 0, 0, 2, 2), 200, 10, 128, 254);
  ExpectPixel(SampleBox(t, 1, 3, 4, 5), 200, 10, 128, 254);  // up to the far edges
}

TEST(AreaSampler, WhollyOutsideIsTransparentBlack) {
  TestImage t(4, 4);
  t.Fill(PF_Pixel{255, 90, 80, 70});
  ExpectPixel(SampleBox(t, 10, 10, 12, 12), 0, 0, 0, 0);
  ExpectPixel(SampleBox(t, -5, -5, -3, -3), 0, 0, 0, 0);
  ExpectPixel(SampleBox(t, 1, 4, 2, 6), 0, 0, 0, 0);    // rows inside, columns past the right edge
  ExpectPixel(SampleBox(t, -3, 1, -1, 2), 0, 0, 0, 0);  // columns inside, rows above

  PixelImage empty;
  const PF_Pixel none = AreaSampleQuad(empty, 0, 0, 0, 1, 1, 0, 1, 1);
  ExpectPixel(none, 0, 0, 0, 0);
}

TEST(AreaSampler, HalfOutsideKeepsColourAndHalvesAlpha) {
  TestImage t(4, 4);
  t.Fill(PF_Pixel{255, 40, 150, 255});
  ExpectPixel(SampleBox(t, 0, -1, 2, 1), 128, 40, 150, 255);
  ExpectPixel(SampleBox(t, 3, 2, 5, 3), 128, 40, 150, 255);  // half below the bottom edge
}

TEST(AreaSampler, Weight255CountsAsFull) {
  const PF_Pixel p{10, 20, 30, 255};
  PixelSum s;
  AddWeighted(s, p, 255);
  EXPECT_EQ(s.alpha, 2560u);
  EXPECT_EQ(s.blue, 255u * 256);
  AddWeighted(s, p, 254);
  EXPECT_EQ(s.alpha, 2560u + 2540u);

  PixelSum total;
  PixelSum row;
  row.red = 1000;
  row.green = 999;
  AddScaled(total, row, 255);
  EXPECT_EQ(total.red, 1000u);
  AddScaled(total, row, 128);
  EXPECT_EQ(total.red, 1500u);
  EXPECT_EQ(total.green, 999u + 499u);

  // A left edge 1/256 into column 0 gives it weight 255: the same sum as the
  // box starting exactly at 0.
  TestImage t(4, 1);
  t.Randomize(7);
  const PF_Pixel* r = t.image.RowAt(0).Pixels();
  const PixelSum cut = RowBoxSum(r, 256, 2 * 65536 - 256, 4);
  const PixelSum whole = RowBoxSum(r, 0, 2 * 65536, 4);
  EXPECT_EQ(cut.red, whole.red);
  EXPECT_EQ(cut.alpha, whole.alpha);
  EXPECT_EQ(whole.green, (uint64_t(r[0].green) + r[1].green) * 256);
}

TEST(AreaSampler, PointOrderDoesNotMatter) {
  TestImage t(6, 5);
  t.Randomize(3);
  std::array<std::array<float, 2>, 4> pts{{{1.3f, 2.7f}, {0.4f, 3.9f}, {2.2f, 1.1f}, {1.9f, 2.0f}}};
  std::array<int, 4> order{0, 1, 2, 3};
  const PF_Pixel first = AreaSampleQuad(t.image, pts[0][0], pts[0][1], pts[1][0], pts[1][1], pts[2][0], pts[2][1],
                                        pts[3][0], pts[3][1]);
  int permutations = 0;
  do {
    const auto& a = pts[order[0]];
    const auto& b = pts[order[1]];
    const auto& c = pts[order[2]];
    const auto& d = pts[order[3]];
    const PF_Pixel got = AreaSampleQuad(t.image, a[0], a[1], b[0], b[1], c[0], c[1], d[0], d[1]);
    ExpectPixel(got, first.alpha, first.red, first.green, first.blue);
    ++permutations;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(permutations, 24);
}

TEST(AreaSampler, AxisExtentClipsToTheImage) {
  AxisExtent e = QuadAxisExtent(3.5f, 1.25f, 2.0f, 4.0f, 10);
  EXPECT_EQ(e.lo, 1.25f);
  EXPECT_EQ(e.extent, 2.75f);
  EXPECT_EQ(e.clipped, 2.75f);
  e = QuadAxisExtent(-1.0f, 1.0f, 0.0f, 0.5f, 10);
  EXPECT_EQ(e.clipped, 1.0f);
  e = QuadAxisExtent(5, 6, 7, 8, 4);
  EXPECT_EQ(e.clipped, -1.0f);  // negative when wholly outside
}

// The classic sampler with 32-bit sums, for boxes inside its limits.
PF_Pixel Classic32(const PixelImage& img, int32_t x, int32_t w, int32_t y, int32_t h, float area) {
  auto frac8 = [](int32_t f) { return (f & 0xFFFF) >> 8; };
  const int32_t H = img.Height(), W = img.Width();
  uint32_t s[4] = {0, 0, 0, 0};
  const int32_t yEnd = y + h, r0 = y >> 16, r1 = yEnd >> 16;
  const int32_t first = std::max(r0, 0), last = r1 >= H ? H - 1 : r1;
  const int32_t xEnd = x + w, c0 = x >> 16, c1 = xEnd >> 16;
  for (int32_t row = first; first < H && row <= last; ++row) {
    int32_t rw = 256;
    if (row == r0) rw -= frac8(y);
    if (row == r1) rw -= 256 - frac8(yEnd);
    if (rw <= 0) continue;
    uint32_t rs[4] = {0, 0, 0, 0};
    for (int32_t col = std::max(c0, 0); col <= std::min(c1, W - 1); ++col) {
      int32_t cw = 256;
      if (col == c0) cw -= frac8(x);
      if (col == c1) cw -= 256 - frac8(xEnd);
      if (cw == 0) continue;
      const PF_Pixel& p = img.PixelAt(int16_t(row), int16_t(col));
      const uint32_t m = cw == 255 ? 256u : uint32_t(cw);
      rs[0] += p.alpha * m, rs[1] += p.red * m, rs[2] += p.green * m, rs[3] += p.blue * m;
    }
    for (int i = 0; i < 4; ++i) s[i] += rw == 255 ? rs[i] : uint32_t(rs[i] * uint32_t(rw)) >> 8;
  }
  const float covered = static_cast<float>(FixedToFloat((xEnd & ~0xFF) - (x & ~0xFF))) *
                        static_cast<float>(FixedToFloat((yEnd & ~0xFF) - (y & ~0xFF)));
  float c = std::fabs(covered), ar = std::fabs(area);
  if (c == 0) c = 1.0f;
  if (ar == 0) ar = 1.0f;
  const float a = static_cast<float>(c * 255.0), b = static_cast<float>(ar * 255.0);
  auto ch = [](int32_t v, float d) { return uint8_t(std::min(255, TruncToInt32(v / static_cast<double>(d)))); };
  return PF_Pixel{ch(int32_t(s[0]), a), ch(int32_t(s[1]), b), ch(int32_t(s[2]), b), ch(int32_t(s[3]), b)};
}

TEST(AreaSamplerWide, EqualsThirtyTwoBitArithmeticWithinTheLimits) {
  TestImage t(300, 200);
  t.Randomize(11);
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> pos(-20.0f, 320.0f);
  std::uniform_real_distribution<float> size(0.0f, 180.0f);
  for (int i = 0; i < 3000; ++i) {
    const float top = pos(rng) * 0.7f, left = pos(rng), height = size(rng), width = size(rng);
    const AxisExtent v = QuadAxisExtent(top, top, top + height, top + height, t.image.Height());
    const AxisExtent hz = QuadAxisExtent(left, left + width, left, left + width, t.image.Width());
    const float area = v.clipped * hz.clipped;
    const int32_t x = FloatToFixed(hz.lo), w = FloatToFixed(hz.extent);
    const int32_t y = FloatToFixed(v.lo), h = FloatToFixed(v.extent);
    const PF_Pixel want = Classic32(t.image, x, w, y, h, area);
    const PF_Pixel got = BoxSample(t.image, x, w, y, h, area);
    ExpectPixel(got, want.alpha, want.red, want.green, want.blue);
    if (::testing::Test::HasFailure()) {
      ADD_FAILURE() << "box " << top << "," << left << " size " << height << "x" << width;
      break;
    }
  }
}

// Plain coverage-weighted average with exact fractional coverage: colour over
// the inside part, alpha over the whole box.
std::array<double, 4> ReferenceAverage(TestImage& t, double top, double left, double bottom, double right) {
  double sums[4] = {0, 0, 0, 0}, inside = 0;
  for (int y = 0; y < t.h; ++y) {
    const double cy = std::max(0.0, std::min<double>(y + 1, bottom) - std::max<double>(y, top));
    if (cy <= 0) continue;
    for (int x = 0; x < t.w; ++x) {
      const double cx = std::max(0.0, std::min<double>(x + 1, right) - std::max<double>(x, left));
      if (cx <= 0) continue;
      const PF_Pixel& p = t.At(y, x);
      const double c = cy * cx;
      sums[0] += p.alpha * c, sums[1] += p.red * c, sums[2] += p.green * c, sums[3] += p.blue * c;
      inside += c;
    }
  }
  const double box = (bottom - top) * (right - left);
  return {sums[0] / box, sums[1] / inside, sums[2] / inside, sums[3] / inside};
}

TEST(AreaSamplerWide, WideBoxesMatchAPlainAverage) {
  TestImage t(700, 420);
  t.Randomize(21);
  struct Box {
    float top, left, bottom, right;
  };
  const Box boxes[] = {
      {10.25f, 5.5f, 300.75f, 680.25f},    // 675 columns: beyond the classic limits
      {-40.5f, -100.25f, 419.5f, 699.75f}, // partly outside on two sides
      {0, 0, 420, 700},                    // the whole image
      {100.0f, 200.5f, 101.0f, 600.0f},    // one row, 400 columns
      {3.75f, 1.0f, 410.25f, 2.5f},        // tall and thin
  };
  for (const Box& b : boxes) {
    const PF_Pixel got = SampleBox(t, b.top, b.left, b.bottom, b.right);
    const std::array<double, 4> want = ReferenceAverage(t, b.top, b.left, b.bottom, b.right);
    // Sums are scaled by 256 and divided by 255 × area, so an average v comes
    // out as v × 256 / 255. The 8-bit weights are exact at these edges; only
    // the final truncation and the per-row >> 8 can move a channel.
    EXPECT_NEAR(got.alpha, want[0] * 256 / 255, 1.0) << b.top << "," << b.left;
    EXPECT_NEAR(got.red, want[1] * 256 / 255, 1.0) << b.top << "," << b.left;
    EXPECT_NEAR(got.green, want[2] * 256 / 255, 1.0) << b.top << "," << b.left;
    EXPECT_NEAR(got.blue, want[3] * 256 / 255, 1.0) << b.top << "," << b.left;
  }
}

TEST(AreaSamplerWide, HugeUniformBoxesDoNotWrap) {
  TestImage t(1200, 900);
  t.Fill(PF_Pixel{255, 255, 200, 3});
  // 1,080,000 whole pixels: 32-bit sums would wrap many times over.
  ExpectPixel(SampleBox(t, 0, 0, 900, 1200), 255, 255, 200, 3);
  ExpectPixel(SampleBox(t, 0.5f, 0.5f, 899.5f, 1199.5f), 255, 255, 200, 3);
}

TEST(AreaSamplerBadInput, NonFiniteAndHugeCoordinatesStayInside) {
  TestImage t(8, 8);
  t.Fill(PF_Pixel{255, 60, 70, 80});
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const float cases[][8] = {
      {nan, nan, nan, nan, nan, nan, nan, nan},
      {-inf, -inf, inf, inf, 0, 0, 1, 1},
      {-1e9f, -1e9f, 1e9f, 1e9f, 0, 0, 1, 1},
      {3e4f, 3e4f, 3e4f + 1, 3e4f + 1, 3e4f, 3e4f, 3e4f, 3e4f},
      {-3e4f, 0, 3e4f, 8, 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    const PF_Pixel p = AreaSampleQuad(t.image, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]);
    (void)p;  // any value; it must come back without reading outside the rows
  }
  // A box 30,000 rows tall over the whole width keeps the colour; the alpha
  // is the image's tiny share of it.
  const PF_Pixel tall = SampleBox(t, -1.5e4f, 0, 1.5e4f, 8);
  ExpectPixel(tall, 0, 60, 70, 80);
  // Edges that do not fit 16.16 turn into INT32_MIN: nothing is read.
  ExpectPixel(BoxSample(t.image, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 1.0f), 0, 0, 0, 0);
  ExpectPixel(BoxSample(t.image, 0, INT32_MAX, 0, INT32_MAX, 64.0f), 0, 60, 70, 80);
}

}  // namespace
}  // namespace tarvo
