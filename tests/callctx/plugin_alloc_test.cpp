// The plug-in allocator's bookkeeping and its fail-the-Nth-attempt hook,
// which every fault test relies on.
#include <gtest/gtest.h>
#include <stdint.h>

#include "plugin_alloc.h"

namespace tarvo {
namespace {

struct Counted {
  explicit Counted(int* n) : n(n) { ++*n; }
  ~Counted() { --*n; }
  int* n;
};

// A failed attempt counts and constructs nothing; the hook then resets
// itself. Impossible sizes fail cleanly.
TEST(PluginAlloc, CountsBlocksFailsTheNthAttemptOnceAndRefusesImpossibleSizes) {
  AllocStats* stats = PluginAllocStats();
  const AllocStats saved = *stats;
  int alive = 0;
  stats->failAt = 2;
  void* a = PluginAlloc(100);
  EXPECT_EQ(PluginNew<Counted>(&alive), nullptr);
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(stats->failAt, 0);
  Counted* c = PluginNew<Counted>(&alive);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(max_align_t), 0u);
  EXPECT_EQ(stats->allocCount - saved.allocCount, 3);
  EXPECT_EQ(stats->liveBlocks - saved.liveBlocks, 2);
  EXPECT_EQ(stats->liveBytes - saved.liveBytes, static_cast<int64_t>(100 + sizeof(Counted)));
  EXPECT_GE(stats->peakBytes, stats->liveBytes);
  PluginDelete(c);
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(stats->liveBytes - saved.liveBytes, 100);
  PluginFree(a);
  PluginFree(nullptr);
  EXPECT_EQ(PluginAlloc(SIZE_MAX), nullptr);
  EXPECT_EQ(PluginAllocArray<uint64_t>(INT64_MAX), nullptr);
  EXPECT_EQ(PluginAllocArray<uint32_t>(-1), nullptr);
  EXPECT_EQ(stats->liveBlocks, saved.liveBlocks);
  EXPECT_EQ(stats->liveBytes, saved.liveBytes);
}

}  // namespace
}  // namespace tarvo
