// Pinning each map row as the spreading finishes it must leave every byte
// of the map as spreading the whole map and pinning it afterwards does:
// every pin mode, the symmetric and the rotated field, centres outside the
// frame, at each vector width.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "field_simd.h"
#include "output_stage.h"
#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::Inputs;
using rendertest::Rendered;
using rendertest::SimdLimit;

std::vector<uint8_t> SpreadAndPin(int w, int h, const Inputs& in, bool eager) {
  Rendered r(w, h, in);
  EXPECT_TRUE(r->ready);
  if (!r->ready) return {};
  const PinProfiles pins(in.pinMode, h + 1, w + 1);
  EXPECT_TRUE(pins.ok);
  SourceMap& map = *r->sourceMap;
  const size_t bytes = static_cast<size_t>(map.rows) * map.cols * sizeof(MapPoint);
  memset(map.entries, 0xA5, bytes);
  if (eager) {
    r->SpreadField(&pins);
  } else {
    r->SpreadField();
    PinSourceMap(map, pins);
  }
  EXPECT_EQ(map.aborted, 0);
  const auto* p = reinterpret_cast<const uint8_t*>(map.entries);
  return std::vector<uint8_t>(p, p + bytes);
}

TEST(RowPinning, SameMapAsAPinningPass) {
  rendertest::BuildTables();
  rendertest::RippleWave().Build(0, true);
  struct Case {
    int w, h;
    float row, col, stretch, angle, radius;
  };
  const Case cases[] = {
      {64, 48, 24, 32, 1.0f, 0, 300},    // symmetric, whole frame
      {131, 77, -20, 40, 1.0f, 0, 90},   // centre above the frame
      {131, 77, 30, -25, 1.7f, 0, 120},  // centre left of it, axis stretch
      {101, 53, 60, 140, 1.0f, 0, 80},   // below and right of it
      {131, 77, 38, 65, 1.5f, 30, 300},  // rotated
      {37, 23, 30, -5, 1.3f, 315, 25},   // rotated, rows missing the frame
  };
  std::vector<SimdLevel> levels = {SimdLevel::kSse2, SimdLevel::kScalar};
  {
    SimdLimit probe(SimdLevel::kAvx2);
    if (ActiveSimd() == SimdLevel::kAvx2) levels.insert(levels.begin(), SimdLevel::kAvx2);
  }
  int rotated = 0;
  for (const SimdLevel level : levels) {
    SimdLimit limit(level);
    for (const Case& c : cases) {
      for (const int32_t mode : {1, 2, 4, 5, 6, 7, 9, 10}) {
        Inputs in;
        in.centreRow = c.row;
        in.centreCol = c.col;
        in.stretch = c.stretch;
        in.stretchAngle = c.angle;
        in.radiusPx = c.radius;
        in.waveHeightPx = 4.5f;
        in.angularHeightPx = 2.25f;
        in.pinMode = mode;
        if (mode == 1 && level == levels[0]) {
          Rendered probe(c.w, c.h, in);
          rotated += probe->Branch() == FieldBranch::kRotated;
        }
        const std::vector<uint8_t> pass = SpreadAndPin(c.w, c.h, in, false);
        ASSERT_FALSE(pass.empty());
        ASSERT_TRUE(SpreadAndPin(c.w, c.h, in, true) == pass)
            << c.w << "x" << c.h << " centre " << c.row << "," << c.col << " pin mode " << mode << " level "
            << static_cast<int>(level);
      }
    }
  }
  EXPECT_EQ(rotated, 2);
}

}  // namespace
}  // namespace tarvo
