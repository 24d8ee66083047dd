// Parameter set-up through "main": what the host receives, in which order,
// and what happens when the host or the allocator refuses.
#include <string.h>

#include <algorithm>
#include <string>

#include "plugin_fixture.h"

namespace tarvo::host {
namespace {

constexpr PF_Fixed Fx(double v) { return static_cast<PF_Fixed>(v * 65536.0); }

struct Slider {
  PF_Fixed min, max, dflt;
};
struct Popup {
  const char* choices;
  int16_t numChoices, dflt;
};

// What each declared parameter must look like, index 1..16.
struct Expected {
  const char* name;
  PF_ParamType type;
  PF_ParamFlags flags;
  Slider slider;      // sliders
  PF_Fixed angle;     // angles: the default
  Popup popup;        // popups
};

const Expected kExpected[16] = {
    {"Radius", PF_Param_FIX_SLIDER, 0, {0, Fx(100), Fx(25)}, 0, {}},
    {"Center", PF_Param_POINT, 0, {}, 0, {}},
    {"Wave Height", PF_Param_FIX_SLIDER, 0, {0, 1638400, 204800}, 0, {}},
    {"Angular Wave Height", PF_Param_FIX_SLIDER, 0, {0, 1638400, 0}, 0, {}},
    {"Wave Width", PF_Param_FIX_SLIDER, 0, {0, Fx(50), Fx(6.25)}, 0, {}},
    {"WaveForm", PF_Param_POPUP, 0, {}, 0,
     {"Sine|Triangle|Square|Sawtooth|Circle|Semicircle|Uncircle|Half Sine|Spectrum 1|Spectrum 2|Spectrum 3|"
      "Spectrum 4|Spectrum 5|Spectrum 6|Spectrum 7|Spectrum 8|Spectrum 9|Spectrum 10|Spectrum 11|Spectrum 12|"
      "Spectrum 13|Spectrum 14|",
      24, 1}},
    {"Frequency", PF_Param_FIX_SLIDER, 0, {Fx(-150), Fx(150), Fx(10)}, 0, {}},
    {"Intensity", PF_Param_POPUP, 0, {}, 0, {"Low|Normal|Super", 3, 2}},
    {"Stretch", PF_Param_FIX_SLIDER, 0x20, {Fx(-100), Fx(100), 0}, 0, {}},
    {"Stretch Angle", PF_Param_ANGLE, 0x20, {}, 5898240, {}},
    {"Twirl", PF_Param_POPUP, 0x20, {}, 0, {"No Twirl|Twirl|Super Twirl|Hyper Twirl", 4, 1}},
    {"Pin Mode", PF_Param_POPUP, 0x20, {}, 0,
     {"No Pin|Pin Edges|Pin Center|(-|Pin Left|Pin Top|Pin Right|Pin Bottom|(-|Pin Horiz|Pin Vertical", 11, 2}},
    {"Antialias", PF_Param_POPUP, 0x20, {}, 0, {"High|Med|Low", 3, 1}},
    {"Chaos Blend", PF_Param_FIX_SLIDER, 0x20, {0, Fx(100), 0}, 0, {}},
    {"Chaos", PF_Param_FIX_SLIDER, 0x20, {Fx(10), Fx(140), 0}, 0, {}},  // default below the minimum
    {"Phase", PF_Param_ANGLE, 0x20, {}, 0, {}},
};

class ParamsSetupTest : public PluginTest {
 protected:
  void ExpectDeclaredAsPublished() {
    const auto& declared = host->Declared();
    ASSERT_EQ(declared.size(), 16u);
    for (size_t i = 0; i < 16; ++i) {
      const Expected& e = kExpected[i];
      const PF_ParamDef& d = declared[i].def;
      SCOPED_TRACE(std::string("index ") + std::to_string(i + 1) + " " + e.name);
      EXPECT_STREQ(d.name, e.name);
      EXPECT_EQ(d.param_type, e.type);
      EXPECT_EQ(d.flags, e.flags);
      EXPECT_EQ(d.ui_flags, 0);
      switch (e.type) {
        case PF_Param_FIX_SLIDER:
          EXPECT_EQ(d.u.fd.valid_min, e.slider.min);
          EXPECT_EQ(d.u.fd.slider_min, e.slider.min);
          EXPECT_EQ(d.u.fd.valid_max, e.slider.max);
          EXPECT_EQ(d.u.fd.slider_max, e.slider.max);
          EXPECT_EQ(d.u.fd.dephault, e.slider.dflt);
          EXPECT_EQ(d.u.fd.value, e.slider.dflt);
          EXPECT_EQ(d.u.fd.precision, 2);
          EXPECT_EQ(d.u.fd.display_flags, 0);
          EXPECT_EQ(d.u.fd.value_str[0], 0);
          EXPECT_EQ(d.u.fd.value_desc[0], 0);
          break;
        case PF_Param_ANGLE:
          EXPECT_EQ(d.u.ad.dephault, e.angle);
          EXPECT_EQ(d.u.ad.value, e.angle);
          break;
        case PF_Param_POPUP:
          ASSERT_NE(d.u.pd.u.namesptr, nullptr);
          EXPECT_STREQ(d.u.pd.u.namesptr, e.popup.choices);
          EXPECT_EQ(d.u.pd.num_choices, e.popup.numChoices);
          EXPECT_EQ(d.u.pd.dephault, e.popup.dflt);
          EXPECT_EQ(d.u.pd.value, e.popup.dflt);
          break;
        case PF_Param_POINT:
          EXPECT_EQ(d.u.td.x_dephault, 3276800);
          EXPECT_EQ(d.u.td.y_dephault, 3276800);
          EXPECT_EQ(d.u.td.restrict_bounds, 1);
          break;
        default:
          ADD_FAILURE() << "unexpected type";
      }
    }
  }
};

TEST_F(ParamsSetupTest, DeclaresSixteenParametersInIndexOrder) {
  EXPECT_EQ(ParamsSetup(), PF_Err_NONE);
  EXPECT_EQ(host->counts().addParam, 16);
  EXPECT_EQ(host->OutData().num_params, 17);
  EXPECT_EQ(host->ErrorMessage(), "");
  ExpectDeclaredAsPublished();
  // WaveForm's menu names 22 shapes; values 23 and 24 are valid but unnamed.
  EXPECT_EQ(host->Declared()[5].choices.size(), 22u);
}

TEST_F(ParamsSetupTest, ASecondSetupDeclaresTheSameAgain) {
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
  ExpectDeclaredAsPublished();  // the flags of 1..8 start from 0 again
}

TEST_F(ParamsSetupTest, AFailedDeclarationEndsTheList) {
  host->faults().addParamFailAt = 3;
  EXPECT_EQ(ParamsSetup(), PF_Err_NONE) << "main answers 0 whatever happened";
  EXPECT_EQ(host->counts().addParam, 3);
  EXPECT_EQ(host->Declared().size(), 2u);
  EXPECT_EQ(host->OutData().num_params, 17);
}

TEST_F(ParamsSetupTest, AllocationFailuresStopTheListWithAMessage) {
  // Allocation 1 is the parameter array, allocation 2 + i the object at
  // index i: the host then receives indices 1..i − 1.
  for (int64_t k = 1; k <= 19; ++k) {
    SCOPED_TRACE("failing allocation " + std::to_string(k));
    host = std::make_unique<Host>(module().Entry());
    stats->failAt = k;
    EXPECT_EQ(ParamsSetup(), PF_Err_NONE);
    stats->failAt = 0;
    const int expectedDeclared = k >= 19 ? 16 : static_cast<int>(std::max<int64_t>(0, k - 3));
    EXPECT_EQ(host->counts().addParam, expectedDeclared);
    EXPECT_EQ(host->OutData().num_params, k == 1 ? 1 : 17);
    EXPECT_EQ(host->ErrorMessage(), k >= 19 ? "" : "Memory Allocation Failure!");
  }
}

}  // namespace
}  // namespace tarvo::host
