// Pin profiles, the Pin Mode table and pinning of the source map.
#include <gtest/gtest.h>

#include <string.h>

#include <vector>

#include "output_stage.h"
#include "output_test_util.h"
#include "plugin_alloc.h"

namespace tarvo {
namespace {

using outtest::HostCall;
using outtest::Picture;
using outtest::SetupFor;
using outtest::WriteRow;

std::vector<PinWeight> Profile(int32_t shape, int32_t n) {
  std::vector<PinWeight> p(static_cast<size_t>(n), PinWeight{-7.0f, -7.0f});
  FillPinProfile(shape, n, p.data());
  return p;
}

float Ratio(int num, int den) { return static_cast<float>(static_cast<double>(num) / den); }

void ExpectFree(const PinWeight& w, int i) {
  EXPECT_EQ(w.pin, 0.0f) << "entry " << i;
  EXPECT_EQ(w.keep, 1.0f) << "entry " << i;
}

void ExpectPin(const PinWeight& w, float pin, int i) {
  EXPECT_EQ(w.pin, pin) << "entry " << i;
  EXPECT_EQ(w.keep, static_cast<float>(1.0 - pin)) << "entry " << i;
}

TEST(PinProfile, EdgesOn101Entries) {
  const auto p = Profile(1, 101);  // q = 25, e = 76
  ExpectPin(p[0], 1.0f, 0);
  ExpectPin(p[1], Ratio(24, 25), 1);
  ExpectPin(p[24], Ratio(1, 25), 24);
  for (int i = 25; i <= 75; ++i) ExpectFree(p[i], i);
  ExpectPin(p[76], 0.0f, 76);
  ExpectPin(p[77], Ratio(1, 25), 77);
  ExpectPin(p[100], Ratio(24, 25), 100);
}

TEST(PinProfile, CenterOn101Entries) {
  const auto p = Profile(2, 101);  // q = 25, h = 50, e = 76
  for (int i = 0; i < 25; ++i) ExpectFree(p[i], i);
  ExpectPin(p[25], 0.0f, 25);
  ExpectPin(p[49], Ratio(24, 25), 49);
  ExpectPin(p[50], Ratio(26, 25), 50);
  EXPECT_NEAR(p[50].keep, -1.0 / 25, 1e-7);
  ExpectPin(p[75], Ratio(1, 25), 75);
  for (int i = 76; i < 101; ++i) ExpectFree(p[i], i);

  // A multiple of 4 peaks at exactly 1.
  const auto m = Profile(2, 100);
  ExpectPin(m[50], 1.0f, 50);
}

TEST(PinProfile, OneEndedShapes) {
  const auto low = Profile(3, 101);
  ExpectPin(low[0], 1.0f, 0);
  ExpectPin(low[24], Ratio(1, 25), 24);
  for (int i = 25; i < 101; ++i) ExpectFree(low[i], i);

  const auto high = Profile(4, 101);
  for (int i = 0; i < 76; ++i) ExpectFree(high[i], i);
  ExpectPin(high[76], 0.0f, 76);
  ExpectPin(high[100], Ratio(24, 25), 100);

  const auto none = Profile(0, 101);
  for (int i = 0; i < 101; ++i) ExpectFree(none[i], i);
}

TEST(PinProfile, FewerThanFourEntriesAreAllFree) {
  for (int shape = 0; shape <= 4; ++shape)
    for (int n = 1; n <= 3; ++n) {
      const auto p = Profile(shape, n);
      for (int i = 0; i < n; ++i) ExpectFree(p[i], i);
    }
  // Four entries: q = 1, and the centre shape is defined again.
  const auto c = Profile(2, 4);
  ExpectFree(c[0], 0);
  ExpectPin(c[1], 0.0f, 1);
  ExpectPin(c[2], 1.0f, 2);
  ExpectFree(c[3], 3);
}

class PinProfiles : public ::testing::Test {
 protected:
  void TearDown() override { FreePinProfiles(); }
  HostCall call;
};

TEST_F(PinProfiles, ModeTableChoosesColumnAndRowShapes) {
  struct Row {
    int mode, columnShape, rowShape;
  };
  const Row table[] = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {3, 0, 0}, {4, 3, 0},  {5, 0, 3},  {6, 4, 0},
                       {7, 0, 4}, {8, 0, 0}, {9, 1, 0}, {10, 0, 1}, {11, 0, 0}, {-1, 0, 0}, {1000, 0, 0}};
  for (const Row& r : table) {
    ASSERT_TRUE(CreatePinProfiles(r.mode, 9, 13)) << r.mode;
    const auto columns = Profile(r.columnShape, 13);
    const auto rows = Profile(r.rowShape, 9);
    EXPECT_EQ(memcmp(g_pinColumns, columns.data(), 13 * sizeof(PinWeight)), 0) << "mode " << r.mode;
    EXPECT_EQ(memcmp(g_pinRows, rows.data(), 9 * sizeof(PinWeight)), 0) << "mode " << r.mode;
    FreePinProfiles();
    EXPECT_EQ(g_pinColumns, nullptr);
    EXPECT_EQ(g_pinRows, nullptr);
  }
}

TEST_F(PinProfiles, OutOfMemoryReportsAndKeepsNothing) {
  AllocStats* stats = PluginAllocStats();
  const int64_t live = stats->liveBlocks;
  for (int failing = 1; failing <= 2; ++failing) {
    stats->failAt = failing;
    EXPECT_FALSE(CreatePinProfiles(1, 11, 11));
    stats->failAt = 0;
    EXPECT_EQ(stats->liveBlocks, live) << "allocation " << failing;
    EXPECT_EQ(g_pinColumns, nullptr);
    EXPECT_EQ(g_pinRows, nullptr);
    EXPECT_EQ(CallError(), 3);
    EXPECT_NE(strstr(call.out.return_msg, "Memory Allocation Failure!"), nullptr);
    EXPECT_NE(call.out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE, 0);
  }
  // Success after a failure, and the profiles are released at the end.
  ASSERT_TRUE(CreatePinProfiles(0, 3, 3));
  EXPECT_EQ(stats->liveBlocks, live + 2);
  FreePinProfiles();
  EXPECT_EQ(stats->liveBlocks, live);
}

// A map over a 100 × 100 source whose written points are displaced.
class Pinning : public PinProfiles {
 protected:
  Pinning() : src(100, 100), map(101, 101, SetupFor(src, kSampleArea)) {}
  Picture src;
  SourceMap map;
};

TEST_F(Pinning, PinnedByOneInBothProfilesEndsAtTheGridPoint) {
  ASSERT_TRUE(map.ok);
  ASSERT_TRUE(CreatePinProfiles(1, 101, 101));  // Pin Edges
  WriteRow(map, 0, 0, 100, 7.3f, -5.2f);
  PinSourceMap(map);
  EXPECT_EQ(map.At(0, 0).row, 0.0f);
  EXPECT_EQ(map.At(0, 0).column, 0.0f);
  // Row 0 has pin 1: every point of the row is held, whatever its column.
  EXPECT_EQ(map.At(0, 50).row, 0.0f);
  EXPECT_EQ(map.At(0, 50).column, 50.0f);

  // One point directly through the two operations.
  ASSERT_TRUE(CreatePinProfiles(1, 101, 101));
  MapPoint p{-3.25f, 12.5f};
  PinByColumn(0, 0, p);
  PinByRow(0, 0, p);
  EXPECT_EQ(p.row, 0.0f);
  EXPECT_EQ(p.column, 0.0f);
}

TEST_F(Pinning, LastWrittenColumnIsPulledByItsRamp) {
  ASSERT_TRUE(CreatePinProfiles(1, 101, 101));
  WriteRow(map, 50, 76, 100, 3.0f, -4.0f);  // row 50 is free
  map.At(50, 75) = MapPoint{-1.0f, -1.0f};  // outside the span
  PinSourceMap(map);
  const double pin = Ratio(24, 25), keep = static_cast<float>(1.0 - pin);
  EXPECT_EQ(map.At(50, 100).column, static_cast<float>(100 * pin + 96.0 * keep));
  EXPECT_EQ(map.At(50, 100).row, static_cast<float>(50 * pin + 53.0 * keep));
  EXPECT_NEAR(map.At(50, 100).column, 99.84, 1e-4);
  EXPECT_NEAR(map.At(50, 100).row, 50.12, 1e-4);
  // Column 76 starts the ramp at 0; column 75 lies outside the span.
  EXPECT_EQ(map.At(50, 76).row, 53.0f);
  EXPECT_EQ(map.At(50, 76).column, 72.0f);
  EXPECT_EQ(map.At(50, 75).row, -1.0f);
}

TEST_F(Pinning, PinLeftFreesRowsAndPinTopFreesColumns) {
  ASSERT_TRUE(CreatePinProfiles(4, 101, 101));  // Pin Left
  WriteRow(map, 0, 0, 100, 2.0f, 2.0f);
  PinSourceMap(map);
  EXPECT_EQ(map.At(0, 0).column, 0.0f);   // held by its column
  EXPECT_EQ(map.At(0, 0).row, 0.0f);
  EXPECT_EQ(map.At(0, 60).column, 62.0f);  // row 0 is not held
  EXPECT_EQ(map.At(0, 60).row, 2.0f);

  ASSERT_TRUE(CreatePinProfiles(5, 101, 101));  // Pin Top
  WriteRow(map, 60, 0, 100, 2.0f, 2.0f);
  PinSourceMap(map);
  EXPECT_EQ(map.At(60, 0).column, 2.0f);  // column 0 is not held
  EXPECT_EQ(map.At(60, 0).row, 62.0f);
}

TEST_F(Pinning, StopEndsThePassAndResamplingDoesNothing) {
  ASSERT_TRUE(CreatePinProfiles(1, 101, 101));
  for (int y = 0; y <= 100; ++y) WriteRow(map, y, 0, 100, 1.0f, 1.0f);
  call.stopAt = 3;  // rows 0 and 1 are pinned, then the host asks to stop
  PinSourceMap(map);
  EXPECT_EQ(map.aborted, 1);
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
  EXPECT_EQ(map.At(1, 0).column, 0.0f);
  EXPECT_EQ(map.At(2, 0).column, 1.0f);  // not reached
  EXPECT_EQ(call.progressCalls, 3);

  Picture dst(100, 100);
  dst.Fill(PF_Pixel{0, 0, 0, 0});
  src.Randomize(4);
  ResampleOutput(map, dst.image, kSampleArea);
  for (const PF_Pixel& p : dst.pixels) ASSERT_TRUE(outtest::Same(p, PF_Pixel{0, 0, 0, 0}));
  EXPECT_EQ(call.progressCalls, 3);
}

TEST_F(Pinning, UnwrittenRowsAndMissingProfilesAreLeftAlone) {
  WriteRow(map, 3, 0, 100, 1.0f, 1.0f);
  map.At(4, 0) = MapPoint{9.0f, 9.0f};  // row 4 is not written
  PinSourceMap(map);                    // no profiles: nothing moves
  EXPECT_EQ(map.At(3, 0).column, 1.0f);
  ASSERT_TRUE(CreatePinProfiles(1, 101, 101));
  PinSourceMap(map);
  EXPECT_EQ(map.At(3, 0).column, 0.0f);
  EXPECT_EQ(map.At(4, 0).column, 9.0f);

  // Profiles smaller than the map only pin what they cover.
  ASSERT_TRUE(CreatePinProfiles(1, 5, 5));
  WriteRow(map, 3, 0, 100, 1.0f, 1.0f);
  PinSourceMap(map);
  EXPECT_EQ(map.At(3, 100).column, 101.0f);
}

}  // namespace
}  // namespace tarvo
