// The plug-in allocator's bookkeeping and its fail-the-Nth-attempt hook,
// which every fault test relies on.
#include <gtest/gtest.h>
#include <stdint.h>

#include "plugin_alloc.h"

namespace tarvo {
namespace {

TEST(PluginAlloc, TracksLiveBlocksBytesAndPeak) {
  AllocStats* stats = PluginAllocStats();
  const AllocStats saved = *stats;
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
  // Impossible sizes fail cleanly.
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

// A failed attempt counts; the hook then resets itself. PluginNew constructs
// nothing in a failed block.
TEST(PluginAlloc, FailAtFailsExactlyTheNthAttemptThenResets) {
  AllocStats* stats = PluginAllocStats();
  const AllocStats saved = *stats;
  stats->failAt = 3;
  void* blocks[4];
  for (void*& b : blocks) b = PluginAlloc(8);
  EXPECT_NE(blocks[0], nullptr);
  EXPECT_NE(blocks[1], nullptr);
  EXPECT_EQ(blocks[2], nullptr);
  EXPECT_NE(blocks[3], nullptr);
  EXPECT_EQ(stats->failAt, 0);
  EXPECT_EQ(stats->allocCount - saved.allocCount, 4);
  EXPECT_EQ(stats->liveBlocks - saved.liveBlocks, 3);
  for (void* b : blocks) PluginFree(b);

  int alive = 0;
  Counted* c = PluginNew<Counted>(&alive);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(alive, 1);
  PluginDelete(c);
  EXPECT_EQ(alive, 0);
  stats->failAt = 1;
  EXPECT_EQ(PluginNew<Counted>(&alive), nullptr);
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(stats->failAt, 0);
}

}  // namespace
}  // namespace tarvo
