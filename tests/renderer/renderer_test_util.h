// Helpers for the renderer tests: a renderer built from pixel-unit inputs
// over a frame in plain memory, and a writer that counts every map write.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "host_call.h"
#include "test_picture.h"

#include "field_spreading.h"
#include "geometry.h"
#include "ripple_renderer.h"
#include "simd_level.h"
#include "source_map.h"
#include "wave_table.h"

namespace tarvo::rendertest {

// Caps the vector width for one scope, then restores the widest.
struct SimdLimit {
  explicit SimdLimit(SimdLevel level) { LimitSimd(level); }
  ~SimdLimit() { LimitSimd(SimdLevel::kAvx2); }
};

// The wave the test renderers ripple with (a render makes its own).
inline WaveTable& RippleWave() {
  static WaveTable wave{};
  return wave;
}

inline void BuildTables() {
  g_arcTanTable.Build();
  g_sineTable.Build(kSine, false);
  RippleWave().Build(kSine, true);
}

using Frame = testing::Picture;

// The renderer's inputs in source pixels.
struct Inputs : RendererSettings {
  Inputs() : RendererSettings{{0, 0, 0, 0, 4.5f, 50}, 1, 0, 0, 0, 0} {}
};

struct Rendered {
  Frame frame;
  RenderSetup setup;
  std::unique_ptr<RippleRenderer> renderer;

  Rendered(int w, int h, const Inputs& in) : frame(w, h), setup{&frame.image, w, h, kSampleBilinear, {0, 0, 0, 0}} {
    BuildTables();
    renderer = std::make_unique<RippleRenderer>(setup, in, RippleWave());
  }
  RippleRenderer& operator*() { return *renderer; }
  RippleRenderer* operator->() { return renderer.get(); }
};

// Records every span and counts every point written, and any write that
// would leave the map.
struct CountingSink {
  int32_t rows, cols;
  std::vector<int> counts;
  std::vector<MapPoint> points;
  std::map<int32_t, std::pair<int32_t, int32_t>> spans;
  int outside = 0;
  int repeatedSpans = 0;

  CountingSink(int32_t r, int32_t c)
      : rows(r), cols(c), counts(static_cast<size_t>(r) * c), points(static_cast<size_t>(r) * c) {}

  struct Writer {
    CountingSink* sink;
    int32_t row;
    void Put(int32_t column, float r, float c) {
      if (row < 0 || row >= sink->rows || column < 0 || column >= sink->cols) {
        ++sink->outside;
        return;
      }
      const size_t k = static_cast<size_t>(row) * sink->cols + column;
      ++sink->counts[k];
      sink->points[k] = {r, c};
    }
  };

  void Span(int32_t row, int32_t first, int32_t last) {
    if (row < 0 || row >= rows) ++outside;
    if (first > last) return;
    if (spans.count(row)) ++repeatedSpans;
    spans[row] = {first, last};
  }
  Writer Row(int32_t row) { return Writer{this, row}; }

  int Count(int32_t r, int32_t c) const { return counts[static_cast<size_t>(r) * cols + c]; }
  const MapPoint& Point(int32_t r, int32_t c) const { return points[static_cast<size_t>(r) * cols + c]; }
};

inline CountingSink Spread(const RippleRenderer& rr) {
  CountingSink sink(rr.height + 1, rr.width + 1);
  SpreadFieldTo(rr, sink);
  return sink;
}

using HostCall = tarvo::testing::HostCall;

}  // namespace tarvo::rendertest
