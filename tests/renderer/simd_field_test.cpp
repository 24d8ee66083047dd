// The field and spreading at the widest width against the narrower ones,
// down to the per-entry kernel: every computed field entry and every byte of
// the source map (written points, untouched points, spans) must be the same at
// each width, over the three field branches, twirls, phases inside and far
// outside the vector reads' range, heights that turn points beyond ±360°
// or to NaN, centres outside the frame and frame sizes that leave partial
// groups at the ends of rows.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "field_simd.h"
#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::Inputs;
using rendertest::Rendered;
using rendertest::SimdLimit;

struct Result {
  std::vector<float> field;  // the computed entries: distance, direction, radial, angular
  std::vector<uint8_t> map;  // every byte of the map's entries, prefilled
  std::vector<int32_t> spans;
};

Result RenderAt(SimdLevel level, int w, int h, const Inputs& in, uint32_t waveform) {
  SimdLimit limit(level);
  rendertest::BuildTables();
  rendertest::RippleWave().Build(waveform, true);
  Rendered r(w, h, in);
  EXPECT_TRUE(r->ready);
  Result out;
  if (!r->ready) return out;
  const QuadrantField& q = *r->quadrant;
  const bool rotated = r->Branch() == FieldBranch::kRotated;
  for (int32_t j = 0; j < r->quadRows; ++j) {
    const ColumnRange reach = rotated ? r->RotatedReach(j) : r->SymmetricReach(j, q.rowLength[j]);
    for (int32_t i = reach.begin; i < reach.end; ++i) {
      const Polar& p = q.polar[q.Index(j, i)];
      const Displacement& d = q.displacement[q.Index(j, i)];
      out.field.insert(out.field.end(), {p.distance, p.direction, d.radial, d.angular});
    }
  }
  SourceMap& map = *r->sourceMap;
  const size_t bytes = static_cast<size_t>(map.rows) * map.cols * sizeof(MapPoint);
  memset(map.entries, 0xA5, bytes);
  r->SpreadField();
  out.map.assign(reinterpret_cast<const uint8_t*>(map.entries), reinterpret_cast<const uint8_t*>(map.entries) + bytes);
  for (int32_t y = 0; y < map.rows; ++y) {
    out.spans.push_back(map.rowWritten[y]);
    if (map.rowWritten[y]) out.spans.insert(out.spans.end(), {map.rowFirst[y], map.rowLast[y]});
  }
  return out;
}

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && (a.empty() || memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

TEST(SimdField, EveryWidthGivesTheSameFieldAndMap) {
  if (ActiveSimd() == SimdLevel::kScalar) GTEST_SKIP() << "no vector width here";
  struct Stretch {
    float stretch, angle;
  };
  const int sizes[][2] = {{37, 23}, {64, 48}, {131, 77}, {200, 30}};
  const Stretch stretches[] = {{1.0f, 0.0f},  {1.7f, 0.0f},   {0.6f, 90.0f},
                               {1.5f, 30.0f}, {2.0f, 200.0f}, {1.3f, 315.0f}};
  const float phases[] = {-200.0f, 35.0f, 700.0f, 4.0e7f};
  int n = 0, branches[3] = {0, 0, 0};
  for (const auto& size : sizes) {
    for (const Stretch& st : stretches) {
      for (const float radius : {0.0f, 7.0f, 30.0f, 300.0f}) {
        for (int32_t twirl = 0; twirl < 4; ++twirl, ++n) {
          const int w = size[0], h = size[1];
          Inputs in;
          in.centreRow = h * (n % 3 == 0 ? 0.5f : n % 3 == 1 ? -0.3f : 1.2f);
          in.centreCol = w * (n % 4 == 0 ? 0.5f : n % 4 == 1 ? 0.9f : n % 4 == 2 ? -0.25f : 0.3f);
          in.radiusPx = radius;
          in.stretch = st.stretch;
          in.stretchAngle = st.angle;
          in.waveHeightPx = n % 5 == 0 ? 0.0f : 4.5f;
          // Large angular heights turn points past ±360° (the per-entry
          // reads), NaN ones make every displacement NaN.
          in.angularHeightPx = n % 7 == 3 ? 3000.0f : n % 11 == 5 ? NAN : n % 2 == 0 ? 0.0f : 2.25f;
          in.degreesPerPixel = 1.5f + static_cast<float>(n % 6);
          in.phase = phases[n % 4];
          in.twirl = twirl;
          const uint32_t waveform = static_cast<uint32_t>(n % 24);
          const Result wide = RenderAt(SimdLevel::kAvx2, w, h, in, waveform);
          {
            Rendered probe(w, h, in);
            ++branches[static_cast<int>(probe->Branch())];
          }
          for (const SimdLevel narrow : {SimdLevel::kSse2, SimdLevel::kScalar}) {
            const Result want = RenderAt(narrow, w, h, in, waveform);
            ASSERT_TRUE(SameBits(wide.field, want.field) && wide.map == want.map && wide.spans == want.spans)
                << w << "x" << h << " case " << n << " stretch " << st.stretch << " at " << st.angle << " radius "
                << radius << " twirl " << twirl << " against level " << static_cast<int>(narrow);
          }
        }
      }
    }
  }
  EXPECT_GT(branches[0], 0);
  EXPECT_GT(branches[1], 0);
  EXPECT_GT(branches[2], 0);
}

}  // namespace
}  // namespace tarvo
