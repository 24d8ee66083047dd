// Spreading the field into the source map: which grid points are written,
// how often and with which spans. Where an undisplaced point lands is pinned
// end to end (tests/e2e).
#include <gtest/gtest.h>

#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::CountingSink;
using rendertest::Inputs;
using rendertest::Rendered;

enum Expect { kWholeFrame, kSpans, kNothing };

// kWholeFrame: every grid point written exactly once, every row spanning
// 0..width. kSpans: every written point inside its row's span, every span
// point written once. Never a write outside the map or a row spanned twice.
void ExpectWrites(const RippleRenderer& rr, const CountingSink& sink, Expect expect) {
  EXPECT_EQ(sink.outside, 0);
  EXPECT_EQ(sink.repeatedSpans, 0);
  if (expect == kNothing) {
    EXPECT_TRUE(sink.spans.empty());
  }
  for (int32_t r = 0; r <= rr.height; ++r) {
    const auto it = sink.spans.find(r);
    if (expect == kWholeFrame) {
      ASSERT_TRUE(it != sink.spans.end()) << r;
      EXPECT_EQ(it->second, std::make_pair(0, rr.width)) << r;
    }
    for (int32_t c = 0; c <= rr.width; ++c) {
      const bool inSpan = it != sink.spans.end() && c >= it->second.first && c <= it->second.second;
      ASSERT_EQ(sink.Count(r, c), inSpan ? 1 : 0) << r << "," << c;
    }
  }
}

// Centres inside, on column 0, left of and above the frame and far outside,
// symmetric (stretch 1) and rotated (stretch 2 at 30°). The rotated field's
// rows hold offsets up to one frame width either side of the centre: from a
// centre far to the left it reaches nothing.
TEST(Spread, WhichGridPointsAreWrittenAndHowOften) {
  const struct {
    int w, h;
    float row, col, radius, stretch;
    Expect expect;
  } cases[] = {
      {640, 480, 239, 319, 1e6f, 1, kWholeFrame},
      {640, 480, 239, 319, 1e6f, 1.5f, kWholeFrame},
      {120, 80, 40, 60, 0, 1, kNothing},
      {120, 80, 40, 60, 0, 2, kNothing},
      {90, 60, 30, 0.2f, 1e5f, 1, kWholeFrame},
      {90, 60, 30, 0.2f, 10, 1, kSpans},
      {90, 60, -30, 40, 1e5f, 1, kWholeFrame},
      {90, 60, -30, 40, 1e5f, 2, kSpans},
      {90, 60, 20, -50, 1e5f, 1, kWholeFrame},
      {90, 60, 20, -50, 1e5f, 2, kSpans},
      {90, 60, -30, -50, 1e5f, 1, kWholeFrame},
      {90, 60, -30, -50, 40, 2, kSpans},
      {90, 60, -1, -1, 40, 1, kSpans},
      {90, 60, -1, -1, 1e5f, 2, kSpans},
      {90, 60, -3000, -3000, 1e6f, 1, kWholeFrame},
      {90, 60, -3000, -3000, 1e6f, 2, kNothing},
      {90, 60, 30000, 30000, 1e6f, 1, kWholeFrame},
      {90, 60, 30000, 30000, 1e6f, 2, kWholeFrame},
      {90, 60, -30000, -30000, 1e6f, 2, kNothing},
  };
  for (const auto& c : cases) {
    Inputs in;
    in.centreRow = c.row, in.centreCol = c.col, in.radiusPx = c.radius, in.stretch = c.stretch;
    in.stretchAngle = 30, in.waveHeightPx = 3, in.angularHeightPx = 2;
    Rendered r(c.w, c.h, in);
    ASSERT_TRUE(r->ready);
    SCOPED_TRACE(::testing::Message() << "centre " << c.row << "," << c.col << " radius " << c.radius << " stretch "
                                      << c.stretch);
    const CountingSink sink = rendertest::Spread(*r);
    ExpectWrites(*r, sink, c.expect);
    if (c.w == 90 && c.radius == 10) {
      EXPECT_EQ(sink.spans.at(30), std::make_pair(0, 19));  // √(20² − 0.5²)
    }
    if (c.w == 640 && c.stretch == 1) {
      EXPECT_EQ(std::make_pair(r->quadRows, r->quadCols), std::make_pair(241, 321));
    }
  }
}

}  // namespace
}  // namespace tarvo
