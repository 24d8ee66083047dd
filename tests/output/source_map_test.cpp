// The source map's buffers and row spans.
#include <gtest/gtest.h>

#include "output_test_util.h"
#include "plugin_alloc.h"
#include "source_map.h"

namespace tarvo {
namespace {

using outtest::Picture;
using outtest::SetupFor;

TEST(SourceMap, CreatesClearedBuffersAndFreesThem) {
  Picture src(6, 4);
  AllocStats* stats = PluginAllocStats();
  const int64_t live = stats->liveBlocks;
  {
    SourceMap map(5, 7, SetupFor(src, kSampleBilinear));
    ASSERT_TRUE(map.ok);
    EXPECT_EQ(map.aborted, 0);
    EXPECT_EQ(map.rows, 5);
    EXPECT_EQ(map.cols, 7);
    EXPECT_EQ(map.source, &src.image);
    EXPECT_EQ(map.setup.width, 6);
    EXPECT_EQ(map.setup.height, 4);
    EXPECT_EQ(map.setup.samplingMode, kSampleBilinear);
    for (int y = 0; y < 5; ++y) EXPECT_EQ(map.rowWritten[y], 0);
    EXPECT_EQ(stats->liveBlocks, live + 4);
    EXPECT_EQ(&map.At(2, 3), map.entries + 2 * 7 + 3);
  }
  EXPECT_EQ(stats->liveBlocks, live);
}

TEST(SourceMap, PartialFailureFreesTheOthers) {
  Picture src(6, 4);
  AllocStats* stats = PluginAllocStats();
  const int64_t live = stats->liveBlocks;
  for (int failing = 1; failing <= 4; ++failing) {
    stats->failAt = failing;
    {
      SourceMap map(5, 7, SetupFor(src, kSampleArea));
      EXPECT_FALSE(map.ok) << failing;
      EXPECT_EQ(map.entries, nullptr);
      EXPECT_EQ(map.rowWritten, nullptr);
      EXPECT_EQ(stats->liveBlocks, live) << failing;
      map.SetRowSpan(1, 0, 3);  // harmless on a map without buffers
    }
    stats->failAt = 0;
  }
}

TEST(SourceMap, OversizeOrEmptyIsNotOk) {
  Picture src(6, 4);
  AllocStats* stats = PluginAllocStats();
  const int64_t before = stats->allocCount;
  SourceMap huge(100000, 100000, SetupFor(src, kSampleArea));
  EXPECT_FALSE(huge.ok);
  SourceMap overByteCount(16384, 16384, SetupFor(src, kSampleArea));  // 2^31 bytes
  EXPECT_FALSE(overByteCount.ok);
  SourceMap none(0, 5, SetupFor(src, kSampleArea));
  EXPECT_FALSE(none.ok);
  SourceMap negative(5, -1, SetupFor(src, kSampleArea));
  EXPECT_FALSE(negative.ok);
  EXPECT_EQ(stats->allocCount, before);  // refused before asking for memory
}

TEST(SourceMap, RowSpans) {
  Picture src(6, 4);
  SourceMap map(5, 7, SetupFor(src, kSampleArea));
  ASSERT_TRUE(map.ok);
  map.SetRowSpan(2, 3, 5);
  EXPECT_EQ(map.rowWritten[2], 1);
  EXPECT_EQ(map.rowFirst[2], 3);
  EXPECT_EQ(map.rowLast[2], 5);
  map.SetRowSpan(3, 4, 4);  // one column is a span
  EXPECT_EQ(map.rowWritten[3], 1);
  map.SetRowSpan(1, 5, 4);  // no column: not written
  EXPECT_EQ(map.rowWritten[1], 0);
  map.SetRowSpan(-1, 0, 6);
  map.SetRowSpan(5, 0, 6);
  for (int y : {0, 1, 4}) EXPECT_EQ(map.rowWritten[y], 0) << y;
}

}  // namespace
}  // namespace tarvo
