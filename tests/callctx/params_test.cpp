// Parameter objects reading the host's current values, and the effect object
// owning them: what the render glue receives for given host values, the
// array's bounds, the base render, and that every object goes back to the
// allocator.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "effect_base.h"
#include "in_host_call.h"
#include "pixel_image.h"
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
    } sliders[] = {{P::kRadius, 25 << 16, 16384},           {P::kWaveHeight, 1671168, 16711},  // shown 25.50
                   {P::kAngularWaveHeight, -655, -6},       {P::kFrequency, -150 << 16, -150 << 16},
                   {P::kChaosBlend, (100 << 16) - 1, (100 << 16) - 1}, {P::kChaos, 0, 0}};
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
    c.in->width = 0;  // a zero frame size must not trap
    StoreHostCall(c.cmd, c.in, c.out, c.params, c.output, nullptr);
    EXPECT_FALSE(centre->X() == 0.5);

    // Setters write the host value and mark it changed; StoreValue writes
    // floats tagged 4 into the slots of the object's rows, popups nothing.
    const int32_t raw = 3 << 16;
    effect.ParamAs<FixedSliderParam>(P::kStretch)->SetRawValue(&raw);
    EXPECT_EQ(c.params[P::kStretch]->u.fd.value, raw);
    EXPECT_EQ(c.params[P::kStretch]->uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
    effect.ParamAs<PointParam>(P::kCenter)->SetRawPoint(90 << 16, 243 << 16);
    EXPECT_EQ(c.params[P::kCenter]->u.td.y_value, 243 << 16);
    EXPECT_EQ(c.params[P::kCenter]->uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
    c.in->width = 720;
    StoreHostCall(c.cmd, c.in, c.out, c.params, c.output, nullptr);
    ParamSettings settings{};
    for (int i : {P::kRadius, P::kCenter, P::kWaveForm}) effect.Param(static_cast<int16_t>(i))->StoreValue(&settings);
    EXPECT_EQ(settings.values[kRowRadius].AsFloat(), 0.25f);
    EXPECT_EQ(settings.values[kRowRadius].tag, 4);
    EXPECT_EQ(settings.values[kRowCenterX].AsFloat(), 0.25f);
    EXPECT_EQ(settings.values[kRowCenterY].AsFloat(), 1.0f);
    return PF_Err_NONE;
  });
  EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore) << "parameter objects leaked";
}

TEST(ParamReading, ValuesAreReadInTheCurrentCallNotCached) {
  ScriptedHost first, second;
  RippleEffect effect;
  first.Param(P::kFrequency).u.fd.value = 10 << 16;
  second.Param(P::kFrequency).u.fd.value = 20 << 16;
  first.During([&](const HostCallArgs&) {
    EXPECT_EQ(effect.Param(P::kFrequency)->Value(), 10.0);
    return PF_Err_NONE;
  });
  second.During([&](const HostCallArgs& c) {
    EXPECT_EQ(effect.Param(P::kFrequency)->Value(), 20.0);
    StoreHostCall(c.cmd, c.in, c.out, nullptr, nullptr, nullptr);  // no parameter array
    EXPECT_EQ(effect.Param(P::kFrequency)->Value(), 0.0);
    return PF_Err_NONE;
  });
}

TEST(EffectParams, ParamAndSetParamStayInsideTheArray) {
  const int64_t before = PluginAllocStats()->liveBlocks;
  {
    RippleEffect effect;
    EXPECT_EQ(effect.Param(-1), nullptr);
    EXPECT_EQ(effect.Param(17), nullptr);
    ASSERT_NE(effect.Param(16), nullptr);
    auto* extra = new LayerParam(0);
    EXPECT_EQ(effect.SetParam(17, extra), 1);
    delete extra;  // refused: still the caller's
    EXPECT_EQ(effect.SetParam(0, new LayerParam(0)), 0);
  }
  EXPECT_EQ(PluginAllocStats()->liveBlocks, before);
}

// An effect that keeps the base render: the input layer copied to the output.
class PassThrough : public EffectBase {
 public:
  PF_Err About(char*) override { return PF_Err_NONE; }
  uint32_t Version() override { return 1; }
  int32_t OutFlags() override { return 0; }
  int16_t NumParams() override { return 1; }
  PF_Err SetupParams() override { return SetParam(0, new LayerParam(0)); }
};

// The render command clears the whole output to transparent black, then
// renders; a host without fill or without parameters fails cleanly.
TEST(EffectRender, ClearsTheOutputThenTheBaseRenderCopiesTheInput) {
  ScriptedHost host;
  host::Image in(3, 2), out(3, 2);
  for (int i = 0; i < 6; ++i) in.At(i / 3, i % 3) = PF_Pixel{255, static_cast<uint8_t>(i), 2, 3};
  testing::CurrentScript() = [](const HostCallArgs&) {
    PassThrough().Dispatch();
    return PF_Err_NONE;
  };
  std::fill(out.data.begin(), out.data.end(), 9);
  ASSERT_EQ(host.Render(in, out), PF_Err_NONE);
  EXPECT_EQ(out.data, in.data);
  EXPECT_EQ(host.counts().fill, 1);
  EXPECT_EQ(host.counts().copy, 1);

  host.faults().copyError = PF_Err_BAD_CALLBACK_PARAM;  // nothing drawn: the clear shows
  std::fill(out.data.begin(), out.data.end(), 9);
  ASSERT_EQ(host.Render(in, out), PF_Err_NONE);
  EXPECT_EQ(out.data, std::vector<uint8_t>(24, 0));

  const auto fill = host.InData().utils->fill;
  host.InData().utils->fill = nullptr;
  testing::CurrentScript() = [](const HostCallArgs&) {
    EXPECT_EQ(PassThrough().DoRender(), PF_Err_INVALID_CALLBACK);
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.Render(in, out), PF_Err_NONE);
  host.InData().utils->fill = fill;
  host.During([](const HostCallArgs& c) {
    StoreHostCall(c.cmd, c.in, c.out, nullptr, nullptr, nullptr);  // no parameters, no output
    EXPECT_EQ(PassThrough().DoRender(), PF_Err_BAD_CALLBACK_PARAM);
    return PF_Err_NONE;
  });
}

}  // namespace
}  // namespace tarvo
