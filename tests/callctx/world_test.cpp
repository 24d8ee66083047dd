// Host worlds: wrapping, copying, layers checked out, and what goes back to
// the host when a World ends.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "in_host_call.h"
#include "pixel_image.h"
#include "plugin_alloc.h"
#include "world.h"

namespace tarvo {
namespace {

using testing::HostCallArgs;
using testing::WorldOver;

class WorldTest : public ::testing::Test {
 protected:
  void SetUp() override { liveBefore = PluginAllocStats()->liveBlocks; }
  void TearDown() override {
    EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore);
    EXPECT_EQ(host.LiveWorlds(), 0);
  }
  // Runs body inside a host call.
  void During(std::function<void(const HostCallArgs&)> body) {
    host.During([&](const HostCallArgs& c) {
      body(c);
      return PF_Err_NONE;
    });
  }

  testing::ScriptedHost host;
  int64_t liveBefore = 0;
  std::vector<PF_Pixel> pixels = std::vector<PF_Pixel>(64);
};

TEST_F(WorldTest, WrapUsesTheHostPixelsAndRefusesWorldsOutsideThePixelModel) {
  During([&](const HostCallArgs&) {
    World w(WorldOver(pixels.data(), 5, 3, 24), World::kWrap);
    ASSERT_TRUE(w.Attached());
    EXPECT_EQ(w.Image().BaseAddress(), reinterpret_cast<uint8_t*>(pixels.data()));
    EXPECT_EQ(w.Image().Width(), 5);
    EXPECT_EQ(w.Image().Height(), 3);
    EXPECT_EQ(w.Image().RowBytes(), 24);

    World none(PF_EffectWorld{}, World::kWrap);  // no pixels: empty, unattached
    EXPECT_FALSE(none.Attached());
    EXPECT_EQ(none.Image().Width() + none.Image().Height(), 0);
    EXPECT_EQ(none.Attach(PF_EffectWorld{}), PF_Err_BAD_CALLBACK_PARAM);
    const PF_EffectWorld bad[] = {
        WorldOver(pixels.data(), 4, 2, 16384),  // stride too wide for 14 bits
        WorldOver(pixels.data(), 4, 2, 0),      WorldOver(pixels.data(), 4, 2, -16),
        WorldOver(pixels.data(), 4096, 1, 16383),
        WorldOver(pixels.data(), 4, 2, 12),  // rows shorter than the width
        WorldOver(pixels.data(), 4, -2, 16),
    };
    for (const PF_EffectWorld& src : bad) {
      World b(src, World::kWrap);
      EXPECT_FALSE(b.Attached()) << "rowbytes " << src.rowbytes << " width " << src.width;
      EXPECT_FALSE(b.Image().HasPixels());
      EXPECT_EQ(b.Attach(src), PF_Err_INTERNAL_STRUCT_DAMAGED);
    }
  });
  const host::CallCounts& n = host.counts();
  EXPECT_EQ(n.newWorld + n.copy + n.checkout + n.fill, 0) << "wrapping asks the host for nothing";
}

// The host's world is given back even when the copy into it failed.
TEST_F(WorldTest, CopyModeCopiesIntoAHostWorldAndGivesItBack) {
  for (int i = 0; i < 6; ++i) pixels[static_cast<size_t>(i)] = PF_Pixel{255, static_cast<uint8_t>(i), 0, 0};
  const PF_EffectWorld src = WorldOver(pixels.data(), 3, 2, 12);
  During([&](const HostCallArgs&) {
    World w(src, World::kCopy);
    ASSERT_TRUE(w.Attached());
    EXPECT_NE(w.Image().BaseAddress(), reinterpret_cast<uint8_t*>(pixels.data()));
    EXPECT_EQ(w.Image().PixelAt(1, 2).red, 5);
    EXPECT_EQ(host.LiveWorlds(), 1);
  });
  EXPECT_EQ(host.counts().disposeWorld, 1);

  host.faults().newWorldError = PF_Err_OUT_OF_MEMORY;
  During([&](const HostCallArgs&) { EXPECT_FALSE(World(src, World::kCopy).Attached()); });
  EXPECT_EQ(host.counts().disposeWorld, 1) << "nothing to give back";
  host.faults().newWorldError = 0;
  host.faults().copyError = PF_Interrupt_CANCEL;
  During([&](const HostCallArgs&) { EXPECT_FALSE(World(src, World::kCopy).Attached()); });
  EXPECT_EQ(host.counts().disposeWorld, 2);
}

TEST_F(WorldTest, MakeTFXWorldChecksTheLayerOutOnceAndGivesItBack) {
  host.Param(0).u.ld = WorldOver(pixels.data(), 4, 4, 16);
  During([&](const HostCallArgs& c) {
    World w(PF_EffectWorld{}, World::kWrap);
    EXPECT_EQ(w.MakeTFXWorld(0, 0), PF_Err_NONE);
    EXPECT_TRUE(w.Attached());
    EXPECT_TRUE(w.CheckedOut());
    EXPECT_EQ(w.Image().Width(), 4);
    EXPECT_EQ(w.MakeTFXWorld(0, 0), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_STREQ(c.out->return_msg, "MakeTFXWorld: Doubly Checked out layer");
    EXPECT_TRUE(c.out->out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  });
  EXPECT_EQ(host.counts().checkout, 1);
  EXPECT_EQ(host.counts().checkin, 1);
}

// Without a layer: a blank frame of the downsampled size in the colour
// parameter's colour, forced opaque (opaque black without one).
TEST_F(WorldTest, MakeTFXWorldWithoutALayerMakesABlankFrame) {
  host.InData().width = 8;
  host.InData().height = 6;
  host.SetDownsample(1, 2, 1, 2);
  host.Param(3).u.cd.value = PF_Pixel{7, 10, 20, 30};
  During([&](const HostCallArgs&) {
    World w(PF_EffectWorld{}, World::kWrap);
    EXPECT_EQ(w.MakeTFXWorld(0, 3), PF_Err_NONE);
    EXPECT_TRUE(w.Attached());
    EXPECT_TRUE(w.Filled());
    EXPECT_FALSE(w.CheckedOut());
    ASSERT_EQ(w.Image().Width(), 4);
    ASSERT_EQ(w.Image().Height(), 3);
    EXPECT_EQ(PixelWord(w.Image().PixelAt(2, 3)), PixelWord(PF_Pixel{255, 10, 20, 30}));
    // Nothing stays checked out, so a second call checks the layer out again.
    EXPECT_EQ(w.MakeTFXWorld(0, 0), PF_Err_NONE);
    EXPECT_EQ(PixelWord(w.Image().PixelAt(0, 0)), PixelWord(PF_Pixel{255, 0, 0, 0}));
  });
  EXPECT_EQ(host.counts().checkout, 2);
  EXPECT_EQ(host.counts().checkin, 2);
}

TEST_F(WorldTest, MakeTFXWorldPassesCheckoutErrorsOnAndRefusesHugeBlanks) {
  host.faults().checkoutError = PF_Err_INVALID_INDEX;
  During([&](const HostCallArgs&) {
    World w(PF_EffectWorld{}, World::kWrap);
    EXPECT_EQ(w.MakeTFXWorld(0, 0), PF_Err_INVALID_INDEX);
    EXPECT_FALSE(w.CheckedOut());
  });
  host.faults().checkoutError = 0;
  host.InData().width = 30000;
  host.InData().height = 10;
  During([&](const HostCallArgs&) {
    World w(PF_EffectWorld{}, World::kWrap);
    EXPECT_EQ(w.MakeTFXWorld(0, 0), PF_Err_INTERNAL_STRUCT_DAMAGED);
    EXPECT_FALSE(w.Attached());
  });
}

}  // namespace
}  // namespace tarvo
