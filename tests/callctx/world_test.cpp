// Host worlds: wrapping, copying, layers checked out, and what goes back to
// the host when a World ends.
#include <gtest/gtest.h>

#include <vector>

#include "fake_host.h"
#include "plugin_alloc.h"
#include "world.h"

namespace tarvo {
namespace {

using testing::FakeHost;

class WorldTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host.Store();
    liveBefore = PluginAllocStats()->liveBlocks;
  }
  void TearDown() override { EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore); }

  FakeHost host;
  int64_t liveBefore = 0;
  std::vector<PF_Pixel> pixels = std::vector<PF_Pixel>(64);
};

TEST_F(WorldTest, NullDataGivesAnEmptyUnattachedWorld) {
  World w(PF_EffectWorld{}, World::kWrap);
  EXPECT_FALSE(w.Attached());
  EXPECT_FALSE(w.Image().HasPixels());
  EXPECT_EQ(w.Image().Width(), 0);
  EXPECT_EQ(w.Image().Height(), 0);
  EXPECT_EQ(w.Attach(PF_EffectWorld{}), PF_Err_BAD_CALLBACK_PARAM);
}

TEST_F(WorldTest, WrapUsesTheHostPixelsWithoutCopying) {
  const PF_EffectWorld src = FakeHost::WorldOver(pixels.data(), 5, 3, 24);
  World w(src, World::kWrap);
  ASSERT_TRUE(w.Attached());
  EXPECT_EQ(w.Image().BaseAddress(), reinterpret_cast<uint8_t*>(pixels.data()));
  EXPECT_EQ(w.Image().Width(), 5);
  EXPECT_EQ(w.Image().Height(), 3);
  EXPECT_EQ(w.Image().RowBytes(), 24);
  EXPECT_TRUE(host.log.empty());
}

TEST_F(WorldTest, HostWorldsOutsideThePixelModelAreRefused) {
  const PF_EffectWorld bad[] = {
      FakeHost::WorldOver(pixels.data(), 4, 2, 16384),  // stride too wide for 14 bits
      FakeHost::WorldOver(pixels.data(), 4, 2, 0),
      FakeHost::WorldOver(pixels.data(), 4, 2, -16),
      FakeHost::WorldOver(pixels.data(), 4096, 1, 16383),
      FakeHost::WorldOver(pixels.data(), 4, 2, 12),  // rows shorter than the width
      FakeHost::WorldOver(pixels.data(), 4, -2, 16),
  };
  for (const PF_EffectWorld& src : bad) {
    World w(src, World::kWrap);
    EXPECT_FALSE(w.Attached()) << "rowbytes " << src.rowbytes << " width " << src.width;
    EXPECT_FALSE(w.Image().HasPixels());
    EXPECT_EQ(w.Attach(src), PF_Err_INTERNAL_STRUCT_DAMAGED);
  }
}

TEST_F(WorldTest, CopyModeCopiesIntoAHostWorldAndGivesItBack) {
  for (int i = 0; i < 6; ++i) pixels[static_cast<size_t>(i)] = PF_Pixel{255, static_cast<uint8_t>(i), 0, 0};
  {
    World w(FakeHost::WorldOver(pixels.data(), 3, 2, 12), World::kCopy);
    ASSERT_TRUE(w.Attached());
    EXPECT_NE(w.Image().BaseAddress(), reinterpret_cast<uint8_t*>(pixels.data()));
    EXPECT_EQ(w.Image().PixelAt(1, 2).red, 5);
    EXPECT_EQ(host.liveWorlds, 1);
  }
  EXPECT_EQ(host.log, (std::vector<std::string>{"new_world", "copy", "dispose_world"}));
  EXPECT_EQ(host.liveWorlds, 0);
}

TEST_F(WorldTest, CopyModeFailures) {
  const PF_EffectWorld src = FakeHost::WorldOver(pixels.data(), 3, 2, 12);
  host.newWorldError = PF_Err_OUT_OF_MEMORY;
  {
    World w(src, World::kCopy);
    EXPECT_FALSE(w.Attached());
  }
  EXPECT_EQ(host.Count("dispose_world"), 0) << "nothing to give back";

  host.newWorldError = 0;
  host.copyError = PF_Interrupt_CANCEL;
  {
    World w(src, World::kCopy);
    EXPECT_FALSE(w.Attached());
  }
  EXPECT_EQ(host.Count("dispose_world"), 1) << "the host's world is given back even when the copy failed";
  EXPECT_EQ(host.liveWorlds, 0);
}

TEST_F(WorldTest, MakeTFXWorldTwiceOnACheckedOutLayerIsRefused) {
  host.checkoutAnswer.u.ld = FakeHost::WorldOver(pixels.data(), 4, 4, 16);
  {
    World w(PF_EffectWorld{}, World::kWrap);
    EXPECT_EQ(w.MakeTFXWorld(1, 0), PF_Err_NONE);
    EXPECT_TRUE(w.Attached());
    EXPECT_TRUE(w.CheckedOut());
    EXPECT_EQ(w.Image().Width(), 4);
    EXPECT_EQ(w.MakeTFXWorld(1, 0), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_STREQ(host.out.return_msg, "MakeTFXWorld: Doubly Checked out layer");
    EXPECT_TRUE(host.out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    EXPECT_EQ(host.Count("checkout"), 1);
  }
  EXPECT_EQ(host.Count("checkin"), 1);
}

TEST_F(WorldTest, MakeTFXWorldWithoutALayerMakesABlankFrame) {
  host.in.width = 8;
  host.in.height = 6;
  host.in.downsample_x = {1, 2};
  host.in.downsample_y = {1, 2};
  host.values[3].u.cd.value = PF_Pixel{7, 10, 20, 30};
  host.Store();
  World w(PF_EffectWorld{}, World::kWrap);
  EXPECT_EQ(w.MakeTFXWorld(1, 3), PF_Err_NONE);
  EXPECT_TRUE(w.Attached());
  EXPECT_TRUE(w.Filled());
  EXPECT_FALSE(w.CheckedOut());
  ASSERT_EQ(w.Image().Width(), 4);
  ASSERT_EQ(w.Image().Height(), 3);
  const PF_Pixel& p = w.Image().PixelAt(2, 3);
  EXPECT_EQ(p.alpha, 255) << "alpha forced opaque";
  EXPECT_EQ(p.blue, 30);

  // Nothing stays checked out, so a second call checks the layer out again.
  EXPECT_EQ(w.MakeTFXWorld(1, 0), PF_Err_NONE);
  EXPECT_EQ(w.Image().PixelAt(0, 0).red, 0) << "no colour parameter: opaque black";
  EXPECT_EQ(w.Image().PixelAt(0, 0).alpha, 255);
  EXPECT_EQ(host.Count("checkout"), 2);
  EXPECT_EQ(host.Count("checkin"), 2);
}

TEST_F(WorldTest, MakeTFXWorldPassesCheckoutErrorsOnAndRefusesHugeBlanks) {
  World w(PF_EffectWorld{}, World::kWrap);
  host.checkoutError = PF_Err_INVALID_INDEX;
  EXPECT_EQ(w.MakeTFXWorld(1, 0), PF_Err_INVALID_INDEX);
  EXPECT_FALSE(w.CheckedOut());

  host.checkoutError = 0;
  host.in.width = 30000;
  host.in.height = 10;
  host.Store();
  EXPECT_EQ(w.MakeTFXWorld(1, 0), PF_Err_INTERNAL_STRUCT_DAMAGED);
  EXPECT_FALSE(w.Attached());
}

}  // namespace
}  // namespace tarvo
