// The plug-in allocator's bookkeeping and its fail-the-Nth-attempt hook.
#include <gtest/gtest.h>

#include <stdint.h>

#include "plugin_alloc.h"

namespace tarvo {
namespace {

class PluginAllocTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stats = PluginAllocStats();
    saved = *stats;
    stats->failAt = 0;
  }
  void TearDown() override { stats->failAt = 0; }
  AllocStats* stats = nullptr;
  AllocStats saved{};
};

TEST_F(PluginAllocTest, TracksLiveBlocksBytesAndPeak) {
  void* a = PluginAlloc(100);
  void* b = PluginAlloc(28);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(max_align_t), 0u);
  EXPECT_EQ(stats->allocCount - saved.allocCount, 2);
  EXPECT_EQ(stats->liveBlocks - saved.liveBlocks, 2);
  EXPECT_EQ(stats->liveBytes - saved.liveBytes, 128);
  EXPECT_GE(stats->peakBytes, saved.liveBytes + 128);
  PluginFree(a);
  EXPECT_EQ(stats->liveBytes - saved.liveBytes, 28);
  PluginFree(b);
  PluginFree(nullptr);
  EXPECT_EQ(stats->liveBlocks, saved.liveBlocks);
  EXPECT_EQ(stats->liveBytes, saved.liveBytes);
}

TEST_F(PluginAllocTest, FailAtFailsExactlyTheNthAttemptThenResets) {
  stats->failAt = 3;
  void* first = PluginAlloc(8);
  void* second = PluginAlloc(8);
  EXPECT_EQ(stats->failAt, 1);
  void* third = PluginAlloc(8);
  void* fourth = PluginAlloc(8);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_EQ(third, nullptr);
  EXPECT_NE(fourth, nullptr);
  EXPECT_EQ(stats->failAt, 0);
  EXPECT_EQ(stats->allocCount - saved.allocCount, 4) << "a failed attempt counts";
  EXPECT_EQ(stats->liveBlocks - saved.liveBlocks, 3);
  PluginFree(first);
  PluginFree(second);
  PluginFree(fourth);
}

TEST_F(PluginAllocTest, ImpossibleSizesFailCleanly) {
  EXPECT_EQ(PluginAlloc(SIZE_MAX), nullptr);
  EXPECT_EQ(PluginAllocArray<uint64_t>(INT64_MAX), nullptr);
  EXPECT_EQ(PluginAllocArray<uint32_t>(-1), nullptr);
  EXPECT_EQ(stats->liveBlocks, saved.liveBlocks);
}

struct Counted {
  explicit Counted(int* n) : n(n) { ++*n; }
  ~Counted() { --*n; }
  int* n;
};

TEST_F(PluginAllocTest, PluginNewConstructsAndNullOnFailure) {
  int alive = 0;
  Counted* c = PluginNew<Counted>(&alive);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(alive, 1);
  PluginDelete(c);
  EXPECT_EQ(alive, 0);
  stats->failAt = 1;
  EXPECT_EQ(PluginNew<Counted>(&alive), nullptr);
  EXPECT_EQ(alive, 0) << "nothing constructed in a failed block";
}

}  // namespace
}  // namespace tarvo
