// Values no host sends, through the module's "main", where a behaviour is
// chosen and the pixels show it: popups outside their menus, Pin Center on
// frames of one or two pixels, host worlds outside the pixel model, unusual
// field values. Every render must also stay inside the host's
// buffers (guard bytes after the last row and in every row's padding), keep
// its input intact, leave no block behind and say nothing. Values that only
// must not do harm (boxes far beyond the area sampler's reach, infinities
// and NaNs, extreme times) are fuzz-corpus entries (tests/fuzz).
#include <limits.h>

#include <string>
#include <utility>
#include <vector>

#include "module_test.h"

namespace tarvo::host {
namespace {

class NoHostSends : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  }
  void Fixed(int index, double shown) { host->Param(index).u.fd.value = static_cast<PF_Fixed>(shown * kOne); }
  void Popup(int index, int32_t value) { host->Param(index).u.pd.value = value; }

  // Renders a w × h pattern; checks buffers, input, blocks and messages.
  std::vector<uint8_t> RenderSafely(int w, int h, int rowbytes = 0, Image* kept = nullptr) {
    const Image input = Pattern(w, h, rowbytes);
    const std::vector<uint8_t> inputBefore = input.data;
    Image out = Guarded(w, h, rowbytes);
    EXPECT_EQ(Render(input, out), PF_Err_NONE);
    EXPECT_EQ(input.data, inputBefore);
    EXPECT_EQ(host->ErrorMessage(), "");
    if (kept) *kept = out;
    return Pixels(out);
  }
};

// Popup values travel as the low 8 bits of value − 1. Outside the menu an
// intensity leaves the heights as Normal does, an antialias samples
// bilinearly as Med does, a twirl does not twirl, a waveform is the sine and
// a pin mode (the menu's separator lines included) pins nothing.
TEST_F(NoHostSends, PopupsOutsideTheirMenus) {
  Fixed(kAngularWaveHeight, 10);  // so that twirl shows
  struct Menu {
    int index;
    int32_t same;   // the choice an out-of-menu value renders as
    int32_t other;  // a choice that renders differently
  };
  const Menu menus[] = {{kWaveForm, 1, 3}, {kIntensity, 2, 3}, {kTwirl, 1, 3}, {kPinMode, 1, 3}, {kAntialias, 2, 1}};
  const int32_t outside[] = {0, 25, 255, 256, INT32_MAX, -5, INT32_MIN};
  for (const Menu& m : menus) {
    SCOPED_TRACE(::testing::Message() << "popup " << m.index);
    host->SetParamsToDefaults();
    Fixed(kAngularWaveHeight, 10);
    Popup(m.index, m.same);
    const std::vector<uint8_t> same = RenderSafely(40, 30);
    Popup(m.index, m.other);
    ASSERT_NE(RenderSafely(40, 30), same) << "the choices must differ for the test to mean anything";
    for (int32_t v : outside) {
      if (m.index == kWaveForm && v == 25) continue;  // checked below
      Popup(m.index, v);
      EXPECT_EQ(RenderSafely(40, 30), same) << "value " << v;
    }
    // Only the low 8 bits count: 256 + n is choice n again.
    Popup(m.index, m.other);
    const std::vector<uint8_t> other = RenderSafely(40, 30);
    Popup(m.index, 256 + m.other);
    EXPECT_EQ(RenderSafely(40, 30), other);
  }
  for (int32_t separator : {4, 9}) {
    host->SetParamsToDefaults();
    Popup(kPinMode, 1);
    const std::vector<uint8_t> noPin = RenderSafely(40, 30);
    Popup(kPinMode, separator);
    EXPECT_EQ(RenderSafely(40, 30), noPin) << "separator " << separator;
  }
}

// On frames of one or two pixels Pin Center (like every pin mode) renders
// as No Pin: the profiles have no room to ramp. A frame one pixel wide
// comes out unchanged.
TEST_F(NoHostSends, PinCenterOnFramesOfOneAndTwoPixels) {
  Fixed(kRadius, 100);
  Fixed(kWaveHeight, 25);
  Fixed(kAngularWaveHeight, 25);
  Popup(kIntensity, 3);
  for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {1, 2}, {2, 1}, {2, 2}}) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    Popup(kPinMode, 1);
    const std::vector<uint8_t> noPin = RenderSafely(w, h, w * 4 + 3);
    Popup(kPinMode, 3);
    EXPECT_EQ(RenderSafely(w, h, w * 4 + 3), noPin);
    Popup(kPinMode, 2);
    EXPECT_EQ(RenderSafely(w, h, w * 4 + 3), noPin);
    if (w == 1) {
      EXPECT_EQ(noPin, Pixels(Pattern(w, h, w * 4 + 3)));
    }
  }
}

// A host world the pixel model cannot hold (wider than 4095 pixels, or rows
// of 16384 bytes or more) is not wrapped: the output keeps the transparent
// black it was cleared to, and no pixel outside the host's buffer changes.
TEST_F(NoHostSends, HostWorldsBeyondThePixelModelAreClearedAndLeftAlone) {
  Fixed(kWaveHeight, 25);
  Image out;
  RenderSafely(4096, 2, 0, &out);
  EXPECT_TRUE(AllTransparentBlack(out));
  RenderSafely(100, 3, 16384, &out);
  EXPECT_TRUE(AllTransparentBlack(out));
  RenderSafely(4095, 2, 16380, &out);
  EXPECT_FALSE(AllTransparentBlack(out)) << "the largest frame the model holds renders";
}

// The field mode is not read: fields render as whole frames. (Quality
// values outside the host's two: HostTiming.)
TEST_F(NoHostSends, FieldValuesRenderAsWholeFrames) {
  const std::vector<uint8_t> frame = RenderSafely(40, 31);
  for (PF_Field f : {PF_Field{PF_Field_UPPER}, PF_Field{PF_Field_LOWER}, PF_Field{99}}) {
    host->InData().field = f;
    EXPECT_EQ(RenderSafely(40, 31), frame) << "field " << f;
  }
}

}  // namespace
}  // namespace tarvo::host
