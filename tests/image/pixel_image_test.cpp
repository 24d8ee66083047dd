// PixelImage: field selection, fills, resizing, the empty image, views and
// row copies.
#include "pixel_image.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "plugin_alloc.h"

namespace tarvo {
namespace {

PF_Pixel Px(uint8_t a, uint8_t r, uint8_t g, uint8_t b) { return PF_Pixel{a, r, g, b}; }

bool Same(const PF_Pixel& x, const PF_Pixel& y) { return memcmp(&x, &y, sizeof x) == 0; }

// A buffer whose pixel (row, column) has red = row and green = column.
std::vector<PF_Pixel> Numbered(int w, int h) {
  std::vector<PF_Pixel> v(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) v[static_cast<size_t>(y) * w + x] = Px(255, uint8_t(y), uint8_t(x), 7);
  return v;
}

TEST(PixelImageWrap, FieldSelection) {
  std::vector<PF_Pixel> buf = Numbered(4, 5);

  PixelImage all(4, 5, buf.data(), AllRows);
  ASSERT_TRUE(all.HasPixels());
  EXPECT_EQ(all.Height(), 5);
  EXPECT_EQ(all.Width(), 4);
  EXPECT_EQ(all.RowBytes(), 16);
  EXPECT_EQ(all.ByteSize(), 80);
  EXPECT_FALSE(all.OwnsPixels());

  PixelImage upper(4, 5, buf.data(), UpperField);
  EXPECT_EQ(upper.Height(), 2);
  EXPECT_EQ(upper.Width(), 4);
  EXPECT_EQ(upper.RowBytes(), 32);
  EXPECT_EQ(upper.ByteSize(), 80);
  EXPECT_EQ(upper.PixelAt(0, 1).red, 0);
  EXPECT_EQ(upper.PixelAt(1, 1).red, 2);
  EXPECT_EQ(upper.PixelAt(1, 3).green, 3);

  PixelImage lower(4, 5, buf.data(), LowerField);
  EXPECT_EQ(lower.Height(), 2);
  EXPECT_EQ(lower.RowBytes(), 32);
  EXPECT_EQ(lower.ByteSize(), 64);
  EXPECT_EQ(lower.BaseAddress(), reinterpret_cast<uint8_t*>(buf.data() + 4));
  EXPECT_EQ(lower.PixelAt(0, 0).red, 1);
  EXPECT_EQ(lower.PixelAt(1, 2).red, 3);
  const ShortRect b = lower.Bounds();
  EXPECT_EQ(b.top, 0);
  EXPECT_EQ(b.left, 0);
  EXPECT_EQ(b.bottom, 2);
  EXPECT_EQ(b.right, 4);
}

TEST(PixelImageWrap, PaddedRowsAndNullData) {
  std::vector<PF_Pixel> buf(6 * 3);
  PixelImage img;
  ASSERT_TRUE(img.Wrap(4, 3, 24, buf.data(), AllRows));
  EXPECT_EQ(img.RowBytes(), 24);
  EXPECT_EQ(img.ByteSize(), 72);
  EXPECT_EQ(&img.PixelAt(2, 1), &buf[2 * 6 + 1]);
  EXPECT_EQ(img.RowAt(1).stride, 24);

  // A null buffer keeps the dimensions but describes no pixels.
  ASSERT_TRUE(img.Wrap(9, 7, 36, nullptr, AllRows));
  EXPECT_FALSE(img.HasPixels());
  EXPECT_EQ(img.Width(), 9);
  EXPECT_EQ(img.Height(), 7);
  const ShortRect b = img.Bounds();
  EXPECT_EQ(b.top | b.left | b.bottom | b.right, 0);
  img.FillAll(0xFFFFFFFFu);  // nothing to fill, must not crash
}

TEST(PixelImageEmpty, NoRecordMeansNoPixels) {
  PixelImage empty;
  EXPECT_FALSE(empty.HasPixels());
  EXPECT_EQ(empty.Width(), 0);
  EXPECT_EQ(empty.Height(), 0);
  ShortRect b = empty.Bounds();
  EXPECT_EQ(b.top | b.left | b.bottom | b.right, 0);
  empty.FillAll(0x12345678u);
  empty.FillRect(ShortRect{0, 0, 10, 10}, 1u);

  PixelImage fromEmptyRect(ShortRect{0, 0, 0, 5});
  EXPECT_FALSE(fromEmptyRect.HasPixels());
  EXPECT_FALSE(fromEmptyRect.Allocate(ShortRect{3, 3, 5, 3}));
  EXPECT_FALSE(fromEmptyRect.Allocate(ShortRect{0, 0, -2, -2}));
  EXPECT_FALSE(fromEmptyRect.HasPixels());
}

class PixelImageFill : public ::testing::Test {
 protected:
  static constexpr uint32_t kBack = 0x11111111u;
  static constexpr uint32_t kInk = 0xA0B0C0D0u;

  // A 5 × 4 image whose bounds start at (top 10, left 20).
  void SetUp() override {
    ASSERT_TRUE(img.Allocate(ShortRect{10, 20, 14, 25}));
    img.FillAll(kBack);
  }
  // Every pixel is ink exactly inside [top, bottom) × [left, right) in image
  // coordinates.
  void ExpectInk(int top, int left, int bottom, int right) {
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x) {
        const bool in = y >= top && y < bottom && x >= left && x < right;
        EXPECT_EQ(PixelWord(img.PixelAt(int16_t(y), int16_t(x))), in ? kInk : kBack) << y << "," << x;
      }
  }
  PixelImage img{nullptr};
};

TEST_F(PixelImageFill, WhollyOutsideWritesNothing) {
  img.FillRect(ShortRect{0, 0, 10, 20}, kInk);      // above and left
  img.FillRect(ShortRect{14, 20, 20, 25}, kInk);    // just below
  img.FillRect(ShortRect{-30, -30, -20, -20}, kInk);
  ExpectInk(0, 0, 0, 0);
}

TEST_F(PixelImageFill, RowsOverlapButColumnsDoNot) {
  img.FillRect(ShortRect{10, 25, 14, 40}, kInk);
  img.FillRect(ShortRect{11, 0, 13, 20}, kInk);
  ExpectInk(0, 0, 0, 0);
}

TEST_F(PixelImageFill, PartialOverlapFillsExactlyTheOverlap) {
  img.FillRect(ShortRect{12, 18, 30, 22}, kInk);
  ExpectInk(2, 0, 4, 2);
}

TEST_F(PixelImageFill, InteriorRectangleTranslatedByBounds) {
  img.FillRect(ShortRect{11, 21, 12, 23}, kInk);
  ExpectInk(1, 1, 2, 3);
}

TEST_F(PixelImageFill, FillAllCoversEveryPixel) {
  img.FillAll(kInk);
  ExpectInk(0, 0, 4, 5);
}

TEST(PixelImageResize, SameSmallerLarger) {
  PixelImage img(ShortRect{0, 0, 4, 6});
  ASSERT_TRUE(img.HasPixels());
  ASSERT_TRUE(img.OwnsPixels());
  uint8_t* const base = img.BaseAddress();
  EXPECT_EQ(img.ByteSize(), 96);
  const int64_t allocsBefore = PluginAllocStats()->allocCount;

  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 4, 6}));
  EXPECT_EQ(img.BaseAddress(), base);
  EXPECT_EQ(img.RowBytes(), 24);

  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 3, 2}));
  EXPECT_EQ(img.BaseAddress(), base);
  EXPECT_EQ(img.RowBytes(), 8);
  EXPECT_EQ(img.Width(), 2);
  EXPECT_EQ(img.Height(), 3);
  EXPECT_EQ(img.ByteSize(), 96);  // the buffer keeps its size
  EXPECT_EQ(PluginAllocStats()->allocCount, allocsBefore);

  // Exactly the buffer's size still fits.
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 2, 12}));
  EXPECT_EQ(img.BaseAddress(), base);
  EXPECT_EQ(img.RowBytes(), 48);

  const int64_t liveBefore = PluginAllocStats()->liveBlocks;
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 7, 7}));
  EXPECT_EQ(img.ByteSize(), 196);
  EXPECT_EQ(img.RowBytes(), 28);
  EXPECT_TRUE(img.OwnsPixels());
  EXPECT_EQ(PluginAllocStats()->allocCount, allocsBefore + 2);  // record and buffer
  EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore);        // the old ones were freed
}

TEST(PixelImageResize, WrappedBufferIsReusedButNeverOwned) {
  std::vector<PF_Pixel> buf(8 * 4);
  PixelImage img(8, 4, buf.data(), AllRows);
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 2, 5}));
  EXPECT_EQ(img.BaseAddress(), reinterpret_cast<uint8_t*>(buf.data()));
  EXPECT_EQ(img.RowBytes(), 20);
  EXPECT_FALSE(img.OwnsPixels());

  // Larger than the wrapped buffer: a fresh owned buffer.
  ASSERT_TRUE(img.Resize(ShortRect{0, 0, 10, 10}));
  EXPECT_NE(img.BaseAddress(), reinterpret_cast<uint8_t*>(buf.data()));
  EXPECT_TRUE(img.OwnsPixels());
}

TEST(PixelImageResize, EmptyRectangleFailsAndReleases) {
  PixelImage img(ShortRect{0, 0, 4, 4});
  EXPECT_FALSE(img.Resize(ShortRect{0, 0, 4, -3}));
  EXPECT_FALSE(img.HasPixels());
}

TEST(PixelImageMemory, ReleaseAndFailuresLeaveNothingBehind) {
  AllocStats* stats = PluginAllocStats();
  const int64_t live = stats->liveBlocks;
  {
    PixelImage img(ShortRect{0, 0, 3, 3});
    EXPECT_EQ(stats->liveBlocks, live + 2);
    img.Release();
    EXPECT_EQ(stats->liveBlocks, live);
    EXPECT_FALSE(img.HasPixels());
    EXPECT_EQ(img.Width(), 0);
    EXPECT_EQ(img.ByteSize(), 0);
  }
  {
    PixelImage img;
    stats->failAt = 1;  // the record
    EXPECT_FALSE(img.Allocate(ShortRect{0, 0, 3, 3}));
    stats->failAt = 2;  // the pixel buffer
    EXPECT_FALSE(img.Allocate(ShortRect{0, 0, 3, 3}));
    EXPECT_FALSE(img.HasPixels());
    EXPECT_EQ(stats->liveBlocks, live);

    std::vector<PF_Pixel> buf(4);
    stats->failAt = 1;
    EXPECT_FALSE(img.Wrap(2, 2, 8, buf.data(), AllRows));
    EXPECT_FALSE(img.HasPixels());
    stats->failAt = 0;
  }
  {
    // Allocating over an existing record does not leak the old one.
    PixelImage img(ShortRect{0, 0, 3, 3});
    EXPECT_TRUE(img.Allocate(ShortRect{0, 0, 5, 5}));
    EXPECT_EQ(stats->liveBlocks, live + 2);
  }
  EXPECT_EQ(stats->liveBlocks, live);
}

TEST(PixelImageView, FollowsOwnersRecordWithFixedSize) {
  PixelImage owner(ShortRect{0, 0, 3, 4});
  PixelImage view(owner, true);
  EXPECT_TRUE(view.HasPixels());
  EXPECT_EQ(view.BaseAddress(), owner.BaseAddress());
  EXPECT_EQ(view.Width(), 4);
  EXPECT_EQ(view.Height(), 3);

  ASSERT_TRUE(owner.Resize(ShortRect{0, 0, 2, 2}));
  EXPECT_EQ(view.Bounds().bottom, 2);  // the record is shared
  EXPECT_EQ(view.RowBytes(), 8);
  EXPECT_EQ(view.Height(), 3);  // the size was fixed when the view was made
  view.Release();
  EXPECT_TRUE(owner.HasPixels());  // a view frees nothing
}

TEST(RowCursorCopy, CopiesSourceStrideLimitedToDestination) {
  std::vector<PF_Pixel> src = Numbered(6, 2);
  std::vector<PF_Pixel> dst(8, Px(9, 9, 9, 9));
  PixelImage wide;
  ASSERT_TRUE(wide.Wrap(4, 2, 24, src.data(), AllRows));  // 4 pixels, stride of 6
  PixelImage narrow;
  ASSERT_TRUE(narrow.Wrap(3, 2, 16, dst.data(), AllRows));  // stride of 4

  // The stride, not the width, counts, up to what the destination row holds.
  wide.RowAt(1).CopyRowTo(narrow.RowAt(0));
  for (int x = 0; x < 4; ++x) EXPECT_TRUE(Same(dst[x], src[6 + x])) << x;
  for (int x = 4; x < 8; ++x) EXPECT_TRUE(Same(dst[x], Px(9, 9, 9, 9))) << x;

  // Into a roomier row: all six pixels of the source stride, not just four.
  std::fill(dst.begin(), dst.end(), Px(9, 9, 9, 9));
  wide.RowAt(0).CopyRowTo(RowCursor{reinterpret_cast<uint8_t*>(dst.data()), 32});
  for (int x = 0; x < 6; ++x) EXPECT_TRUE(Same(dst[x], src[x])) << x;
  EXPECT_TRUE(Same(dst[6], Px(9, 9, 9, 9)));
}

TEST(GeometryTypes, Conversions) {
  const LongRect l = ToLongRect(ShortRect{-3, -4, 100, 200});
  EXPECT_EQ(l.left, -4);
  EXPECT_EQ(l.top, -3);
  EXPECT_EQ(l.right, 200);
  EXPECT_EQ(l.bottom, 100);

  const ShortRect s = ToShortRect(LongRect{70000, -1, 65536 + 5, -65536 - 2});
  EXPECT_EQ(s.left, 4464);
  EXPECT_EQ(s.top, -1);
  EXPECT_EQ(s.right, 5);
  EXPECT_EQ(s.bottom, -2);

  const ShortRect moved = OffsetRect(ShortRect{10, 20, 30, 40}, ShortPoint{-10, -20});
  EXPECT_EQ(moved.top, 0);
  EXPECT_EQ(moved.left, 0);
  EXPECT_EQ(moved.bottom, 20);
  EXPECT_EQ(moved.right, 20);
}

}  // namespace
}  // namespace tarvo
