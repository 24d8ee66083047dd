// Pixel images: the description every piece of pixel code works on.
//
// Conventions, stated once for all pixel code:
// - A pixel is a PF_Pixel: bytes alpha, red, green, blue in memory, straight
//   colour. Handled as one 32-bit word it keeps that memory order.
// - Rows grow downward; points are (row, column). Source pixel (r, c) covers
//   the unit square from (r, c) to (r + 1, c + 1), so grid points sit at
//   integer positions at the pixels' corners.
// - The row stride is rowbytes & 0x3FFF carried as a signed 16-bit value: a
//   row is at most 16,383 bytes, an image at most 4,095 pixels wide.
// - "Outside the image" reads as transparent black wherever a sampler has to
//   read there; nothing ever reads or writes memory outside the rows.
#pragma once

#include <stdint.h>

#include "fixed_point.h"
#include "pf_pixel.h"

namespace tarvo {

// A channel value from a mix or an average: min(255, truncated v); a value
// beyond the int32 range still clamps to 255, one that is not a number
// reads as 0.
inline uint8_t ClampChannel(double v) {
  if (v >= 255.0) return 255;
  if (!(v > 0.0)) return 0;
  return static_cast<uint8_t>(TruncToInt32(v));
}

// top, left, bottom, right; bottom and right exclusive.
struct ShortRect {
  int16_t top, left, bottom, right;
  int16_t Width() const { return static_cast<int16_t>(right - left); }
  int16_t Height() const { return static_cast<int16_t>(bottom - top); }
  bool IsEmpty() const { return Width() < 1 || Height() < 1; }
};

// left, top, right, bottom (note the order differs from ShortRect).
struct LongRect {
  int32_t left, top, right, bottom;
};

LongRect ToLongRect(const ShortRect& r);   // sign-extends
ShortRect ToShortRect(const LongRect& r);  // keeps the low 16 bits

struct PixMapRec {
  LongRect bounds;
  int32_t rowbytes;
  int32_t depth;  // always 32
  uint8_t* base;  // first byte of the top row
};

// The fields are for the family's effects on interlaced frames; the Ripple effect wraps all rows.
enum FieldSelect : int32_t { AllRows = 0, UpperField = 1, LowerField = 2 };

// One row of an image: its first byte and the stride to the next row.
struct RowCursor {
  uint8_t* ptr;
  int16_t stride;

  PF_Pixel* Pixels() const { return reinterpret_cast<PF_Pixel*>(ptr); }
  void Next() { ptr += stride; }
  void Skip(int32_t n) { ptr += 4 * static_cast<intptr_t>(n); }
  // Copies this cursor's stride in bytes (not the image width) to the other
  // row, but never more than the other row's stride holds.
  void CopyRowTo(const RowCursor& dst) const;
};

class PixelImage {
 public:
  explicit PixelImage(PixMapRec** handle = nullptr);   // empty when null
  PixelImage(const PixelImage& owner, bool /*view*/);  // view of another image
  explicit PixelImage(const ShortRect& r);             // Allocate(r)
  PixelImage(int16_t width, int16_t height, void* pixels, FieldSelect field);
  virtual ~PixelImage();

  PixelImage(const PixelImage&) = delete;
  PixelImage& operator=(const PixelImage&) = delete;

  bool Wrap(int16_t width, int16_t height, int32_t rowbytes, void* data, FieldSelect field);
  bool Allocate(const ShortRect& r);
  bool Resize(const ShortRect& r);  // MakeTFXWorld's blank frame only
  void Release();
  // Re-reads width and height from the record; a handle to no record gives 0.
  void UpdateSize();

  bool HasPixels() const { return rec_handle != nullptr && *rec_handle != nullptr; }
  ShortRect Bounds() const;
  // Only for an image with HasPixels.
  uint8_t* BaseAddress() const { return (*rec_handle)->base; }
  int16_t RowBytes() const { return static_cast<int16_t>((*rec_handle)->rowbytes & 0x3FFF); }
  int16_t Width() const { return width; }
  int16_t Height() const { return height; }
  int32_t ByteSize() const { return byte_size; }
  bool OwnsPixels() const { return owns_pixels != 0; }

  // No bounds checks: the caller passes a row (and column) inside the image.
  RowCursor RowAt(int16_t row) const {
    const int16_t stride = RowBytes();
    return RowCursor{BaseAddress() + static_cast<intptr_t>(stride) * row, stride};
  }
  PF_Pixel& PixelAt(int16_t row, int16_t column) const { return RowAt(row).Pixels()[column]; }

  void FillRect(const ShortRect& r, uint32_t pixelWord);
  void FillAll(uint32_t pixelWord);

 private:
  PixMapRec** rec_handle;
  PixMapRec* rec;
  int32_t byte_size;
  int16_t width;
  int16_t height;
  uint8_t owns_pixels;
};

// The 32-bit word whose memory bytes are the pixel's bytes.
uint32_t PixelWord(const PF_Pixel& p);

}  // namespace tarvo
