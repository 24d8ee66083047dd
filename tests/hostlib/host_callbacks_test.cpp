// The in-process host's callbacks, driven by a scripted stand-in plug-in:
// what each callback does with odd strides, clipped rectangles, broken
// worlds and bounded strings; the records a render hands over; how a load
// fails. (new_world and dispose_world serve effects with copy mode, which
// the Ripple effect never uses.) Injected faults are exercised where the plug-in meets them
// (tests/callctx, tests/plugin, tests/faults).
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "in_host_call.h"

namespace tarvo::host {
namespace {

using testing::HostCallArgs;
using testing::ScriptedHost;
using testing::WorldOver;

PF_Pixel Px(uint8_t a, uint8_t r, uint8_t g, uint8_t b) { return PF_Pixel{a, r, g, b}; }
bool Same(const PF_Pixel& p, const PF_Pixel& q) { return memcmp(&p, &q, 4) == 0; }

TEST(HostCallbacks, FillAndCopyKeepToTheWorldAndItsRows) {
  ScriptedHost host;
  Image img(5, 3, 5 * 4 + 7);  // odd stride: 7 padding bytes per row
  memset(img.data.data(), 0xEE, img.data.size());
  PF_EffectWorld w = WorldOver(img), empty{}, noData = WorldOver(nullptr, 2, 2, 8), shortRows = WorldOver(img);
  shortRows.rowbytes = 19;
  const PF_Pixel red = Px(255, 200, 10, 20);
  const PF_Rect rect{1, 3, 9, 99};  // top, left, bottom, right: clipped; bottom and right exclusive
  Image dst(5, 3, 5 * 4 + 2);
  memset(dst.data.data(), 0x77, dst.data.size());
  PF_EffectWorld d = WorldOver(dst);
  host.During([&](const HostCallArgs& c) {
    PF_UtilCallbacks* u = c.in->utils;
    EXPECT_EQ(u->fill(c.in->effect_ref, &red, nullptr, &w), PF_Err_NONE);
    EXPECT_EQ(u->fill(c.in->effect_ref, nullptr, &rect, &w), PF_Err_NONE);
    EXPECT_EQ(u->fill(c.in->effect_ref, &red, nullptr, &empty), PF_Err_NONE);  // 0 × 0: nothing to do
    for (PF_EffectWorld* bad : {&noData, &shortRows, static_cast<PF_EffectWorld*>(nullptr)})
      EXPECT_EQ(u->fill(c.in->effect_ref, &red, nullptr, bad), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(u->copy(c.in->effect_ref, &w, &d, nullptr, nullptr), PF_Err_NONE);
    return PF_Err_NONE;
  });
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) {
      EXPECT_TRUE(Same(img.At(y, x), (y >= 1 && x >= 3) ? Px(0, 0, 0, 0) : red)) << y << "," << x;
      EXPECT_TRUE(Same(dst.At(y, x), img.At(y, x))) << y << "," << x;
    }
    for (int b = 20; b < 27; ++b) EXPECT_EQ(img.data[static_cast<size_t>(y) * 27 + b], 0xEE);
    for (int b = 20; b < 22; ++b) EXPECT_EQ(dst.data[static_cast<size_t>(y) * 22 + b], 0x77);
  }
  EXPECT_EQ(host.Counts().fill, 6);
  EXPECT_EQ(host.Counts().copy, 1);
}

TEST(HostCallbacks, SprintfStrcpyAndMessagesStayInsideTheirBuffers) {
  ScriptedHost host;
  char name[40];
  memset(name, '#', sizeof name);
  host.SetOutFlagsOnEntry(0x40);
  host.During([&](const HostCallArgs& c) {
    // Every call starts with fresh out data.
    EXPECT_EQ(c.out->return_msg[0], 0);
    EXPECT_EQ(c.out->out_flags, 0x40);
    PF_ANSICallbacks& a = c.in->utils->ansi;
    const std::string longText(400, 'x');  // into the 256-byte return_msg: cut to 255
    EXPECT_EQ(a.sprintf(c.out->return_msg, "%s", longText.c_str()), 255);
    EXPECT_EQ(strlen(c.out->return_msg), 255u);
    a.strcpy(c.out->return_msg, longText.c_str());
    EXPECT_EQ(strlen(c.out->return_msg), 255u);
    a.strcpy(name, "A Name Far Longer Than Thirty-One Characters");
    EXPECT_EQ(a.sprintf(c.out->return_msg, "%s, v%d.%d\r", "Tarvo FX Ripple", 3, 0), 22);
    return PF_Err_NONE;
  });
  EXPECT_EQ(std::string(name), "A Name Far Longer Than Thirty-O");  // 31 characters
  EXPECT_EQ(name[32], '#');
  EXPECT_EQ(host.Counts().sprintf, 2);
  EXPECT_EQ(host.Counts().strcpy, 2);
  EXPECT_EQ(host.ReturnMessage(), "Tarvo FX Ripple, v3.0\r");
  EXPECT_EQ(host.ErrorMessage(), "") << "a message counts only with the display flag";
  host.OutData().my_version = 7;
  host.During(
      [](const HostCallArgs& c) {
        EXPECT_EQ(c.out->my_version, 7u) << "out data kept when asked";
        c.out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
        return PF_Err_NONE;
      },
      PF_Cmd_RENDER, /*keepOutData=*/true);
  EXPECT_EQ(host.ErrorMessage(), "Tarvo FX Ripple, v3.0\r");
}

// A stand-in parameter set-up: a slider, a popup whose name buffer changes
// after add_param returns, a point and an angle.
char g_menu[64];
PF_Err DeclareFour(const HostCallArgs& c) {
  if (c.cmd != PF_Cmd_PARAMS_SETUP) return PF_Err_NONE;
  PF_ParamDef d{};
  d.param_type = PF_Param_FIX_SLIDER;
  d.u.fd.dephault = 25 << 16;
  d.u.fd.value = 1;  // a host sets the value from the default itself
  c.in->inter.add_param(c.in->effect_ref, -1, &d);
  d = PF_ParamDef{};
  d.param_type = PF_Param_POPUP;
  strcpy(g_menu, "Sine|Triangle|(-|Square|");
  d.u.pd.num_choices = 6;
  d.u.pd.dephault = 2;
  d.u.pd.u.namesptr = g_menu;
  c.in->inter.add_param(c.in->effect_ref, -1, &d);
  strcpy(g_menu, "changed afterwards");
  d = PF_ParamDef{};
  d.param_type = PF_Param_POINT;
  d.u.td.x_dephault = 50 << 16;
  d.u.td.y_dephault = 25 << 16;
  c.in->inter.add_param(c.in->effect_ref, -1, &d);
  d = PF_ParamDef{};
  d.param_type = PF_Param_ANGLE;
  d.u.ad.dephault = 90 << 16;
  return c.in->inter.add_param(c.in->effect_ref, -1, &d);
}

// Values start at the declared defaults; a point's default is its
// percentage of the layer in pixels and follows the rendered layer until
// the point is moved.
TEST(HostCallbacks, ParamsSetupRecordsDefinitionsAndTheRenderHandsOverLayerPointsAndTime) {
  ScriptedHost host;
  testing::CurrentScript() = DeclareFour;
  host.SetFrameSize(641, 481);
  ASSERT_EQ(host.ParamsSetup(), PF_Err_NONE);
  ASSERT_EQ(host.Declared().size(), 4u);
  EXPECT_EQ(host.NumParams(), 17);
  EXPECT_EQ(host.Declared()[1].choices, (std::vector<std::string>{"Sine", "Triangle", "(-", "Square"}));
  EXPECT_STREQ(host.Declared()[1].def.u.pd.u.namesptr, "Sine|Triangle|(-|Square|");
  EXPECT_EQ(host.Param(0).param_type, PF_Param_LAYER);
  EXPECT_EQ(host.Param(1).u.fd.value, 25 << 16);
  EXPECT_EQ(host.Param(2).u.pd.value, 2);
  EXPECT_EQ(host.Param(4).u.ad.value, 90 << 16);
  EXPECT_EQ(host.Param(3).u.td.x_value, 21004288);  // 50 % of 641 = 320.5 px in 16.16
  EXPECT_EQ(host.Param(3).u.td.y_value, 7880704);   // 25 % of 481 = 120.25 px
  EXPECT_EQ(host.Param(5).param_type + host.Param(99).param_type, 0) << "undeclared slots stay zero";

  host.SetFrameSize(0, 0);
  Image in(4, 3, 4 * 4 + 4), out(4, 3, 4 * 4 + 8);
  in.At(2, 3) = Px(255, 1, 2, 3);
  host.SetTime(48, 2, 24);
  PF_ParamDef checkedOut{}, beyond{};
  testing::CurrentScript() = [&](const HostCallArgs& c) {
    EXPECT_EQ(std::vector<int32_t>({c.in->width, c.in->height, c.in->current_time, c.in->time_step,
                                    static_cast<int32_t>(c.in->time_scale), c.in->quality, c.in->version.major,
                                    c.in->downsample_x.num, static_cast<int32_t>(c.in->downsample_x.den)}),
              std::vector<int32_t>({4, 3, 48, 2, 24, PF_Quality_HI, 11, 1, 1}));
    EXPECT_EQ(c.params[0]->u.ld.rowbytes, 20);
    EXPECT_EQ(c.output->rowbytes, 24);
    EXPECT_TRUE(c.output->world_flags & PF_WorldFlag_WRITEABLE);
    EXPECT_EQ(c.params[3]->u.td.x_value, 2 << 16);  // 50 % of 4
    EXPECT_EQ(c.params[3]->u.td.y_value, 49152);    // 25 % of 3
    EXPECT_EQ(c.in->inter.checkout_param(c.in->effect_ref, 0, 0, 1, 30, &checkedOut), PF_Err_NONE);
    EXPECT_EQ(c.in->inter.checkin_param(c.in->effect_ref, &checkedOut), PF_Err_NONE);
    EXPECT_EQ(c.in->inter.checkout_param(c.in->effect_ref, 5, 0, 1, 30, &beyond), PF_Err_INVALID_INDEX);
    c.output->data[0] = Px(9, 8, 7, 6);
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.Render(in, out), PF_Err_NONE);
  EXPECT_EQ(checkedOut.u.ld.data, reinterpret_cast<const PF_Pixel*>(in.data.data()));
  EXPECT_TRUE(
      Same(reinterpret_cast<const PF_Pixel*>(reinterpret_cast<const uint8_t*>(checkedOut.u.ld.data) + 2 * 20)[3],
           Px(255, 1, 2, 3)));
  EXPECT_TRUE(Same(out.At(0, 0), Px(9, 8, 7, 6)));

  // A point the user moved stays where it was put when the size changes,
  // as a whole; one set through SetPointPixels never follows, even at (0, 0).
  Image big(8, 8), bigOut(8, 8), small(2, 2), smallOut(2, 2);
  PF_Fixed seen[2];
  testing::CurrentScript() = [&](const HostCallArgs& c) {
    seen[0] = c.params[3]->u.td.x_value;
    seen[1] = c.params[3]->u.td.y_value;
    return PF_Err_NONE;
  };
  host.Param(3).u.td.x_value = 1 << 16;
  ASSERT_EQ(host.Render(big, bigOut), PF_Err_NONE);
  EXPECT_EQ(std::vector<PF_Fixed>(seen, seen + 2), std::vector<PF_Fixed>({1 << 16, 49152}));
  host.SetPointPixels(3, 0, 0);
  ASSERT_EQ(host.Render(small, smallOut), PF_Err_NONE);
  EXPECT_EQ(std::vector<PF_Fixed>(seen, seen + 2), std::vector<PF_Fixed>({0, 0}));
}

TEST(HostCallbacks, RenderRefusesMismatchedOrBrokenImagesWithoutCallingThePlugin) {
  ScriptedHost host;
  Image a(4, 4), b(4, 5), broken(4, 4), zero(0, 0), zeroOut(0, 0);
  broken.data.resize(10);
  EXPECT_EQ(host.Render(a, b), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(host.Render(broken, a), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(testing::EntryCalls(), 0);
  EXPECT_EQ(host.Render(zero, zeroOut), PF_Err_NONE);
  EXPECT_EQ(testing::EntryCalls(), 1);
}

TEST(ModuleLoad, ExplainsWhyALoadFailed) {
  std::string error;
  EXPECT_EQ(Module::Load("/nonexistent/TarvoFXRipple.so", &error), nullptr);
  EXPECT_NE(error.find("cannot load module /nonexistent/TarvoFXRipple.so"), std::string::npos) << error;
  EXPECT_EQ(Module::Load("libm.so.6", &error), nullptr);
  EXPECT_EQ(error, "module libm.so.6 exports no entry point \"main\"");
  EXPECT_EQ(Module::Load("", &error), nullptr);
  EXPECT_EQ(error, "no module path given");
}

}  // namespace
}  // namespace tarvo::host
