// Spreading the field into the source map: which grid points are written,
// how often, with which spans, and where an undisplaced point lands.
#include <gtest/gtest.h>
#include <math.h>

#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::CountingSink;
using rendertest::Inputs;
using rendertest::Rendered;

// Every grid point of the frame written exactly once, every row spanning
// 0..width, nothing outside.
void ExpectWholeFrameOnce(const RippleRenderer& rr, const CountingSink& sink) {
  EXPECT_EQ(sink.outside, 0);
  EXPECT_EQ(sink.repeatedSpans, 0);
  for (int32_t r = 0; r <= rr.height; ++r) {
    ASSERT_EQ(sink.spans.count(r), 1u) << r;
    EXPECT_EQ(sink.spans.at(r).first, 0) << r;
    EXPECT_EQ(sink.spans.at(r).second, rr.width) << r;
    for (int32_t c = 0; c <= rr.width; ++c) ASSERT_EQ(sink.Count(r, c), 1) << r << "," << c;
  }
}

// Every written point lies inside its row's span, and every span point is
// written exactly once.
void ExpectSpansMatchWrites(const CountingSink& sink) {
  EXPECT_EQ(sink.outside, 0);
  EXPECT_EQ(sink.repeatedSpans, 0);
  for (int32_t r = 0; r < sink.rows; ++r) {
    const auto it = sink.spans.find(r);
    for (int32_t c = 0; c < sink.cols; ++c) {
      const bool inSpan = it != sink.spans.end() && c >= it->second.first && c <= it->second.second;
      ASSERT_EQ(sink.Count(r, c), inSpan ? 1 : 0) << r << "," << c;
    }
  }
}

TEST(SymmetricSpread, LargeRadiusWritesEveryGridPointOnce) {
  Inputs in;
  in.centreRow = 239, in.centreCol = 319, in.radiusPx = 1e6f, in.waveHeightPx = 5, in.angularHeightPx = 2;
  Rendered r(640, 480, in);
  ASSERT_TRUE(r->ready);
  EXPECT_EQ(r->quadRows, 241);
  EXPECT_EQ(r->quadCols, 321);
  ExpectWholeFrameOnce(*r, rendertest::Spread(*r));

  // The same through the source map itself.
  r->SpreadField();
  const SourceMap& map = *r->sourceMap;
  for (int32_t y = 0; y < map.rows; ++y) {
    ASSERT_EQ(map.rowWritten[y], 1) << y;
    EXPECT_EQ(map.rowFirst[y], 0);
    EXPECT_EQ(map.rowLast[y], 640);
  }
}

TEST(RotatedSpread, LargeRadiusWritesEveryGridPointOnce) {
  Inputs in;
  in.centreRow = 239, in.centreCol = 319, in.radiusPx = 1e6f, in.stretch = 1.5f, in.stretchAngle = 30;
  Rendered r(640, 480, in);
  ASSERT_TRUE(r->ready);
  ASSERT_FALSE(r->symmetric);
  ExpectWholeFrameOnce(*r, rendertest::Spread(*r));
}

TEST(Spread, RadiusZeroWritesNoRow) {
  for (float stretch : {1.0f, 2.0f}) {
    Inputs in;
    in.centreRow = 40, in.centreCol = 60, in.radiusPx = 0, in.stretch = stretch, in.stretchAngle = 30;
    Rendered r(120, 80, in);
    ASSERT_TRUE(r->ready);
    EXPECT_EQ(r->symmetric, stretch == 1.0f);
    r->SpreadField();
    for (int32_t y = 0; y < r->sourceMap->rows; ++y) EXPECT_EQ(r->sourceMap->rowWritten[y], 0) << stretch << " " << y;
    const CountingSink sink = rendertest::Spread(*r);
    EXPECT_TRUE(sink.spans.empty());
  }
}

TEST(Spread, CentreAtColumnZero) {
  Inputs in;
  in.centreRow = 30, in.centreCol = 0.2f, in.radiusPx = 1e5f, in.waveHeightPx = 3;
  Rendered r(90, 60, in);
  ASSERT_EQ(r->centreCol, 0);
  const CountingSink sink = rendertest::Spread(*r);
  ExpectWholeFrameOnce(*r, sink);

  // A smaller ripple: the left side is column 0 alone.
  in.radiusPx = 10;
  Rendered small(90, 60, in);
  const CountingSink s = rendertest::Spread(*small);
  ExpectSpansMatchWrites(s);
  EXPECT_EQ(s.spans.at(30).first, 0);
  EXPECT_EQ(s.spans.at(30).second, 19);  // √(20² − 0.5²) truncated
}

TEST(Spread, CentresLeftOfAndAboveTheFrameWriteOnlyInsideTheMap) {
  struct Case {
    float row, col;
  };
  for (const Case c : {Case{-30, 40}, Case{20, -50}, Case{-30, -50}, Case{-1, -1}}) {
    for (float stretch : {1.0f, 2.0f}) {
      Inputs in;
      in.centreRow = c.row, in.centreCol = c.col, in.radiusPx = 1e5f, in.waveHeightPx = 3, in.stretch = stretch;
      in.stretchAngle = 30;
      Rendered r(90, 60, in);
      ASSERT_TRUE(r->ready);
      EXPECT_EQ(r->centreRow, static_cast<int16_t>(c.row));
      EXPECT_EQ(r->centreCol, static_cast<int16_t>(c.col));
      const CountingSink sink = rendertest::Spread(*r);
      SCOPED_TRACE(::testing::Message() << c.row << "," << c.col << " stretch " << stretch);
      if (stretch == 1.0f) {
        ExpectWholeFrameOnce(*r, sink);
      } else {
        ExpectSpansMatchWrites(sink);
      }

      in.radiusPx = 40;
      Rendered small(90, 60, in);
      ExpectSpansMatchWrites(rendertest::Spread(*small));
    }
  }
}

TEST(Spread, CentresFarOutsideStayInsideTheMap) {
  for (float stretch : {1.0f, 2.0f}) {
    for (float centre : {-3000.0f, -30000.0f, 30000.0f}) {
      Inputs in;
      in.centreRow = centre, in.centreCol = centre, in.radiusPx = 1e6f, in.stretch = stretch, in.stretchAngle = 30;
      Rendered r(90, 60, in);
      if (!r->ready) continue;  // the quadrant for a far centre may not fit in memory
      const CountingSink sink = rendertest::Spread(*r);
      EXPECT_EQ(sink.outside, 0);
      // The outer radius reaches every grid point from any of these centres
      // (the field is computed only where it reaches the frame, so this is
      // quick). The rotated field's rows hold offsets up to one frame width
      // either side of the centre: from a centre further left it reaches
      // nothing.
      if (stretch == 1.0f || centre > 0) {
        ExpectWholeFrameOnce(*r, sink);
      } else {
        ExpectSpansMatchWrites(sink);
        EXPECT_TRUE(sink.spans.empty()) << centre;
      }
    }
  }
}

// An undisplaced grid point maps to itself up to the precision of the tables
// (directions from the arctangent table, sine entries in 16.16 at whole
// degrees read at 1/256 of a degree): within 2e-4 of its distance from the
// centre.
constexpr double kTol = 2e-4;

TEST(Spread, UndisplacedPointsMapToThemselves) {
  Inputs in;
  in.centreRow = 100, in.centreCol = 150, in.radiusPx = 1e5f;
  Rendered r(300, 200, in);
  const CountingSink sink = rendertest::Spread(*r);
  ExpectWholeFrameOnce(*r, sink);
  for (int32_t y = 0; y <= 200; ++y) {
    for (int32_t x = 0; x <= 300; ++x) {
      const MapPoint& p = sink.Point(y, x);
      const double d = hypot(y - 100.5, x - 150.5);
      ASSERT_NEAR(p.row, y, kTol * d + 1e-4) << y << "," << x;
      ASSERT_NEAR(p.column, x, kTol * d + 1e-4) << y << "," << x;
    }
  }
}

// The rotated field writes the reflection of buffer column c into column
// rightShift − c of the lower row, one left of the exact reflection
// (rightShift + 1 − c). That is the effect's defined output: with no
// displacement the lower half samples one column to the right. Pinned here
// so that nobody "fixes" it.
TEST(RotatedSpread, LowerHalfSamplesOneColumnToTheRight) {
  Inputs in;
  in.centreRow = 60, in.centreCol = 80, in.radiusPx = 1e5f, in.stretch = 1.5f, in.stretchAngle = 30;
  Rendered r(160, 120, in);
  ASSERT_FALSE(r->symmetric);
  const CountingSink sink = rendertest::Spread(*r);
  ExpectWholeFrameOnce(*r, sink);
  for (int32_t y = 0; y <= 120; ++y) {
    const int shift = y > r->centreRow ? 1 : 0;
    for (int32_t x = 0; x <= 160; ++x) {
      const MapPoint& p = sink.Point(y, x);
      const double d = hypot(y - 60.5, x + shift - 80.5);
      ASSERT_NEAR(p.row, y, kTol * d + 1e-4) << y << "," << x;
      ASSERT_NEAR(p.column, x + shift, kTol * d + 1e-4) << y << "," << x;
    }
  }
}

}  // namespace
}  // namespace tarvo
