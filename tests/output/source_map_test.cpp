// The source map's buffers and row spans.
#include <gtest/gtest.h>

#include "plugin_alloc.h"
#include "source_map.h"
#include "test_picture.h"

namespace tarvo {
namespace {

TEST(SourceMap, BuffersAndRowSpans) {
  testing::Picture src(6, 4);
  const RenderSetup setup{&src.image, 6, 4, kSampleBilinear, {0, 0, 0, 0}};
  AllocStats& stats = *PluginAllocStats();
  const int64_t live = stats.liveBlocks;
  {
    SourceMap map(5, 7, setup);
    ASSERT_TRUE(map.ok);
    EXPECT_EQ(map.aborted, 0);
    EXPECT_EQ(map.source, &src.image);
    for (int y = 0; y < 5; ++y) EXPECT_EQ(map.rowWritten[y], 0);
    EXPECT_EQ(stats.liveBlocks, live + 4);
  }
  EXPECT_EQ(stats.liveBlocks, live);
  for (int failing = 1; failing <= 4; ++failing) {
    stats.failAt = failing;
    SourceMap map(5, 7, setup);
    stats.failAt = 0;
    EXPECT_FALSE(map.ok) << failing;
    EXPECT_EQ(map.entries, nullptr);
    EXPECT_EQ(map.rowWritten, nullptr);
    EXPECT_EQ(stats.liveBlocks, live) << failing;
    map.SetRowSpan(1, 0, 3);  // harmless on a map without buffers
  }
  // Sizes that are empty or whose entries would need 2^31 bytes or more are
  // refused before asking for memory.
  const int64_t before = stats.allocCount;
  for (const auto& [rows, cols] : {std::pair{100000, 100000}, {16384, 16384}, {0, 5}, {5, -1}})
    EXPECT_FALSE(SourceMap(rows, cols, setup).ok) << rows << "x" << cols;
  EXPECT_EQ(stats.allocCount, before);

  // Spans of at least one column, on rows inside the map.
  SourceMap map(5, 7, setup);
  map.SetRowSpan(2, 3, 5);
  EXPECT_EQ(map.rowWritten[2], 1);
  EXPECT_EQ(map.rowFirst[2], 3);
  EXPECT_EQ(map.rowLast[2], 5);
  map.SetRowSpan(3, 4, 4);  // one column is a span
  map.SetRowSpan(1, 5, 4);  // no column: not written
  map.SetRowSpan(-1, 0, 6);
  map.SetRowSpan(5, 0, 6);
  for (int y = 0; y < 5; ++y) EXPECT_EQ(map.rowWritten[y], y == 2 || y == 3) << y;
}

}  // namespace
}  // namespace tarvo
