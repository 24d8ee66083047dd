// The displacement field: the full-circle arctangent, the per-offset
// kernel (fade, cut-off, twirl) and the stop check of the row loop. The rows
// of each branch show in the field goldens.
#include <gtest/gtest.h>
#include <math.h>

#include <random>

#include "field_kernel.h"
#include "renderer_test_util.h"
#include "table_reads.h"

namespace tarvo {
namespace {

using rendertest::Inputs;
using rendertest::Rendered;

TEST(FastAtan2, AllFourQuadrantsTheAxesAndSteepAngles) {
  rendertest::BuildTables();
  const double quarter = 51471 / 65536.0, pi = 3.1415927410125732, half = 1.5707963705062866;
  const struct {
    float y, x;
    double want;
  } cases[] = {{1, 1, quarter},
               {1, -1, pi - quarter},
               {-1, -1, -(pi - quarter)},
               {-1, 1, -quarter},
               {0, 0, 0},
               {0, 5, 0},
               {5, 0, half},
               {0, -5, pi},
               {-5, 0, -half},
               {-0.0f, -5, pi},                 // a negative zero is not negative
               {2, 1, half - 30385 / 65536.0},  // steeper than 45°: folded through π/2
               {1, 2, 30385 / 65536.0}};
  for (const auto& c : cases) EXPECT_EQ(FastAtan2(c.y, c.x), static_cast<float>(c.want)) << c.y << "," << c.x;
}

// The field's inline table reads against the tables' own lookups.
TEST(TableReads, InlineReadsEqualTheTableLookups) {
  rendertest::BuildTables();
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f), angle(-800.0f, 800.0f);
  for (int k = 0; k <= 4000; ++k) {
    const float x = k / 4000.0f, r = unit(rng);
    ASSERT_EQ(ReadArcTan(x), g_arcTanTable.Lookup(x)) << x;
    ASSERT_EQ(ReadArcTan(r), g_arcTanTable.Lookup(r)) << r;
  }
  for (int k = 0; k < 20000; ++k) {
    const float a = angle(rng);
    ASSERT_EQ(ReadWave(a, g_sineTable), WaveTableLookup(a, g_sineTable)) << a;
  }
  for (float a : {-360.0f, 360.0f, 32000.0f, -32000.0f, 32000.5f, -32000.5f, 1e9f, -1e9f, 3e38f, INFINITY, NAN})
    EXPECT_EQ(ReadWave(a, g_sineTable), WaveTableLookup(a, g_sineTable)) << a;
}

// A wave whose value is 1 at every distance (degrees per pixel 0, phase
// 90), heights 4 and 3, radius 10, outer radius 20.
Inputs Flat() {
  Inputs in;
  in.centreRow = 50, in.centreCol = 50, in.radiusPx = 10, in.degreesPerPixel = 0, in.phase = 90;
  in.waveHeightPx = 4, in.angularHeightPx = 3;
  return in;
}

TEST(FieldKernel, TwirlAndFade) {
  Rendered r(100, 100, Flat());
  FieldKernel k = MakeKernel(*r);
  k.twirl = 0;
  // Without twirl, no angle within a tenth of a pixel of the centre; just
  // beyond, the arc of 3 pixels becomes an angle.
  for (float d : {0.0f, 0.05f, 0.1f}) EXPECT_EQ(k.Circular(d).angular, 0.0f) << d;
  EXPECT_EQ(k.Stretched(0.1f, 30.0f, true).angular, 0.0f);
  EXPECT_EQ(k.Circular(0.11f).angular, static_cast<float>(-3.0 * 57.2957763671875 / 0.11f));
  // Twirl 1: 3 pixels of angular height are 3 × 360 / width degrees.
  k.twirl = 1;
  EXPECT_FLOAT_EQ(k.Circular(4.0f).angular, -3.0f * 360.0f / 100.0f);
  // Each level: the angle grows with distance (ratio from 4 to 8 px inside
  // the radius), and fades to the power twirl + 1 between radius and outer
  // radius (from 5 to 15 px, f = 0.5), while the radial part fades linearly.
  const double growth[4] = {0.5, 1.0, 2.0, 4.0}, distance[4] = {5.0 / 15.0, 1.0, 3.0, 9.0};
  for (int32_t twirl = 0; twirl < 4; ++twirl) {
    k.twirl = twirl;
    EXPECT_NEAR(k.Circular(8.0f).angular / k.Circular(4.0f).angular, growth[twirl], 1e-6) << twirl;
    const Displacement inside = k.Circular(5.0f), faded = k.Circular(15.0f);
    EXPECT_FLOAT_EQ(inside.radial, 4.0f);
    EXPECT_FLOAT_EQ(faded.radial, 2.0f);
    EXPECT_NEAR(faded.angular / inside.angular, pow(0.5, twirl + 1) * distance[twirl], 1e-6) << twirl;
    EXPECT_EQ(k.Circular(20.0f).radial, 0.0f);  // nothing from the outer radius on
    EXPECT_EQ(k.Circular(35.0f).angular, 0.0f);
  }
  // The stretched branches cut off at the outer radius, whatever the angle.
  Inputs in = Flat();
  in.stretch = 3, in.stretchAngle = 60;
  Rendered s(100, 100, in);
  const FieldKernel ks = MakeKernel(*s);
  EXPECT_NE(ks.Stretched(5.0f, 60.0f, true).radial, 0.0f);
  for (float d : {20.0f, 35.0f})
    for (float a : {0.0f, 60.0f, 150.0f}) {
      EXPECT_EQ(ks.Stretched(d, a, true).radial, 0.0f) << d << " " << a;
      EXPECT_EQ(ks.Stretched(d, a, true).angular, 0.0f) << d << " " << a;
    }
}

TEST(Field, AsksTheHostOncePerQuadrantRowAndStopsAtRowK) {
  for (float stretch : {1.0f, 2.0f}) {
    for (int k : {0, 1, 2, 7}) {
      Inputs in = Flat();
      in.stretch = stretch, in.stretchAngle = 30, in.radiusPx = 30;
      testing::HostCall call;
      call.stopAt = k;
      Rendered r(100, 100, in);
      EXPECT_TRUE(r->ready);
      EXPECT_EQ(r->aborted, k > 0) << stretch << " " << k;
      EXPECT_EQ(r->quadRows, 51);
      EXPECT_EQ(call.progressCalls, k > 0 ? k : 51) << stretch << " " << k;
    }
  }
}

}  // namespace
}  // namespace tarvo
