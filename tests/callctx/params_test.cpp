// Parameter objects reading the host's current values, and the effect object
// owning them: what the render glue receives for given host values, and that
// every object goes back to the allocator.
#include <gtest/gtest.h>

#include "effect_base.h"
#include "fake_host.h"
#include "pixel_image.h"
#include "plugin_alloc.h"
#include "ripple_effect.h"

namespace tarvo {
namespace {

using testing::FakeHost;
using P = RippleEffect;

class ParamReading : public ::testing::Test {
 protected:
  void SetUp() override {
    liveBefore = PluginAllocStats()->liveBlocks;
    host.in.width = 720;
    host.in.height = 486;
    host.in.downsample_x = {1, 2};
    host.in.downsample_y = {1, 2};
    host.Store();
  }
  void TearDown() override {
    effect.reset();
    EXPECT_EQ(PluginAllocStats()->liveBlocks, liveBefore) << "parameter objects leaked";
  }
  PF_ParamDef& Host(int i) { return host.values[static_cast<size_t>(i)]; }
  double Value(int i) { return effect->Param(static_cast<int16_t>(i))->Value(); }

  FakeHost host;
  int64_t liveBefore = 0;
  std::unique_ptr<RippleEffect> effect = std::make_unique<RippleEffect>();
};

TEST_F(ParamReading, PercentSlidersReadTheShownValueOverAHundred) {
  Host(P::kRadius).u.fd.value = 25 << 16;
  Host(P::kWaveWidth).u.fd.value = 50 << 16;
  Host(P::kWaveHeight).u.fd.value = 1671168;  // shown 25.50
  Host(P::kAngularWaveHeight).u.fd.value = -655;  // shown −0.01
  EXPECT_EQ(Value(P::kRadius), 0.25);
  EXPECT_EQ(Value(P::kWaveWidth), 0.5);
  EXPECT_EQ(effect->Param(P::kWaveHeight)->RawValue(), 16711);
  EXPECT_EQ(Value(P::kWaveHeight), 16711 / 65536.0);
  EXPECT_EQ(effect->Param(P::kAngularWaveHeight)->RawValue(), -6) << "integer division truncates toward zero";
}

TEST_F(ParamReading, FixedSlidersReadTheHostValueUnscaled) {
  Host(P::kFrequency).u.fd.value = -150 << 16;
  Host(P::kChaos).u.fd.value = 0;
  Host(P::kChaosBlend).u.fd.value = (100 << 16) - 1;
  EXPECT_EQ(Value(P::kFrequency), -150.0);
  EXPECT_EQ(Value(P::kChaos), 0.0) << "the default below the minimum reads as is";
  EXPECT_EQ(Value(P::kChaosBlend), ((100 << 16) - 1) / 65536.0);
}

TEST_F(ParamReading, AnglesSubtractTheirOffset) {
  Host(P::kStretchAngle).u.ad.value = 90 << 16;
  EXPECT_EQ(Value(P::kStretchAngle), 0.0);
  Host(P::kStretchAngle).u.ad.value = 0;
  EXPECT_EQ(Value(P::kStretchAngle), -90.0);
  Host(P::kPhase).u.ad.value = -(720 << 16);  // not wrapped
  EXPECT_EQ(Value(P::kPhase), -720.0);
}

TEST_F(ParamReading, PopupsReadZeroBasedIndices) {
  Host(P::kWaveForm).u.pd.value = 1;
  EXPECT_EQ(effect->ParamAs<PopupParam>(P::kWaveForm)->PopupIndex(), 0);
  Host(P::kWaveForm).u.pd.value = 24;
  EXPECT_EQ(effect->ParamAs<PopupParam>(P::kWaveForm)->PopupIndex(), 23);
  Host(P::kPinMode).u.pd.value = 5;  // "Pin Left", after the first separator
  EXPECT_EQ(effect->ParamAs<PopupParam>(P::kPinMode)->PopupIndex(), 4);
  Host(P::kTwirl).u.pd.value = 3;
  EXPECT_EQ(effect->ParamAs<PopupParam>(P::kTwirl)->PopupIndex(), 2);
  EXPECT_EQ(effect->Param(P::kTwirl)->IntValue(), 3);
  EXPECT_EQ(effect->Param(P::kTwirl)->Value(), 0.0);
}

TEST_F(ParamReading, CentreReadsAsFractionsOfTheDownsampledFrame) {
  Host(P::kCenter).u.td.x_value = 180 << 16;
  Host(P::kCenter).u.td.y_value = 7962624;  // 121.5
  auto* centre = effect->ParamAs<PointParam>(P::kCenter);
  EXPECT_EQ(centre->X(), 0.5);
  EXPECT_EQ(centre->Y(), 0.5);

  host.in.width = 0;  // a zero frame size must not trap
  host.Store();
  EXPECT_FALSE(centre->X() == 0.5);
}

TEST_F(ParamReading, SettersMarkTheHostValueChanged) {
  const int32_t raw = 3 << 16;
  effect->ParamAs<FixedSliderParam>(P::kStretch)->SetRawValue(&raw);
  EXPECT_EQ(Host(P::kStretch).u.fd.value, raw);
  EXPECT_EQ(Host(P::kStretch).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
  effect->ParamAs<PointParam>(P::kCenter)->SetRawPoint(1 << 16, 2 << 16);
  EXPECT_EQ(Host(P::kCenter).u.td.y_value, 2 << 16);
  EXPECT_EQ(Host(P::kCenter).uu.change_flags, PF_ChangeFlag_CHANGED_VALUE);
}

TEST_F(ParamReading, ValuesAreReadInTheCurrentCallNotCached) {
  Host(P::kFrequency).u.fd.value = 10 << 16;
  EXPECT_EQ(Value(P::kFrequency), 10.0);
  FakeHost other;
  other.values[P::kFrequency].u.fd.value = 20 << 16;
  other.Store();
  EXPECT_EQ(Value(P::kFrequency), 20.0);
  StoreHostCall(PF_Cmd_RENDER, &other.in, &other.out, nullptr, nullptr, nullptr);  // no parameter array
  EXPECT_EQ(Value(P::kFrequency), 0.0);
}

TEST_F(ParamReading, StoreValueWritesFloatsTaggedFourIntoTheRowsSlots) {
  Host(P::kRadius).u.fd.value = 25 << 16;
  Host(P::kCenter).u.td.x_value = 90 << 16;
  Host(P::kCenter).u.td.y_value = 243 << 16;
  ParamSettings settings{};
  effect->Param(P::kRadius)->StoreValue(&settings);
  effect->Param(P::kCenter)->StoreValue(&settings);
  effect->Param(P::kWaveForm)->StoreValue(&settings);  // popups store nothing
  EXPECT_EQ(settings.values[kRowRadius].AsFloat(), 0.25f);
  EXPECT_EQ(settings.values[kRowRadius].tag, 4);
  EXPECT_EQ(settings.values[kRowCenterX].AsFloat(), 0.25f);
  EXPECT_EQ(settings.values[kRowCenterY].AsFloat(), 1.0f);
}

TEST(EffectParams, ParamAndSetParamStayInsideTheArray) {
  FakeHost host;
  host.Store();
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

TEST(EffectParams, ArrayAllocationFailureIsReported) {
  FakeHost host;
  host.Store();
  RippleEffect effect;
  PluginAllocStats()->failAt = 1;
  EXPECT_EQ(effect.BuildParams(), PF_Err_INVALID_CALLBACK);
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");
  EXPECT_EQ(CallError(), 3);
}

TEST(EffectParams, AnObjectThatCannotBeAllocatedLeavesItsSlotNullAndSetupGoesOn) {
  FakeHost host;
  host.Store();
  RippleEffect effect;
  PluginAllocStats()->failAt = 4;  // the array, index 0, index 1, then index 2 fails
  EXPECT_EQ(effect.BuildParams(), PF_Err_NONE);
  EXPECT_NE(effect.Param(1), nullptr);
  EXPECT_EQ(effect.Param(2), nullptr);
  EXPECT_NE(effect.Param(3), nullptr);
  EXPECT_NE(effect.Param(16), nullptr);
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

TEST(EffectRender, ClearsTheOutputThenRendersTheInput) {
  FakeHost host;
  PF_Pixel in[6], out[6];
  for (int i = 0; i < 6; ++i) {
    in[i] = PF_Pixel{255, static_cast<uint8_t>(i), 2, 3};
    out[i] = PF_Pixel{9, 9, 9, 9};
  }
  host.values[0].u.ld = FakeHost::WorldOver(in, 3, 2, 12);
  host.output = FakeHost::WorldOver(out, 3, 2, 12);
  host.Store(PF_Cmd_RENDER);
  PassThrough effect;
  effect.Dispatch();
  EXPECT_EQ(host.log, (std::vector<std::string>{"fill", "copy"}));
  EXPECT_EQ(host.lastFillColour.alpha, 0);
  EXPECT_EQ(host.lastFillColour.red, 0);
  EXPECT_FALSE(host.lastFillHadRect) << "the whole frame is cleared";
  EXPECT_EQ(memcmp(in, out, sizeof in), 0);

  host.log.clear();
  host.copyError = PF_Err_BAD_CALLBACK_PARAM;  // nothing drawn: the clear shows
  host.Store(PF_Cmd_RENDER);
  effect.Dispatch();
  for (const PF_Pixel& p : out) EXPECT_EQ(PixelWord(p), 0u);
}

TEST(EffectRender, AFailedClearEndsTheRenderBeforeAnythingIsBuilt) {
  FakeHost host;
  PF_Pixel out[4] = {};
  host.output = FakeHost::WorldOver(out, 2, 2, 8);
  host.fillError = PF_Err_OUT_OF_MEMORY;
  host.Store(PF_Cmd_RENDER);
  const int64_t allocs = PluginAllocStats()->allocCount;
  PassThrough effect;
  EXPECT_EQ(effect.DoRender(), PF_Err_OUT_OF_MEMORY);
  EXPECT_EQ(host.log, std::vector<std::string>{"fill"});
  EXPECT_EQ(PluginAllocStats()->allocCount, allocs);
  EXPECT_EQ(host.out.out_flags, 0) << "no message";
}

TEST(EffectRender, BrokenHostsFailCleanly) {
  FakeHost host;
  const auto fill = host.utils.fill;
  host.utils.fill = nullptr;
  host.Store(PF_Cmd_RENDER);
  PassThrough effect;
  EXPECT_EQ(effect.DoRender(), PF_Err_INVALID_CALLBACK);
  host.utils.fill = fill;
  StoreHostCall(PF_Cmd_RENDER, &host.in, &host.out, nullptr, nullptr, nullptr);
  EXPECT_EQ(effect.DoRender(), PF_Err_BAD_CALLBACK_PARAM);
}

TEST(EffectRender, RenderIsSkippedWhenAParameterCouldNotBeAllocated) {
  FakeHost host;
  PF_Pixel in[4], out[4];
  for (auto& p : in) p = PF_Pixel{255, 1, 2, 3};
  host.values[0].u.ld = FakeHost::WorldOver(in, 2, 2, 8);
  host.output = FakeHost::WorldOver(out, 2, 2, 8);
  host.Store(PF_Cmd_RENDER);
  const int64_t before = PluginAllocStats()->liveBlocks;
  {
    RippleEffect effect;
    // The output world's record, the input world's record, the array, then
    // the first parameter object fails.
    PluginAllocStats()->failAt = 4;
    EXPECT_EQ(effect.DoRender(), PF_Err_OUT_OF_MEMORY);
  }
  EXPECT_EQ(host.log, (std::vector<std::string>{"fill", "sprintf"})) << "cleared, message, no render";
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");
  for (const PF_Pixel& p : out) EXPECT_EQ(PixelWord(p), 0u);
  EXPECT_EQ(PluginAllocStats()->liveBlocks, before);
}

}  // namespace
}  // namespace tarvo
