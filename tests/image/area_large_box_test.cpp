// Large boxes read from the summed-area tables give exactly what summing
// their pixels gives: random and edge boxes, 32- and 64-bit entries, a row at
// a time, and a table that cannot be allocated.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "area_sampler.h"
#include "fixed_point.h"
#include "pixel_image.h"
#include "plugin_alloc.h"

namespace tarvo {
namespace {

constexpr int kW = 173, kH = 119, kRowBytes = kW * 4 + 20;

struct Picture {
  std::vector<uint8_t> bytes = std::vector<uint8_t>(static_cast<size_t>(kRowBytes) * kH);
  PixelImage image;
  Picture() {
    std::mt19937 rng(7);
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng() % 3 == 0 ? 255 : rng());
    image.Wrap(kW, kH, kRowBytes, bytes.data(), AllRows);
  }
};

struct Box {
  float top, left, bottom, right;
};

// Whole frame first (enough to build the tables), then edges on whole
// pixels, cuts of 1/256 and 255/256 (weight 255 counts fully), single rows
// and columns, boxes over each edge and corner, and boxes wholly outside.
std::vector<Box> Boxes() {
  std::vector<Box> boxes = {
      {-0.5f, -0.5f, kH + 0.5f, kW + 0.5f},
      {0, 0, kH, kW},
      {3 + 1 / 256.0f, 2, 90 + 255 / 256.0f, 170},
      {3 + 255 / 256.0f, 2 + 1 / 256.0f, 90 + 1 / 256.0f, 171.996f},
      {40.25f, -30, 40.75f, 200},
      {40, -30, 41, 200},
      {-50, 60.5f, 300, 61.25f},
      {-200, -200, 10.3f, 12.7f},
      {100.1f, 150.9f, 400, 500},
      {-10, 20, 140, 150},
      {130, 0, 300, kW},
      {0, 180, kH, 400},
      {12.5f, 7.5f, 12.5f, 160.5f},
  };
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> edge(-80.0f, 260.0f), size(0.0f, 330.0f);
  for (int i = 0; i < 400; ++i) {
    const float top = edge(rng), left = edge(rng);
    boxes.push_back({top, left, top + size(rng), left + size(rng)});
  }
  return boxes;
}

PF_Pixel Sample(const Picture& p, const Box& b, AreaSampleCache* cache) {
  const float upper[4] = {b.top, b.left, b.top, b.right}, lower[4] = {b.bottom, b.left, b.bottom, b.right};
  return AreaSampleQuad(p.image, upper, lower, cache);
}

void ExpectSame(const PF_Pixel& got, const PF_Pixel& want, size_t i) {
  EXPECT_TRUE(got.alpha == want.alpha && got.red == want.red && got.green == want.green && got.blue == want.blue)
      << "box " << i;
}

// The sums themselves, which the 8-bit result would mostly hide.
void ExpectSameSums(const Picture& p, const Box& b, AreaSampleCache* cache, size_t i) {
  const int32_t x = FloatToFixed(b.left), w = FloatToFixed(b.right - b.left);
  const int32_t y = FloatToFixed(b.top), h = FloatToFixed(b.bottom - b.top);
  const PixelSum got = BoxSum(p.image, x, w, y, h, cache), want = BoxSum(p.image, x, w, y, h);
  EXPECT_TRUE(got.alpha == want.alpha && got.red == want.red && got.green == want.green && got.blue == want.blue)
      << "box " << i << ": red " << got.red << " want " << want.red;
}

class LargeBoxes : public ::testing::TestWithParam<bool> {};

TEST_P(LargeBoxes, TablesGiveTheDirectSumsBitForBit) {
  const Picture p;
  const int64_t live = PluginAllocStats()->liveBlocks;
  {
    AreaSampleCache cache(p.image);
    if (GetParam()) cache.ForceWideEntries();
    const std::vector<Box> boxes = Boxes();
    for (size_t i = 0; i < boxes.size(); ++i) {
      ExpectSame(Sample(p, boxes[i], &cache), Sample(p, boxes[i], nullptr), i);
      ExpectSameSums(p, boxes[i], &cache, i);
    }
    EXPECT_TRUE(cache.HasTables());
    EXPECT_EQ(PluginAllocStats()->liveBlocks, live + 1);

    // A row at a time: boxes beyond the row path's limits go to the tables.
    constexpr int kCount = 9;
    std::vector<float> upper, lower;
    for (int k = 0; k <= kCount; ++k) {
      upper.insert(upper.end(), {-3.3f * k, 1.7f + 25.1f * k});
      lower.insert(lower.end(), {kH + 5.2f * k, -60.0f + 31.6f * k});
    }
    PF_Pixel out[kCount];
    AreaSampleSpan(p.image, upper.data(), lower.data(), kCount, out, &cache);
    for (int k = 0; k < kCount; ++k) {
      const float* u = &upper[2 * k];
      const float* l = &lower[2 * k];
      ExpectSame(out[k], AreaSampleQuad(p.image, u, l), k);
    }
  }
  EXPECT_EQ(PluginAllocStats()->liveBlocks, live);
}

INSTANTIATE_TEST_SUITE_P(Entries, LargeBoxes, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) { return i.param ? "Wide" : "Narrow"; });

TEST(LargeBoxesWithoutMemory, SumDirectlyWithTheSamePixelsAndTryOnce) {
  const Picture p;
  AllocStats& stats = *PluginAllocStats();
  const int64_t live = stats.liveBlocks;
  const std::vector<Box> boxes = Boxes();
  {
    AreaSampleCache cache(p.image);
    stats.failAt = 1;
    const int64_t count = stats.allocCount;
    for (size_t i = 0; i < boxes.size(); ++i) ExpectSame(Sample(p, boxes[i], &cache), Sample(p, boxes[i], nullptr), i);
    EXPECT_EQ(stats.failAt, 0) << "the tables were asked for";
    EXPECT_EQ(stats.allocCount, count + 1) << "and not asked for again";
    EXPECT_FALSE(cache.HasTables());
  }
  EXPECT_EQ(stats.liveBlocks, live);
}

// Small boxes never cost a table, however many there are.
TEST(LargeBoxesWithoutMemory, SmallBoxesBuildNoTables) {
  const Picture p;
  AreaSampleCache cache(p.image);
  for (int i = 0; i < 2000; ++i) Sample(p, {i % 100 + 0.5f, 3.25f, i % 100 + 12.0f, 20.0f}, &cache);
  EXPECT_FALSE(cache.HasTables());
}

}  // namespace
}  // namespace tarvo
