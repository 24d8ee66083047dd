// Shared helpers of the output stage tests: a host call whose progress
// callback can ask for a stop at its Nth call, and small images.
#pragma once

#include "host_call.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "call_context.h"
#include "host_api.h"
#include "pixel_image.h"
#include "source_map.h"

namespace tarvo::outtest {

using HostCall = tarvo::testing::HostCall;

inline bool Same(const PF_Pixel& a, const PF_Pixel& b) { return memcmp(&a, &b, sizeof a) == 0; }

// A pixel buffer with a PixelImage over it; rows may carry padding.
struct Picture {
  int w, h, stridePixels;
  std::vector<PF_Pixel> pixels;
  PixelImage image;

  Picture(int width, int height, int pad = 0, size_t guard = 0)
      : w(width), h(height), stridePixels(width + pad),
        pixels(static_cast<size_t>(width + pad) * height + guard, PF_Pixel{1, 2, 3, 4}) {
    image.Wrap(int16_t(w), int16_t(h), stridePixels * 4, pixels.data(), AllRows);
  }
  PF_Pixel& At(int y, int x) { return pixels[static_cast<size_t>(y) * stridePixels + x]; }
  void Fill(PF_Pixel p) { std::fill(pixels.begin(), pixels.end(), p); }
  void Randomize(uint32_t seed) {
    std::mt19937 rng(seed);
    for (PF_Pixel& p : pixels) {
      const uint32_t v = rng();
      p = PF_Pixel{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    }
  }
};

inline RenderSetup SetupFor(const Picture& src, int32_t mode) {
  return RenderSetup{&src.image, src.w, src.h, mode, PF_Pixel{0, 0, 0, 0}};
}

// Writes every point of row y in [first, last] at its own grid position
// moved by (dy, dx), and records the span.
inline void WriteRow(SourceMap& map, int32_t y, int32_t first, int32_t last, float dy = 0, float dx = 0) {
  for (int32_t x = first; x <= last; ++x) map.At(y, x) = MapPoint{static_cast<float>(y) + dy, static_cast<float>(x) + dx};
  map.SetRowSpan(y, first, last);
}

}  // namespace tarvo::outtest
