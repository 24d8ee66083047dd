// Pixel images: wrapping, allocating, resizing, filling and row walking.
#include "pixel_image.h"

#include <string.h>

#include <algorithm>

#include "plugin_alloc.h"

namespace tarvo {

LongRect ToLongRect(const ShortRect& r) { return LongRect{r.left, r.top, r.right, r.bottom}; }

ShortRect ToShortRect(const LongRect& r) {
  return ShortRect{static_cast<int16_t>(r.top), static_cast<int16_t>(r.left), static_cast<int16_t>(r.bottom),
                   static_cast<int16_t>(r.right)};
}

uint32_t PixelWord(const PF_Pixel& p) {
  uint32_t word;
  memcpy(&word, &p, sizeof word);
  return word;
}

void RowCursor::CopyRowTo(const RowCursor& dst) const {
  // The source row's stride counts, but never more than the destination row
  // holds. Negative strides (never made by PixelImage) copy nothing.
  const int32_t bytes = std::min<int32_t>(stride, dst.stride);
  if (bytes > 0) memmove(dst.ptr, ptr, static_cast<size_t>(bytes));
}

PixelImage::PixelImage(PixMapRec** handle)
    : rec_handle(handle), rec(nullptr), byte_size(0), width(0), height(0), owns_pixels(0) {
  UpdateSize();
}

PixelImage::PixelImage(const PixelImage& owner, bool /*view*/)
    : rec_handle(owner.rec_handle), rec(nullptr), byte_size(0), width(0), height(0), owns_pixels(0) {
  UpdateSize();
}

PixelImage::PixelImage(const ShortRect& r)
    : rec_handle(nullptr), rec(nullptr), byte_size(0), width(0), height(0), owns_pixels(0) {
  Allocate(r);
}

PixelImage::PixelImage(int16_t w, int16_t h, void* pixels, FieldSelect field)
    : rec_handle(nullptr), rec(nullptr), byte_size(0), width(0), height(0), owns_pixels(0) {
  Wrap(w, h, static_cast<int32_t>(w) * 4, pixels, field);
}

PixelImage::~PixelImage() { Release(); }

bool PixelImage::Wrap(int16_t w, int16_t h, int32_t rowbytes, void* data, FieldSelect field) {
  Release();
  if (data == nullptr) {
    width = w;
    height = h;
    return true;
  }
  PixMapRec* r = PluginNew<PixMapRec>();
  if (r == nullptr) return false;

  r->bounds = LongRect{0, 0, w, h};
  r->rowbytes = rowbytes;
  r->depth = 32;
  r->base = static_cast<uint8_t*>(data);
  // 64-bit product: a rowbytes outside the data model must not overflow.
  int64_t size = static_cast<int64_t>(rowbytes) * h;

  if (field == LowerField) {
    r->base += rowbytes;
    size -= rowbytes;
  }
  if (field == LowerField || field == UpperField) {
    r->rowbytes = static_cast<int32_t>(static_cast<uint32_t>(rowbytes) * 2u);
    r->bounds.bottom = r->bounds.bottom / 2;
  }
  byte_size = static_cast<int32_t>(std::clamp<int64_t>(size, INT32_MIN, INT32_MAX));
  rec = r;
  rec_handle = &rec;
  width = w;
  height = h;
  UpdateSize();
  return true;
}

bool PixelImage::Allocate(const ShortRect& r) {
  if (r.IsEmpty()) return false;
  const int32_t rowbytes = static_cast<int32_t>(r.Width()) * 4;
  const int64_t size = static_cast<int64_t>(rowbytes) * r.Height();
  if (size > INT32_MAX) return false;  // byte_size is 32-bit

  PixMapRec* record = PluginNew<PixMapRec>();
  if (record == nullptr) return false;
  record->bounds = ToLongRect(r);
  record->rowbytes = rowbytes;
  record->depth = 32;

  uint8_t* pixels = static_cast<uint8_t*>(PluginAlloc(static_cast<size_t>(size)));
  if (pixels == nullptr) {
    PluginDelete(record);
    return false;
  }
  record->base = pixels;
  // Callers release first; an own record still held here would otherwise leak.
  if (rec != nullptr) Release();
  owns_pixels = 1;
  rec = record;
  byte_size = static_cast<int32_t>(size);
  rec_handle = &rec;
  UpdateSize();
  return true;
}

bool PixelImage::Resize(const ShortRect& r) {
  if (HasPixels()) {
    const ShortRect b = Bounds();
    if (b.top == r.top && b.left == r.left && b.bottom == r.bottom && b.right == r.right) return true;
  }
  // An empty rectangle never reuses the buffer: its negative row bytes would
  // turn into a huge masked stride. It falls through to Allocate, which fails.
  if (rec != nullptr && !r.IsEmpty() &&
      static_cast<int64_t>(r.Width()) * r.Height() * 4 <= static_cast<int64_t>(byte_size)) {
    rec->bounds = ToLongRect(r);
    rec->rowbytes = static_cast<int32_t>(r.Width()) * 4;
    rec_handle = &rec;
    UpdateSize();
    return true;
  }
  Release();
  return Allocate(r);
}

void PixelImage::Release() {
  rec_handle = nullptr;
  width = 0;
  height = 0;
  if (rec != nullptr) {
    if (owns_pixels) {
      PluginFree(rec->base);
      owns_pixels = 0;
    }
    PluginDelete(rec);
    rec = nullptr;
    byte_size = 0;
  }
}

void PixelImage::UpdateSize() {
  if (rec_handle == nullptr) return;
  const PixMapRec* r = *rec_handle;
  if (r == nullptr) {
    // A handle to no record describes no pixels.
    width = 0;
    height = 0;
    return;
  }
  width = static_cast<int16_t>(r->bounds.right - r->bounds.left);
  height = static_cast<int16_t>(r->bounds.bottom - r->bounds.top);
}

ShortRect PixelImage::Bounds() const {
  if (!HasPixels()) return ShortRect{0, 0, 0, 0};
  return ToShortRect((*rec_handle)->bounds);
}

void PixelImage::FillRect(const ShortRect& r, uint32_t pixelWord) {
  if (!HasPixels() || BaseAddress() == nullptr) return;
  const ShortRect b = Bounds();
  const int32_t top = std::max(b.top, r.top) - b.top;
  const int32_t left = std::max(b.left, r.left) - b.left;
  const int32_t bottom = std::min(b.bottom, r.bottom) - b.top;
  const int32_t right = std::min(b.right, r.right) - b.left;
  if (right - left < 1 || bottom - top < 1) return;

  RowCursor cursor = RowAt(static_cast<int16_t>(top));
  cursor.Skip(left);
  const int32_t count = right - left;
  for (int32_t y = top; y < bottom; ++y) {
    // A host's rowbytes need not be a multiple of 4: rows may be unaligned.
    uint8_t* p = cursor.ptr;
    for (int32_t x = 0; x < count; ++x, p += 4) memcpy(p, &pixelWord, 4);
    cursor.Next();
  }
}

void PixelImage::FillAll(uint32_t pixelWord) { FillRect(Bounds(), pixelWord); }

}  // namespace tarvo
