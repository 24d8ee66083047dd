// Host images for renders through the module: every byte, row padding and
// the kTail bytes after the last row included, starts as kGuard, so that a
// write outside the pixels shows; and what to compare.
#pragma once

#include <string.h>

#include <vector>

#include "host.h"

namespace tarvo::host {

constexpr uint8_t kGuard = 0xEE;
constexpr size_t kTail = 64;  // guard bytes after the last row

// An image whose every byte is kGuard, its buffer running kTail bytes past
// its last row.
inline Image Guarded(int w, int h, int rowbytes = 0) {
  Image img(w, h, rowbytes);
  img.data.resize(img.data.size() + kTail);
  memset(img.data.data(), kGuard, img.data.size());
  return img;
}
inline bool GuardsIntact(const Image& img) {
  for (int y = 0; y < img.height; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(img.Row(y));
    for (int i = img.width * 4; i < img.rowbytes; ++i)
      if (row[i] != kGuard) return false;
  }
  for (size_t i = static_cast<size_t>(img.rowbytes) * static_cast<size_t>(img.height); i < img.data.size(); ++i)
    if (img.data[i] != kGuard) return false;
  return true;
}
// The pixels only, without padding or guards.
inline std::vector<uint8_t> Pixels(const Image& img) {
  std::vector<uint8_t> v;
  for (int y = 0; y < img.height; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(img.Row(y));
    v.insert(v.end(), row, row + img.width * 4);
  }
  return v;
}
inline bool AllTransparentBlack(const Image& img) {
  for (uint8_t b : Pixels(img))
    if (b) return false;
  return true;
}

}  // namespace tarvo::host
