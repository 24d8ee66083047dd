// The renderer object: angle and centre normalisation, the choice of
// branch, quadrant sizing, the ellipse spans and the work buffers.
#include <gtest/gtest.h>
#include <math.h>

#include "plugin_alloc.h"
#include "renderer_test_util.h"

namespace tarvo {
namespace {

using rendertest::Inputs;
using rendertest::Rendered;

TEST(StretchAngle, RoundsHalfAwayAndNormalisesInto0To359) {
  EXPECT_EQ(NormaliseStretchAngle(-360.0f), 0);
  EXPECT_EQ(NormaliseStretchAngle(-90.0f), 270);
  EXPECT_EQ(NormaliseStretchAngle(359.6f), 0);
  EXPECT_EQ(NormaliseStretchAngle(359.4f), 359);
  EXPECT_EQ(NormaliseStretchAngle(-1.0f), 359);
  EXPECT_EQ(NormaliseStretchAngle(-0.5f), 359);  // rounds away from zero to −1
  EXPECT_EQ(NormaliseStretchAngle(0.5f), 1);
  EXPECT_EQ(NormaliseStretchAngle(720.0f), 0);
  EXPECT_EQ(NormaliseStretchAngle(-32768.0f), 352);
  // Values the conversion cannot hold stay in range.
  const int32_t nan = NormaliseStretchAngle(NAN);
  EXPECT_TRUE(nan >= 0 && nan < 360);
}

TEST(Branch, StretchWithinOnePercentIsUnstretched) {
  Inputs in;
  in.centreRow = 40, in.centreCol = 50, in.stretchAngle = 45;
  in.stretch = 1.005f;
  Rendered slight(100, 80, in);
  EXPECT_FALSE(slight->stretched);
  EXPECT_TRUE(slight->symmetric);
  EXPECT_EQ(slight->Branch(), FieldBranch::kCircular);
  EXPECT_EQ(slight->spans, nullptr);

  in.stretch = 1.02f;
  Rendered rotated(100, 80, in);
  EXPECT_TRUE(rotated->stretched);
  EXPECT_FALSE(rotated->symmetric);
  EXPECT_EQ(rotated->Branch(), FieldBranch::kRotated);
  EXPECT_NE(rotated->spans, nullptr);

  in.stretchAngle = 270;
  Rendered axis(100, 80, in);
  EXPECT_TRUE(axis->symmetric);
  EXPECT_EQ(axis->Branch(), FieldBranch::kAxisStretched);
}

TEST(Centre, RoundedHalfAwayAndClampedFromAboveOnly) {
  Inputs in;
  in.centreRow = 479.5f, in.centreCol = 700.2f;
  Rendered beyond(640, 480, in);
  EXPECT_EQ(beyond->centreRow, 479);  // 480 clamped to height − 1
  EXPECT_EQ(beyond->centreCol, 639);
  EXPECT_EQ(beyond->centreX, 639.5f);
  EXPECT_EQ(beyond->centreY, 479.5f);
  EXPECT_EQ(beyond->leftShift, 1);
  EXPECT_EQ(beyond->rightShift, 1279);

  in.centreRow = -30.5f, in.centreCol = -5.4f;
  Rendered before(640, 480, in);
  EXPECT_EQ(before->centreRow, -31);
  EXPECT_EQ(before->centreCol, -5);
  EXPECT_EQ(before->centreY, -30.5f);
  EXPECT_EQ(before->leftShift, 645);
  EXPECT_EQ(before->rightShift, 635);
}

TEST(QuadrantSize, BoundedByTheFarthestEdge) {
  Inputs in;
  in.centreRow = 239, in.centreCol = 319, in.radiusPx = 1e6f;
  Rendered big(640, 480, in);
  EXPECT_EQ(big->quadRows, 241);
  EXPECT_EQ(big->quadCols, 321);
  EXPECT_EQ(big->quadrant->rows, 241);
  EXPECT_EQ(big->quadrant->cols, 321);

  in.radiusPx = 0;
  Rendered none(640, 480, in);
  EXPECT_TRUE(none->ready);
  EXPECT_EQ(none->quadRows, 0);
}

TEST(QuadrantSize, AxisStretchGrowsTheStretchedAxisOnly) {
  Inputs in;
  in.centreRow = 300, in.centreCol = 300, in.radiusPx = 50, in.stretch = 2;
  in.stretchAngle = 0;
  Rendered along(600, 600, in);
  EXPECT_EQ(along->quadCols, 200);
  EXPECT_EQ(along->quadRows, 100);
  in.stretchAngle = 90;
  Rendered across(600, 600, in);
  EXPECT_EQ(across->quadCols, 100);
  EXPECT_EQ(across->quadRows, 200);
  // A squeeze keeps the unstretched size in both directions.
  in.stretch = 0.5f;
  Rendered squeezed(600, 600, in);
  EXPECT_EQ(squeezed->quadCols, 100);
  EXPECT_EQ(squeezed->quadRows, 100);
}

TEST(EllipseSpans, SqueezedRotatedStretchBuildsTheCircle) {
  Inputs in;
  in.centreRow = 50, in.centreCol = 60, in.radiusPx = 10, in.stretch = 0.5f, in.stretchAngle = 45;
  Rendered r(120, 100, in);
  ASSERT_TRUE(r->ready);
  ASSERT_NE(r->spans, nullptr);
  EXPECT_EQ(r->spans->stretch, 1.0f);
  EXPECT_EQ(r->spans->rows, 51);  // max(50, 100 − 50 − 1) + 1
  EXPECT_EQ(r->quadRows, 51);
  EXPECT_EQ(r->quadCols, 242);
  // Chords of the circle of radius 20 about buffer column width.
  for (int32_t j = 0; j < r->spans->rows; ++j) {
    const double y = j + 0.5;
    if (y > 20.01) {
      EXPECT_EQ(r->spans->hasSpan[j], 0) << j;
      continue;
    }
    if (y > 19.99) continue;
    ASSERT_EQ(r->spans->hasSpan[j], 1) << j;
    const double half = sqrt(400.0 - y * y);
    EXPECT_NEAR(r->spans->firstCol[j], 120 - half, 1.0) << j;
    EXPECT_NEAR(r->spans->lastCol[j], 120 + half, 1.0) << j;
  }
}

TEST(EllipseSpans, RadiusZeroHasNoSpan) {
  Inputs in;
  in.centreRow = 50, in.centreCol = 60, in.radiusPx = 0, in.stretch = 3, in.stretchAngle = 30;
  Rendered r(120, 100, in);
  ASSERT_TRUE(r->ready);
  for (int32_t j = 0; j < r->spans->rows; ++j) EXPECT_EQ(r->spans->hasSpan[j], 0) << j;
}

TEST(EllipseSpans, ClippedToTheColumnsTheExistingRowsCanUse) {
  // Centre near the left edge and near the bottom: rows past the bottom
  // exist only above the centre, whose points land at c − leftShift.
  Inputs in;
  in.centreRow = 90, in.centreCol = 5, in.radiusPx = 1000, in.stretch = 2, in.stretchAngle = 30;
  Rendered r(100, 100, in);
  ASSERT_TRUE(r->ready);
  const EllipseSpans& s = *r->spans;
  for (int32_t j = 0; j < s.rows; ++j) {
    ASSERT_EQ(s.hasSpan[j], 1) << j;
    const bool upper = 90 - j >= 0, lower = 90 + j < 100;
    if (upper && lower) {
      EXPECT_EQ(s.firstCol[j], 5) << j;
      EXPECT_EQ(s.lastCol[j], 195) << j;
    } else {
      EXPECT_EQ(s.firstCol[j], 95) << j;  // width − centreCol
      EXPECT_EQ(s.lastCol[j], 195) << j;  // 2·width − centreCol
    }
  }
}

// The renderer alone on a frame that already exists.
struct BareRenderer {
  rendertest::Frame frame{100, 80};
  RenderSetup setup{&frame.image, 100, 80, kSampleBilinear, {0, 0, 0, 0}};
  std::unique_ptr<RippleRenderer> Make(float stretch) {
    rendertest::BuildTables();
    return std::make_unique<RippleRenderer>(setup, 40.0f, 50.0f, frame.image, 2.0f, 1.0f, 4.5f, 20.0f, stretch,
                                            30.0f, 0.0f, 0, 0, g_rippleWave);
  }
};

TEST(WorkBuffers, EveryBlockComesFromThePluginAllocatorAndIsReleased) {
  AllocStats& stats = *PluginAllocStats();
  BareRenderer bare;
  const int64_t before = stats.liveBlocks;
  {
    const auto symmetric = bare.Make(1.0f);
    EXPECT_TRUE(symmetric->ready);
    EXPECT_EQ(stats.liveBlocks - before, 9);  // field: object + 3 arrays; map: object + 4
  }
  EXPECT_EQ(stats.liveBlocks, before);
  {
    const auto rotated = bare.Make(2.0f);
    EXPECT_TRUE(rotated->ready);
    EXPECT_EQ(stats.liveBlocks - before, 13);  // and the spans: object + 3 arrays
  }
  EXPECT_EQ(stats.liveBlocks, before);
}

TEST(WorkBuffers, AnyMissingBlockLeavesTheRendererNotReadyWithNothingLeaked) {
  AllocStats& stats = *PluginAllocStats();
  BareRenderer bare;
  for (float stretch : {1.0f, 2.0f}) {
    const int blocks = stretch == 1.0f ? 9 : 13;
    for (int failAt = 1; failAt <= blocks; ++failAt) {
      const int64_t before = stats.liveBlocks;
      stats.failAt = failAt;
      EXPECT_FALSE(bare.Make(stretch)->ready) << stretch << " " << failAt;
      EXPECT_EQ(stats.failAt, 0);
      EXPECT_EQ(stats.liveBlocks, before) << stretch << " " << failAt;
    }
  }
}

}  // namespace
}  // namespace tarvo
