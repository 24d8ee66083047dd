// Test images over plain memory: a pixel buffer (rows may carry padding,
// the buffer may end in guard pixels) with a PixelImage over it, and exact
// pixel comparisons that print the channels.
#pragma once

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "pixel_image.h"

namespace tarvo::testing {

inline bool Same(const PF_Pixel& a, const PF_Pixel& b) { return memcmp(&a, &b, sizeof a) == 0; }

inline ::testing::AssertionResult PixelIs(const PF_Pixel& p, int a, int r, int g, int b) {
  if (p.alpha == a && p.red == r && p.green == g && p.blue == b) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "pixel (" << +p.alpha << ", " << +p.red << ", " << +p.green << ", " << +p.blue
                                       << "), expected (" << a << ", " << r << ", " << g << ", " << b << ")";
}
inline ::testing::AssertionResult PixelIs(const PF_Pixel& p, const PF_Pixel& w) {
  return PixelIs(p, w.alpha, w.red, w.green, w.blue);
}

struct Picture {
  int w, h, stride;  // stride in pixels
  std::vector<PF_Pixel> pixels;
  PixelImage image;

  Picture(int width, int height, int pad = 0, size_t guard = 0)
      : w(width),
        h(height),
        stride(width + pad),
        pixels(static_cast<size_t>(width + pad) * height + guard, PF_Pixel{1, 2, 3, 4}) {
    image.Wrap(static_cast<int16_t>(w), static_cast<int16_t>(h), stride * 4, pixels.data(), AllRows);
  }
  PF_Pixel& At(int y, int x) { return pixels[static_cast<size_t>(y) * stride + x]; }
  void Fill(PF_Pixel p) { std::fill(pixels.begin(), pixels.end(), p); }
  // Random bytes; with extremes, one pixel in four all 0 or all 255, where
  // the clamps act.
  void Randomize(uint32_t seed, bool extremes = false) {
    std::mt19937 rng(seed);
    for (PF_Pixel& p : pixels) {
      uint32_t v = rng();
      if (extremes && (v & 7) < 2) v = (v & 7) ? 0u : 0xFFFFFFFFu;
      p = PF_Pixel{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    }
  }
};

}  // namespace tarvo::testing
