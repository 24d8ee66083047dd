// PixelImage: field selection, the empty image, fills, resizing with buffer
// reuse, allocation failures and row copies.
#include "pixel_image.h"

#include <gtest/gtest.h>

#include <vector>

#include "plugin_alloc.h"
#include "test_picture.h"

namespace tarvo {
namespace {

using testing::Picture;
using testing::PixelIs;

TEST(PixelImage, FieldSelectionAndPaddedRows) {
  Picture padded(4, 3, 2);  // 6 pixels per row
  EXPECT_EQ(padded.image.RowBytes(), 24);
  EXPECT_EQ(&padded.image.PixelAt(2, 1), &padded.At(2, 1));
  EXPECT_FALSE(padded.image.OwnsPixels());

  Picture buf(4, 5);  // pixel (row, 1) has red = row
  for (int y = 0; y < 5; ++y) buf.At(y, 1).red = static_cast<uint8_t>(y);
  PixelImage upper(4, 5, buf.pixels.data(), UpperField);  // rows 0, 2 (and 4 is dropped)
  EXPECT_EQ(upper.Height(), 2);
  EXPECT_EQ(upper.RowBytes(), 32);
  EXPECT_EQ(upper.PixelAt(1, 1).red, 2);
  PixelImage lower(4, 5, buf.pixels.data(), LowerField);  // rows 1, 3
  EXPECT_EQ(lower.Height(), 2);
  EXPECT_EQ(lower.PixelAt(0, 1).red, 1);
  EXPECT_EQ(lower.PixelAt(1, 1).red, 3);
  EXPECT_EQ(lower.ByteSize(), 64);
  const ShortRect b = lower.Bounds();
  EXPECT_EQ((std::vector<int>{b.top, b.left, b.bottom, b.right}), (std::vector<int>{0, 0, 2, 4}));
}

TEST(PixelImage, EmptyImagesHaveNoPixelsAndZeroBounds) {
  PixelImage empty, nullData;
  ASSERT_TRUE(nullData.Wrap(9, 7, 36, nullptr, AllRows));  // keeps its size, describes no pixels
  EXPECT_EQ(nullData.Width(), 9);
  for (PixelImage* img : {&empty, &nullData}) {
    EXPECT_FALSE(img->HasPixels());
    const ShortRect b = img->Bounds();
    EXPECT_EQ(b.top | b.left | b.bottom | b.right, 0);
    img->FillAll(0x12345678u);  // nothing to fill
    img->FillRect(ShortRect{0, 0, 10, 10}, 1u);
  }
  EXPECT_EQ(empty.Width() | empty.Height(), 0);
  EXPECT_FALSE(empty.Allocate(ShortRect{3, 3, 5, 3}));
  EXPECT_FALSE(empty.Allocate(ShortRect{0, 0, -2, -2}));
  PixelImage owned(ShortRect{0, 0, 4, 4});
  EXPECT_FALSE(owned.Resize(ShortRect{0, 0, 4, -3}));  // an empty rectangle releases the image
  EXPECT_FALSE(owned.HasPixels());
}

// Rectangles are in the image's bounds coordinates (top 10, left 20 here).
TEST(PixelImage, FillRectFillsExactlyTheOverlap) {
  const struct {
    ShortRect rect;
    int top, left, bottom, right;  // the ink expected, in pixel coordinates
  } cases[] = {
      {{0, 0, 10, 20}, 0, 0, 0, 0},      {{14, 20, 20, 25}, 0, 0, 0, 0}, {{-30, -30, -20, -20}, 0, 0, 0, 0},
      {{10, 25, 14, 40}, 0, 0, 0, 0},    {{11, 0, 13, 20}, 0, 0, 0, 0},  // rows overlap, columns do not
      {{12, 18, 30, 22}, 2, 0, 4, 2},    {{11, 21, 12, 23}, 1, 1, 2, 3},
  };
  PixelImage img(ShortRect{10, 20, 14, 25});
  for (const auto& c : cases) {
    img.FillAll(0x11111111u);
    img.FillRect(c.rect, 0xA0B0C0D0u);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x) {
        const bool in = y >= c.top && y < c.bottom && x >= c.left && x < c.right;
        EXPECT_EQ(PixelWord(img.PixelAt(int16_t(y), int16_t(x))), in ? 0xA0B0C0D0u : 0x11111111u)
            << c.rect.top << "," << c.rect.left << ": " << y << "," << x;
      }
  }
}

TEST(PixelImage, ResizeReusesTheBufferWhenItFits) {
  AllocStats& stats = *PluginAllocStats();
  PixelImage img(ShortRect{0, 0, 4, 6});
  uint8_t* const base = img.BaseAddress();
  const int64_t allocs = stats.allocCount, live = stats.liveBlocks;
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 4, 6}));
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 3, 2}));  // smaller: same buffer, new stride
  EXPECT_EQ(img.RowBytes(), 8);
  EXPECT_EQ(img.ByteSize(), 96);
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 2, 12}));  // exactly the buffer's size still fits
  EXPECT_EQ(img.BaseAddress(), base);
  EXPECT_EQ(stats.allocCount, allocs);
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 7, 7}));  // larger: freed and allocated again
  EXPECT_EQ(img.ByteSize(), 196);
  EXPECT_EQ(stats.allocCount, allocs + 2);  // record and buffer
  EXPECT_EQ(stats.liveBlocks, live);

  // A wrapped buffer is reused but never owned, until it is too small.
  Picture wrapped(8, 4);
  ASSERT_TRUE(wrapped.image.Resize(ShortRect{0, 0, 2, 5}));
  EXPECT_EQ(wrapped.image.BaseAddress(), reinterpret_cast<uint8_t*>(wrapped.pixels.data()));
  EXPECT_FALSE(wrapped.image.OwnsPixels());
  ASSERT_TRUE(wrapped.image.Resize(ShortRect{0, 0, 10, 10}));
  EXPECT_TRUE(wrapped.image.OwnsPixels());
}

TEST(PixelImage, ReleaseAndFailuresLeaveNothingBehind) {
  AllocStats& stats = *PluginAllocStats();
  const int64_t live = stats.liveBlocks;
  {
    PixelImage img(ShortRect{0, 0, 3, 3});
    EXPECT_EQ(stats.liveBlocks, live + 2);
    EXPECT_TRUE(img.Allocate(ShortRect{0, 0, 5, 5}));  // over an existing record: no leak
    EXPECT_EQ(stats.liveBlocks, live + 2);
    img.Release();
    EXPECT_EQ(stats.liveBlocks, live);
    EXPECT_EQ(img.ByteSize(), 0);
    for (int failAt : {1, 2}) {  // the record, the pixel buffer
      stats.failAt = failAt;
      EXPECT_FALSE(img.Allocate(ShortRect{0, 0, 3, 3}));
      EXPECT_EQ(stats.liveBlocks, live);
    }
    std::vector<PF_Pixel> buf(4);
    stats.failAt = 1;
    EXPECT_FALSE(img.Wrap(2, 2, 8, buf.data(), AllRows));
    EXPECT_FALSE(img.HasPixels());
    stats.failAt = 0;
  }
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

TEST(GeometryTypes, ShortRectsKeepTheLow16Bits) {
  const ShortRect s = ToShortRect(LongRect{70000, -1, 65536 + 5, -65536 - 2});
  EXPECT_EQ((std::vector<int>{s.left, s.top, s.right, s.bottom}), (std::vector<int>{4464, -1, 5, -2}));
}

}  // namespace
}  // namespace tarvo
