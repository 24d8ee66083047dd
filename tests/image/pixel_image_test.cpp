// PixelImage as the render sees it: padded rows wrapped, an image without
// pixels, a wrap whose record cannot be allocated, and row copies.
#include "pixel_image.h"

#include <gtest/gtest.h>

#include <vector>

#include "plugin_alloc.h"
#include "test_picture.h"

namespace tarvo {
namespace {

using testing::Picture;
using testing::PixelIs;

TEST(PixelImage, WrapsPaddedRowsAndFailsWithoutLeaving) {
  Picture padded(4, 3, 2);  // 6 pixels per row
  EXPECT_EQ(padded.image.RowBytes(), 24);
  EXPECT_EQ(&padded.image.PixelAt(2, 1), &padded.At(2, 1));
  EXPECT_FALSE(padded.image.OwnsPixels());

  PixelImage nullData;
  ASSERT_TRUE(nullData.Wrap(9, 7, 36, nullptr, AllRows));  // keeps its size, describes no pixels
  EXPECT_EQ(nullData.Width(), 9);
  EXPECT_FALSE(nullData.HasPixels());
  nullData.FillAll(0x12345678u);  // nothing to fill

  AllocStats& stats = *PluginAllocStats();
  const int64_t live = stats.liveBlocks;
  std::vector<PF_Pixel> buf(4);
  PixelImage img;
  stats.failAt = 1;
  EXPECT_FALSE(img.Wrap(2, 2, 8, buf.data(), AllRows));
  stats.failAt = 0;
  EXPECT_FALSE(img.HasPixels());
  EXPECT_EQ(stats.liveBlocks, live);
}

// A row copy takes the source's stride, not its width, up to what the
// destination row holds.
TEST(RowCursor, CopiesTheSourceStrideLimitedToTheDestination) {
  Picture src(4, 2, 2);  // stride 6
  src.Randomize(1);
  Picture dst(3, 2, 1);  // stride 4
  dst.Fill(PF_Pixel{9, 9, 9, 9});
  src.image.RowAt(1).CopyRowTo(dst.image.RowAt(0));
  for (int x = 0; x < 8; ++x) EXPECT_TRUE(PixelIs(dst.pixels[x], x < 4 ? src.At(1, x) : PF_Pixel{9, 9, 9, 9})) << x;
  src.image.RowAt(0).CopyRowTo(RowCursor{reinterpret_cast<uint8_t*>(dst.pixels.data()), 32});  // room for 8
  for (int x = 0; x < 7; ++x) EXPECT_TRUE(PixelIs(dst.pixels[x], x < 6 ? src.At(0, x) : PF_Pixel{9, 9, 9, 9})) << x;
}

}  // namespace
}  // namespace tarvo
