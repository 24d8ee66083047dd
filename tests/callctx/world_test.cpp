// Host worlds as the render command makes them: wrapping the host's pixels,
// and refusing worlds outside the pixel model.
#include <gtest/gtest.h>

#include <vector>

#include "in_host_call.h"
#include "pixel_image.h"
#include "plugin_alloc.h"
#include "world.h"

namespace tarvo {
namespace {

using testing::HostCallArgs;
using testing::WorldOver;

TEST(WorldTest, WrapUsesTheHostPixelsAndRefusesWorldsOutsideThePixelModel) {
  testing::ScriptedHost host;
  std::vector<PF_Pixel> pixels(64);
  const int64_t liveBefore = PluginAllocStats()->liveBlocks;
  host.During([&](const HostCallArgs&) {
    World w(WorldOver(pixels.data(), 5, 3, 24), World::kWrap);
    EXPECT_TRUE(w.Attached());
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
        WorldOver(pixels.data(), 4, 2, 0),        WorldOver(pixels.data(), 4, 2, -16),
        WorldOver(pixels.data(), 4096, 1, 16383), WorldOver(pixels.data(), 4, 2, 12),  // rows shorter than the width
        WorldOver(pixels.data(), 4, -2, 16),
    };
    for (const PF_EffectWorld& src : bad) {
      World b(src, World::kWrap);
      EXPECT_FALSE(b.Attached()) << "rowbytes " << src.rowbytes << " width " << src.width;
      EXPECT_FALSE(b.Image().HasPixels());
      EXPECT_EQ(b.Attach(src), PF_Err_INTERNAL_STRUCT_DAMAGED);
    }
    return PF_Err_NONE;
  });
  EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore);
  const host::CallbackCounts& n = host.Counts();
  EXPECT_EQ(n.newWorld + n.copy + n.checkout + n.fill, 0) << "wrapping asks the host for nothing";
}

}  // namespace
}  // namespace tarvo
