// Parameter objects reading the host's current values: what the render glue
// receives for given host values, and that every object goes back to the
// allocator.
#include <gtest/gtest.h>

#include "in_host_call.h"
#include "plugin_alloc.h"
#include "ripple_effect.h"

namespace tarvo {
namespace {

using testing::HostCallArgs;
using testing::ScriptedHost;
using P = RippleEffect;

// On a 720 × 486 frame at half size (360 × 243).
TEST(ParamReading, HostValuesAsTheRenderGlueReadsThem) {
  ScriptedHost host;
  host.InData().width = 720;
  host.InData().height = 486;
  host.SetDownsample(1, 2, 1, 2);
  const int64_t liveBefore = PluginAllocStats()->liveBlocks;
  host.During([](const HostCallArgs& c) {
    RippleEffect effect;
    // Percent sliders divide the host value by 100 in integers (truncating
    // toward zero); fixed sliders read it unscaled, a default below the
    // minimum as is.
    const struct {
      int index;
      PF_Fixed host;
      int32_t raw;
    } sliders[] = {{P::kRadius, 25 << 16, 16384},
                   {P::kWaveHeight, 1671168, 16711},  // shown 25.50
                   {P::kAngularWaveHeight, -655, -6},
                   {P::kFrequency, -150 << 16, -150 << 16},
                   {P::kChaosBlend, (100 << 16) - 1, (100 << 16) - 1},
                   {P::kChaos, 0, 0}};
    for (const auto& s : sliders) {
      c.params[s.index]->u.fd.value = s.host;
      EXPECT_EQ(effect.Param(s.index)->RawValue(), s.raw) << s.index;
      EXPECT_EQ(effect.Param(s.index)->Value(), s.raw / 65536.0) << s.index;
    }
    // Angles subtract their offset and are not wrapped.
    const struct {
      int index;
      PF_Fixed host;
      double value;
    } angles[] = {{P::kStretchAngle, 90 << 16, 0.0}, {P::kStretchAngle, 0, -90.0}, {P::kPhase, -(720 << 16), -720.0}};
    for (const auto& a : angles) {
      c.params[a.index]->u.ad.value = a.host;
      EXPECT_EQ(effect.Param(a.index)->Value(), a.value) << a.index;
    }
    // Popups read 0-based (Pin Left, 5, after the first separator).
    const int popups[][3] = {{P::kWaveForm, 1, 0}, {P::kWaveForm, 24, 23}, {P::kPinMode, 5, 4}, {P::kTwirl, 3, 2}};
    for (const auto& p : popups) {
      c.params[p[0]]->u.pd.value = p[1];
      EXPECT_EQ(effect.ParamAs<PopupParam>(static_cast<int16_t>(p[0]))->PopupIndex(), p[2]) << p[0];
    }
    EXPECT_EQ(effect.Param(P::kTwirl)->IntValue(), 3);
    EXPECT_EQ(effect.Param(P::kTwirl)->Value(), 0.0);
    // The centre as fractions of the downsampled frame: (180, 121.5) of 360 × 243.
    c.params[P::kCenter]->u.td.x_value = 180 << 16;
    c.params[P::kCenter]->u.td.y_value = 7962624;
    auto* centre = effect.ParamAs<PointParam>(P::kCenter);
    EXPECT_EQ(centre->X(), 0.5);
    EXPECT_EQ(centre->Y(), 0.5);
    // Read in the current call, never cached: a zero frame size must not
    // trap, and without a parameter array every value is 0.
    c.in->width = 0;
    StoreHostCall(c.cmd, c.in, c.out, c.params, c.output, nullptr);
    EXPECT_FALSE(centre->X() == 0.5);
    StoreHostCall(c.cmd, c.in, c.out, nullptr, c.output, nullptr);
    EXPECT_EQ(effect.Param(P::kFrequency)->Value(), 0.0);
    return PF_Err_NONE;
  });
  EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore) << "parameter objects leaked";
}

}  // namespace
}  // namespace tarvo
