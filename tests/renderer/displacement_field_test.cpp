// The displacement field: the full-circle arctangent, the per-offset
// kernel (fade, cut-off, twirl) and the row loop of each branch.
#include <gtest/gtest.h>
#include <math.h>

#include <random>

#include "field_kernel.h"
#include "renderer_test_util.h"
#include "table_reads.h"

namespace tarvo {
namespace {

using rendertest::HostCall;
using rendertest::Inputs;
using rendertest::Rendered;

TEST(FastAtan2, AllFourQuadrantsAndTheOrigin) {
  rendertest::BuildTables();
  const double quarter = 51471 / 65536.0;  // arctan(1) in the table
  EXPECT_EQ(FastAtan2(1, 1), static_cast<float>(quarter));
  EXPECT_EQ(FastAtan2(1, -1), static_cast<float>(3.1415927410125732 - quarter));
  EXPECT_EQ(FastAtan2(-1, -1), static_cast<float>(-(3.1415927410125732 - quarter)));
  EXPECT_EQ(FastAtan2(-1, 1), static_cast<float>(-quarter));
  EXPECT_EQ(FastAtan2(0, 0), 0.0f);
  // On the axes.
  EXPECT_EQ(FastAtan2(0, 5), 0.0f);
  EXPECT_EQ(FastAtan2(5, 0), static_cast<float>(1.5707963705062866));
  EXPECT_EQ(FastAtan2(0, -5), static_cast<float>(3.1415927410125732));
  EXPECT_EQ(FastAtan2(-5, 0), static_cast<float>(-1.5707963705062866));
  // A negative zero is not negative.
  EXPECT_EQ(FastAtan2(-0.0f, -5), static_cast<float>(3.1415927410125732));
  // Steeper than 45°: folded through π/2; arctan(0.5) is entry 200.
  EXPECT_EQ(FastAtan2(2, 1), static_cast<float>(1.5707963705062866 - 30385 / 65536.0));
  EXPECT_EQ(FastAtan2(1, 2), static_cast<float>(30385 / 65536.0));
}

TEST(TableReads, InlineReadsEqualTheTableLookups) {
  rendertest::BuildTables();
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  std::uniform_real_distribution<float> angle(-800.0f, 800.0f);
  for (int k = 0; k <= 4000; ++k) {
    const float x = k / 4000.0f;
    ASSERT_EQ(ReadArcTan(x), g_arcTanTable.Lookup(x)) << x;
    const float r = unit(rng);
    ASSERT_EQ(ReadArcTan(r), g_arcTanTable.Lookup(r)) << r;
  }
  for (int k = 0; k < 20000; ++k) {
    const float a = angle(rng);
    ASSERT_EQ(ReadWave(a, g_sineTable), WaveTableLookup(a, g_sineTable)) << a;
  }
  for (float a : {-360.0f, 0.0f, 360.0f, 32000.0f, -32000.0f, 32000.5f, -32000.5f, 1e9f, -1e9f, 3e38f, INFINITY,
                  -INFINITY, NAN}) {
    EXPECT_EQ(ReadWave(a, g_sineTable), WaveTableLookup(a, g_sineTable)) << a;
  }
}

// A kernel whose wave value is the same at every distance (degrees per pixel
// 0, phase 90: sin 90° = 1), radius 10, outer radius 20.
FieldKernel FlatKernel(const RippleRenderer& rr, int32_t twirl) {
  FieldKernel k = MakeKernel(rr);
  k.twirl = twirl;
  return k;
}

Inputs FlatInputs() {
  Inputs in;
  in.centreRow = 50, in.centreCol = 50, in.radiusPx = 10, in.degreesPerPixel = 0, in.phase = 90;
  in.waveHeightPx = 4, in.angularHeightPx = 3;
  return in;
}

TEST(Twirl, NoTwirlGivesNoAngleWithinATenthOfAPixel) {
  Rendered r(100, 100, FlatInputs());
  const FieldKernel k = FlatKernel(*r, 0);
  EXPECT_EQ(k.Circular(0.1f).angular, 0.0f);
  EXPECT_EQ(k.Circular(0.05f).angular, 0.0f);
  EXPECT_EQ(k.Circular(0.0f).angular, 0.0f);
  EXPECT_EQ(k.Stretched(0.1f, 30.0f, true).angular, 0.0f);
  // Just beyond, the arc length of 3 pixels becomes an angle.
  EXPECT_EQ(k.Circular(0.11f).angular, static_cast<float>(-3.0 * 57.2957763671875 / 0.11f));
}

TEST(Twirl, LevelsTurnTheArcIntoAnAngleGrowingWithDistance) {
  Rendered r(100, 100, FlatInputs());
  // Inside the radius (no fade): ratio of the angle at distance 8 to 4.
  const double expected[4] = {0.5, 1.0, 2.0, 4.0};
  for (int32_t twirl = 0; twirl < 4; ++twirl) {
    const FieldKernel k = FlatKernel(*r, twirl);
    const double near = k.Circular(4.0f).angular, far = k.Circular(8.0f).angular;
    EXPECT_NEAR(far / near, expected[twirl], 1e-6) << twirl;
  }
  // Twirl: 3 pixels of angular height are 3 × 360 / width degrees.
  EXPECT_FLOAT_EQ(FlatKernel(*r, 1).Circular(4.0f).angular, -3.0f * 360.0f / 100.0f);
}

TEST(Twirl, UnknownIndexRendersAsNoTwirl) {
  Inputs in = FlatInputs();
  in.twirl = 7;
  Rendered unknown(100, 100, in);
  in.twirl = 0;
  Rendered none(100, 100, in);
  EXPECT_EQ(unknown->twirl, 0);
  const auto a = rendertest::Spread(*unknown), b = rendertest::Spread(*none);
  EXPECT_EQ(0, memcmp(a.points.data(), b.points.data(), a.points.size() * sizeof(MapPoint)));
}

TEST(Fade, LinearBetweenRadiusAndOuterRadiusAngularToThePowerTwirlPlusOne) {
  Rendered r(100, 100, FlatInputs());
  for (int32_t twirl = 0; twirl < 4; ++twirl) {
    const FieldKernel k = FlatKernel(*r, twirl);
    const Displacement inside = k.Circular(5.0f), faded = k.Circular(15.0f);  // f = 0.5
    EXPECT_FLOAT_EQ(inside.radial, 4.0f);
    EXPECT_FLOAT_EQ(faded.radial, 2.0f);
    // Both distances converted by the twirl level: undo the distance part.
    const double distanceRatio[4] = {5.0 / 15.0, 1.0, 3.0, 9.0};
    EXPECT_NEAR(faded.angular / inside.angular, pow(0.5, twirl + 1) * distanceRatio[twirl], 1e-6) << twirl;
    // Nothing at and beyond the outer radius.
    EXPECT_EQ(k.Circular(20.0f).radial, 0.0f);
    EXPECT_EQ(k.Circular(35.0f).radial, 0.0f);
    EXPECT_EQ(k.Circular(35.0f).angular, 0.0f);
  }
}

TEST(Swirl, CircularAndStretchedBranchesTurnOppositeWays) {
  Inputs in = FlatInputs();
  in.stretchAngle = 45;
  in.stretch = 1.005f;
  Rendered circular(100, 100, in);
  in.stretch = 1.02f;
  Rendered rotated(100, 100, in);
  in.stretchAngle = 0;
  Rendered axis(100, 100, in);
  ASSERT_EQ(circular->Branch(), FieldBranch::kCircular);
  ASSERT_EQ(rotated->Branch(), FieldBranch::kRotated);
  ASSERT_EQ(axis->Branch(), FieldBranch::kAxisStretched);
  // The offset (0.5, 0.5) in each field.
  const Displacement c = circular->quadrant->displacement[circular->quadrant->Index(0, 0)];
  const Displacement s = rotated->quadrant->displacement[rotated->quadrant->Index(0, 100 + 1)];
  const Displacement a = axis->quadrant->displacement[axis->quadrant->Index(0, 0)];
  EXPECT_EQ(rotated->quadrant->polar[rotated->quadrant->Index(0, 101)].distance,
            circular->quadrant->polar[0].distance);
  EXPECT_LT(c.angular, 0.0f);
  EXPECT_GT(s.angular, 0.0f);
  EXPECT_GT(a.angular, 0.0f);
  EXPECT_GT(c.radial, 0.0f);
  EXPECT_GT(s.radial, 0.0f);
}

TEST(StretchedField, CutOffAtTheOuterRadius) {
  Inputs in = FlatInputs();
  in.stretch = 3, in.stretchAngle = 60;
  Rendered r(100, 100, in);
  ASSERT_TRUE(r->ready);
  const QuadrantField& q = *r->quadrant;
  int beyond = 0, within = 0;
  for (int32_t j = 0; j < r->quadRows; ++j) {
    if (!r->spans->hasSpan[j]) continue;
    for (int32_t c = r->spans->firstCol[j]; c <= r->spans->lastCol[j]; ++c) {
      const int64_t k = q.Index(j, c);
      if (q.polar[k].distance >= 20.0f) {
        ++beyond;
        EXPECT_EQ(q.displacement[k].radial, 0.0f);
        EXPECT_EQ(q.displacement[k].angular, 0.0f);
      } else if (q.polar[k].distance < 9.0f) {
        ++within;
        EXPECT_NE(q.displacement[k].radial, 0.0f);
      }
    }
  }
  EXPECT_GT(beyond, 0);
  EXPECT_GT(within, 0);
}

TEST(AxisStretchedField, AcrossRowsTheRowsBeyondHalfTheOuterRadiusAreEmpty) {
  Inputs in = FlatInputs();
  in.centreRow = 100, in.centreCol = 100, in.radiusPx = 20, in.stretch = 2, in.stretchAngle = 90;
  Rendered r(200, 200, in);
  ASSERT_TRUE(r->ready);
  ASSERT_EQ(r->Branch(), FieldBranch::kAxisStretched);
  EXPECT_EQ(r->quadRows, 80);  // outerRadiusPx × 2
  for (int32_t j = 0; j < r->quadRows; ++j) {
    if (j + 0.5 > 20.0) {
      EXPECT_EQ(r->quadrant->rowLength[j], 0) << j;
    } else {
      EXPECT_GT(r->quadrant->rowLength[j], 0) << j;
    }
  }
  EXPECT_EQ(r->quadrant->rowLength[0], 39);  // √(1600 − 0.25 × 4)
  EXPECT_EQ(r->quadrant->rowLength[19], 8);  // √(1600 − 19.5² × 4) = √79
}

TEST(RowLoop, AsksTheHostOncePerQuadrantRowAndStopsAtRowK) {
  for (float stretch : {1.0f, 2.0f}) {
    for (int k : {0, 1, 2, 7}) {
      Inputs in = FlatInputs();
      in.stretch = stretch, in.stretchAngle = 30, in.radiusPx = 30;
      HostCall call;
      call.stopAt = k;
      Rendered r(100, 100, in);
      SCOPED_TRACE(::testing::Message() << "stretch " << stretch << " stop at " << k);
      EXPECT_TRUE(r->ready);
      EXPECT_EQ(r->aborted, k > 0);
      EXPECT_EQ(call.progressCalls, k > 0 ? k : r->quadRows);
      EXPECT_EQ(r->quadRows, 51);
    }
  }
}

}  // namespace
}  // namespace tarvo
