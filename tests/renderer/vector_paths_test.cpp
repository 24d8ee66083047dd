// The spreading computed four points at a time against the per-entry writer
// it replaces: every spread point equals what SpreadEntry writes, bit for
// bit, over radii, heights, twirls, phases (negative ones and ones past the
// first period), wave shapes and centres. The field's widths: simd_field_test.
#include <gtest/gtest.h>
#include <string.h>

#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::CountingSink;
using rendertest::Inputs;
using rendertest::Rendered;

bool SameBits(float a, float b) { return memcmp(&a, &b, sizeof a) == 0; }

struct Case {
  int w, h;
  Inputs in;
  uint32_t waveform;
};

// 36 renderers: three frame sizes, three radii, four twirls; centres
// inside, near and outside the edges; heights of 0 and not; phases
// negative and past the first period; every wave shape.
std::vector<Case> Cases() {
  std::vector<Case> cases;
  const float rowAt[] = {0.5f, 0.2f, 1.3f}, colAt[] = {0.5f, 0.8f, -0.2f, 0.35f}, phases[] = {-200, 35, 700};
  int n = 0;
  for (const auto& [w, h] : {std::pair{64, 48}, {97, 61}, {200, 30}})
    for (const float radius : {6.0f, 25.0f, 80.0f})
      for (const int32_t twirl : {0, 1, 2, 3}) {
        Inputs in;
        in.centreRow = h * rowAt[n % 3], in.centreCol = w * colAt[n % 4], in.radiusPx = radius, in.twirl = twirl;
        in.waveHeightPx = n % 5 == 0 ? 0.0f : 3.5f, in.angularHeightPx = n % 2 == 0 ? 0.0f : 2.25f;
        in.degreesPerPixel = 2.0f + static_cast<float>(n % 7), in.phase = phases[n % 3];
        cases.push_back({w, h, in, static_cast<uint32_t>(n++ % 24)});
      }
  return cases;
}

TEST(VectorPaths, SpreadingMatchesThePerEntryWriter) {
  for (const Case& c : Cases()) {
    Rendered r(c.w, c.h, c.in);
    ASSERT_TRUE(r->ready);
    const CountingSink got = rendertest::Spread(*r);

    // Every entry once more through the general writer.
    CountingSink want(r->height + 1, r->width + 1);
    const QuadrantField& q = *r->quadrant;
    const int32_t cc = r->centreCol, w = r->width;
    for (int32_t j = 0; j < r->quadRows; ++j) {
      const bool up = r->UpperRowInside(j), lo = r->LowerRowInside(j);
      if (!up && !lo) continue;
      const int32_t n = q.rowLength[j];
      const int32_t rBegin = std::max(0, -cc - 1), rEnd = std::min(n, w - cc);
      const int32_t lBegin = std::max(0, cc - w), lEnd = std::min(n, cc + 1);
      auto upper = want.Row(up ? r->centreRow - j : r->centreRow + 1 + j);
      auto lower = want.Row(lo ? r->centreRow + 1 + j : r->centreRow - j);
      const ColumnRange reach = r->SymmetricReach(j, n);
      for (int32_t i = reach.begin; i < reach.end; ++i) {
        SpreadEntry(q.polar[q.Index(j, i)], q.displacement[q.Index(j, i)], up, lo, i >= rBegin && i < rEnd,
                    i >= lBegin && i < lEnd, r->centreY, r->centreX, g_sineTable.entries, cc + 1 + i, cc - i, upper,
                    lower);
      }
    }
    for (int32_t y = 0; y <= r->height; ++y) {
      for (int32_t x = 0; x <= r->width; ++x) {
        ASSERT_EQ(got.Count(y, x), want.Count(y, x)) << y << "," << x;
        if (!want.Count(y, x)) continue;
        ASSERT_TRUE(SameBits(got.Point(y, x).row, want.Point(y, x).row) &&
                    SameBits(got.Point(y, x).column, want.Point(y, x).column))
            << c.w << "x" << c.h << " at " << y << "," << x;
      }
    }
  }
}

}  // namespace
}  // namespace tarvo
