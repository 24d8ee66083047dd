// The in-process host's callbacks, driven by a scripted stand-in plug-in:
// what each callback does with odd strides, clipped rectangles and bounded
// strings, and how injected faults surface.
#include <gtest/gtest.h>

#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "host.h"

namespace tarvo::host {
namespace {

struct Call {
  PF_Cmd cmd;
  PF_InData* in;
  PF_OutData* out;
  PF_ParamDef** params;
  PF_LayerDef* output;
};
std::function<PF_Err(const Call&)> g_script;
int g_entered = 0;

PF_Err ScriptedEntry(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef* output, void*) {
  ++g_entered;
  return g_script ? g_script(Call{cmd, in, out, params, output}) : PF_Err_NONE;
}

class HostCallbacks : public ::testing::Test {
 protected:
  void SetUp() override {
    g_script = nullptr;
    g_entered = 0;
  }
  void TearDown() override { g_script = nullptr; }
  // Runs body inside a render command, where every callback is live.
  PF_Err DuringCall(std::function<PF_Err(const Call&)> body) {
    g_script = std::move(body);
    return host.Call(PF_Cmd_RENDER);
  }
  Host host{&ScriptedEntry};
};

PF_EffectWorld WorldOver(Image& img) {
  PF_EffectWorld w{};
  w.data = img.Row(0);
  w.width = img.width;
  w.height = img.height;
  w.rowbytes = img.rowbytes;
  return w;
}

PF_Pixel Px(uint8_t a, uint8_t r, uint8_t g, uint8_t b) { return PF_Pixel{a, r, g, b}; }
bool Same(const PF_Pixel& p, const PF_Pixel& q) { return memcmp(&p, &q, 4) == 0; }

TEST_F(HostCallbacks, FillCoversWorldOrClippedRectAndLeavesRowPaddingAlone) {
  Image img(5, 3, 5 * 4 + 7);  // odd stride: 7 padding bytes per row
  memset(img.data.data(), 0xEE, img.data.size());
  PF_EffectWorld w = WorldOver(img);
  const PF_Pixel red = Px(255, 200, 10, 20);
  ASSERT_EQ(DuringCall([&](const Call& c) { return c.in->utils->fill(c.in->effect_ref, &red, nullptr, &w); }), 0);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) EXPECT_TRUE(Same(img.At(y, x), red)) << y << "," << x;
    for (int b = 20; b < 27; ++b) EXPECT_EQ(img.data[static_cast<size_t>(y) * 27 + b], 0xEE);
  }

  // A rectangle reaching past the world is clipped; bottom and right are exclusive.
  const PF_Rect rect{1, 3, 9, 99};  // top, left, bottom, right
  ASSERT_EQ(DuringCall([&](const Call& c) { return c.in->utils->fill(c.in->effect_ref, nullptr, &rect, &w); }), 0);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x)
      EXPECT_TRUE(Same(img.At(y, x), (y >= 1 && x >= 3) ? Px(0, 0, 0, 0) : red)) << y << "," << x;
  EXPECT_EQ(img.data[1 * 27 + 20], 0xEE);
  EXPECT_EQ(host.counts().fill, 2);
}

TEST_F(HostCallbacks, FillOfEmptyOrBrokenWorlds) {
  PF_EffectWorld empty{};  // 0 × 0, no pixels: nothing to do
  PF_EffectWorld noData{};
  noData.width = 2;
  noData.height = 2;
  noData.rowbytes = 8;
  PF_EffectWorld shortRows = noData;
  shortRows.rowbytes = 7;
  const PF_Pixel p = Px(1, 2, 3, 4);
  DuringCall([&](const Call& c) {
    auto fill = c.in->utils->fill;
    EXPECT_EQ(fill(c.in->effect_ref, &p, nullptr, &empty), PF_Err_NONE);
    EXPECT_EQ(fill(c.in->effect_ref, &p, nullptr, &noData), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(fill(c.in->effect_ref, &p, nullptr, &shortRows), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(fill(c.in->effect_ref, &p, nullptr, nullptr), PF_Err_BAD_CALLBACK_PARAM);
    return PF_Err_NONE;
  });
}

TEST_F(HostCallbacks, CopyRespectsBothStrides) {
  Image src(3, 4, 3 * 4 + 5);
  Image dst(3, 4, 3 * 4 + 2);
  memset(dst.data.data(), 0x77, dst.data.size());
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 3; ++x) src.At(y, x) = Px(static_cast<uint8_t>(y), static_cast<uint8_t>(x), 9, 250);
  PF_EffectWorld s = WorldOver(src), d = WorldOver(dst);
  ASSERT_EQ(DuringCall([&](const Call& c) { return c.in->utils->copy(c.in->effect_ref, &s, &d, nullptr, nullptr); }),
            0);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 3; ++x) EXPECT_TRUE(Same(dst.At(y, x), src.At(y, x))) << y << "," << x;
    EXPECT_EQ(dst.data[static_cast<size_t>(y) * 14 + 12], 0x77);
    EXPECT_EQ(dst.data[static_cast<size_t>(y) * 14 + 13], 0x77);
  }
  EXPECT_EQ(host.counts().copy, 1);
}

TEST_F(HostCallbacks, NewWorldIsZeroedHostOwnedAndDisposable) {
  PF_EffectWorld w{};
  DuringCall([&](const Call& c) {
    EXPECT_EQ(c.in->utils->new_world(c.in->effect_ref, 7, 3, PF_NewWorldFlag_NONE, &w), PF_Err_NONE);
    return PF_Err_NONE;
  });
  ASSERT_NE(w.data, nullptr);
  EXPECT_EQ(w.width, 7);
  EXPECT_EQ(w.height, 3);
  EXPECT_EQ(w.rowbytes, 28);
  const auto* bytes = reinterpret_cast<const uint8_t*>(w.data);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 84), std::vector<uint8_t>(84, 0));
  EXPECT_EQ(host.LiveWorlds(), 1);

  PF_EffectWorld stranger{};
  uint8_t pixels[4];
  stranger.data = reinterpret_cast<PF_Pixel*>(pixels);
  DuringCall([&](const Call& c) {
    EXPECT_EQ(c.in->utils->dispose_world(c.in->effect_ref, &stranger), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(c.in->utils->dispose_world(c.in->effect_ref, &w), PF_Err_NONE);
    EXPECT_EQ(c.in->utils->dispose_world(c.in->effect_ref, &w), PF_Err_BAD_CALLBACK_PARAM);  // already gone
    PF_EffectWorld bad{};
    EXPECT_EQ(c.in->utils->new_world(c.in->effect_ref, -1, 3, 0, &bad), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(c.in->utils->new_world(c.in->effect_ref, 30001, 1, 0, &bad), PF_Err_BAD_CALLBACK_PARAM);
    return PF_Err_NONE;
  });
  EXPECT_EQ(host.LiveWorlds(), 0);
  EXPECT_EQ(host.counts().newWorld, 3);
  EXPECT_EQ(host.counts().disposeWorld, 3);
}

TEST_F(HostCallbacks, EveryUtilityFaultIsReturnedAsGiven) {
  host.faults().fillError = PF_Err_OUT_OF_MEMORY;
  host.faults().copyError = PF_Err_INTERNAL_STRUCT_DAMAGED;
  host.faults().newWorldError = PF_Err_BAD_CALLBACK_PARAM;
  host.faults().checkoutError = PF_Err_INVALID_INDEX;
  Image img(2, 2);
  PF_EffectWorld w = WorldOver(img), made{};
  PF_ParamDef out{};
  const PF_Pixel p = Px(9, 9, 9, 9);
  DuringCall([&](const Call& c) {
    PF_UtilCallbacks* u = c.in->utils;
    EXPECT_EQ(u->fill(c.in->effect_ref, &p, nullptr, &w), PF_Err_OUT_OF_MEMORY);
    EXPECT_EQ(u->copy(c.in->effect_ref, &w, &w, nullptr, nullptr), PF_Err_INTERNAL_STRUCT_DAMAGED);
    EXPECT_EQ(u->new_world(c.in->effect_ref, 2, 2, 0, &made), PF_Err_BAD_CALLBACK_PARAM);
    EXPECT_EQ(c.in->inter.checkout_param(c.in->effect_ref, 0, 0, 1, 30, &out), PF_Err_INVALID_INDEX);
    return PF_Err_NONE;
  });
  EXPECT_TRUE(Same(img.At(0, 0), Px(0, 0, 0, 0)));  // the failed fill wrote nothing
  EXPECT_EQ(host.LiveWorlds(), 0);
  EXPECT_EQ(host.counts().fill, 1);
  EXPECT_EQ(host.counts().copy, 1);
  EXPECT_EQ(host.counts().newWorld, 1);
  EXPECT_EQ(host.counts().checkout, 1);
}

TEST_F(HostCallbacks, ProgressStopsExactlyAtTheNthCall) {
  host.faults().stopAtProgress = 3;
  std::vector<PF_Err> seen;
  DuringCall([&](const Call& c) {
    for (int i = 0; i < 5; ++i) seen.push_back(c.in->inter.progress(c.in->effect_ref, 0, 0));
    return PF_Err_NONE;
  });
  EXPECT_EQ(seen, (std::vector<PF_Err>{0, 0, PF_Interrupt_CANCEL, 0, 0}));
  EXPECT_EQ(host.counts().progress, 5);
}

TEST_F(HostCallbacks, SprintfAndStrcpyStayInsideTheirDestinations) {
  std::string formatted;
  char name[40];
  DuringCall([&](const Call& c) {
    PF_ANSICallbacks& a = c.in->utils->ansi;
    EXPECT_EQ(a.sprintf(c.out->return_msg, "%s, v%d.%d\r", "Tarvo FX Ripple", 3, 0), 22);
    formatted = c.out->return_msg;
    // 400 characters into the 256-byte return_msg: cut to 255 and terminated.
    const std::string longText(400, 'x');
    EXPECT_EQ(a.sprintf(c.out->return_msg, "%s", longText.c_str()), 255);
    EXPECT_EQ(strlen(c.out->return_msg), 255u);
    memset(name, '#', sizeof name);
    a.strcpy(name, "A Name Far Longer Than Thirty-One Characters");
    a.strcpy(c.out->return_msg, longText.c_str());
    EXPECT_EQ(strlen(c.out->return_msg), 255u);
    EXPECT_DOUBLE_EQ(a.atan2(1.0, 1.0), 0.78539816339744828);
    EXPECT_DOUBLE_EQ(a.sqrt(2.0), 1.4142135623730951);
    return PF_Err_NONE;
  });
  EXPECT_EQ(formatted, "Tarvo FX Ripple, v3.0\r");
  EXPECT_EQ(std::string(name), "A Name Far Longer Than Thirty-O");  // 31 characters
  EXPECT_EQ(name[32], '#');
  EXPECT_EQ(host.counts().sprintf, 2);
  EXPECT_EQ(host.counts().strcpy, 2);
}

TEST_F(HostCallbacks, MessagesOnlyCountWithTheDisplayFlag) {
  g_script = [](const Call& c) {
    strcpy(c.out->return_msg, "Memory Allocation Failure!");
    if (c.cmd == PF_Cmd_RENDER) c.out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
    return PF_Err_NONE;
  };
  host.Call(PF_Cmd_ABOUT);
  EXPECT_EQ(host.ErrorMessage(), "");
  EXPECT_EQ(host.ReturnMessage(), "Memory Allocation Failure!");
  host.Call(PF_Cmd_RENDER);
  EXPECT_EQ(host.ErrorMessage(), "Memory Allocation Failure!");

  // Every call starts with fresh out data, unless asked to keep it.
  g_script = [](const Call& c) {
    EXPECT_EQ(c.out->return_msg[0], 0);
    EXPECT_EQ(c.out->out_flags, 0x40);
    return PF_Err_NONE;
  };
  host.SetOutFlagsOnEntry(0x40);
  host.Call(PF_Cmd_GLOBAL_SETUP);
  host.OutData().my_version = 7;
  g_script = [](const Call& c) {
    EXPECT_EQ(c.out->my_version, 7u);
    return PF_Err_NONE;
  };
  host.Call(PF_Cmd_GLOBAL_SETDOWN, /*keepOutData=*/true);
}

// A stand-in parameter set-up: a slider, a popup whose name buffer changes
// after add_param returns, a point and an angle.
char g_menu[64];
PF_Err DeclareFour(const Call& c) {
  if (c.cmd != PF_Cmd_PARAMS_SETUP) return PF_Err_NONE;
  PF_Err last = PF_Err_NONE;
  PF_ParamDef d{};
  d.param_type = PF_Param_FIX_SLIDER;
  strcpy(d.name, "Radius");
  d.u.fd.valid_min = 0;
  d.u.fd.valid_max = 100 << 16;
  d.u.fd.dephault = 25 << 16;
  d.u.fd.value = 1;  // a host sets the value from the default itself
  last = c.in->inter.add_param(c.in->effect_ref, -1, &d);
  d = PF_ParamDef{};
  d.param_type = PF_Param_POPUP;
  strcpy(d.name, "WaveForm");
  strcpy(g_menu, "Sine|Triangle|(-|Square|");
  d.u.pd.num_choices = 6;
  d.u.pd.dephault = 2;
  d.u.pd.u.namesptr = g_menu;
  last = c.in->inter.add_param(c.in->effect_ref, -1, &d);
  strcpy(g_menu, "changed afterwards");
  d = PF_ParamDef{};
  d.param_type = PF_Param_POINT;
  strcpy(d.name, "Center");
  d.u.td.x_dephault = 50 << 16;
  d.u.td.y_dephault = 25 << 16;
  last = c.in->inter.add_param(c.in->effect_ref, -1, &d);
  d = PF_ParamDef{};
  d.param_type = PF_Param_ANGLE;
  strcpy(d.name, "Phase");
  d.u.ad.dephault = 90 << 16;
  last = c.in->inter.add_param(c.in->effect_ref, -1, &d);
  return last;
}

TEST_F(HostCallbacks, ParamsSetupRecordsDefinitionsAndSetsDefaults) {
  g_script = DeclareFour;
  host.SetFrameSize(641, 481);
  ASSERT_EQ(host.ParamsSetup(), PF_Err_NONE);
  ASSERT_EQ(host.Declared().size(), 4u);
  EXPECT_EQ(host.NumParams(), 17);
  EXPECT_STREQ(host.Declared()[0].def.name, "Radius");
  EXPECT_EQ(host.Declared()[1].choices, (std::vector<std::string>{"Sine", "Triangle", "(-", "Square"}));
  EXPECT_STREQ(host.Declared()[1].def.u.pd.u.namesptr, "Sine|Triangle|(-|Square|");
  EXPECT_EQ(host.Param(0).param_type, PF_Param_LAYER);
  EXPECT_EQ(host.Param(1).u.fd.value, 25 << 16);
  EXPECT_EQ(host.Param(2).u.pd.value, 2);
  EXPECT_EQ(host.Param(4).u.ad.value, 90 << 16);
  // 50 % of 641 = 320.5 px, 25 % of 481 = 120.25 px, in 16.16.
  EXPECT_EQ(host.Param(3).u.td.x_value, 21004288);
  EXPECT_EQ(host.Param(3).u.td.y_value, 7880704);
  EXPECT_EQ(host.Param(5).param_type, 0);  // undeclared slots stay zero
  EXPECT_EQ(host.Param(99).param_type, 0);
}

TEST_F(HostCallbacks, AddParamFaultStopsAtTheNthDefinition) {
  g_script = DeclareFour;
  host.faults().addParamFailAt = 3;
  EXPECT_EQ(host.ParamsSetup(), PF_Err_NONE);  // the stand-in returns only the last result
  EXPECT_EQ(host.counts().addParam, 4);
  ASSERT_EQ(host.Declared().size(), 3u);
  EXPECT_STREQ(host.Declared()[2].def.name, "Phase");  // the point was refused
}

TEST_F(HostCallbacks, RenderHandsOverBothWorldsAndTheTime) {
  g_script = DeclareFour;
  ASSERT_EQ(host.ParamsSetup(), PF_Err_NONE);
  Image in(4, 3, 4 * 4 + 4), out(4, 3, 4 * 4 + 8);
  in.At(2, 3) = Px(255, 1, 2, 3);
  host.SetTime(48, 2, 24);
  PF_ParamDef checkedOut{};
  g_script = [&](const Call& c) {
    EXPECT_EQ(c.cmd, PF_Cmd_RENDER);
    EXPECT_EQ(c.in->width, 4);
    EXPECT_EQ(c.in->height, 3);
    EXPECT_EQ(c.in->current_time, 48);
    EXPECT_EQ(c.in->time_step, 2);
    EXPECT_EQ(c.in->time_scale, 24u);
    EXPECT_EQ(c.in->quality, PF_Quality_HI);
    EXPECT_EQ(c.in->version.major, 11);
    EXPECT_EQ(c.in->downsample_x.num, 1);
    EXPECT_EQ(c.in->downsample_x.den, 1u);
    const PF_LayerDef& ld = c.params[0]->u.ld;
    EXPECT_EQ(ld.width, 4);
    EXPECT_EQ(ld.rowbytes, 20);
    EXPECT_TRUE(Same(reinterpret_cast<const PF_Pixel*>(reinterpret_cast<const uint8_t*>(ld.data) + 2 * 20)[3],
                     Px(255, 1, 2, 3)));
    EXPECT_EQ(c.output->rowbytes, 24);
    EXPECT_TRUE(c.output->world_flags & PF_WorldFlag_WRITEABLE);
    // Default point follows the rendered layer: 50 % of 4, 25 % of 3.
    EXPECT_EQ(c.params[3]->u.td.x_value, 2 << 16);
    EXPECT_EQ(c.params[3]->u.td.y_value, 49152);
    EXPECT_EQ(c.in->inter.checkout_param(c.in->effect_ref, 0, 0, 1, 30, &checkedOut), PF_Err_NONE);
    EXPECT_EQ(c.in->inter.checkin_param(c.in->effect_ref, &checkedOut), PF_Err_NONE);
    PF_ParamDef beyond{};
    EXPECT_EQ(c.in->inter.checkout_param(c.in->effect_ref, 5, 0, 1, 30, &beyond), PF_Err_INVALID_INDEX);
    c.output->data[0] = Px(9, 8, 7, 6);
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.Render(in, out), PF_Err_NONE);
  EXPECT_EQ(checkedOut.u.ld.width, 4);
  EXPECT_EQ(checkedOut.u.ld.data, reinterpret_cast<const PF_Pixel*>(in.data.data()));
  EXPECT_TRUE(Same(out.At(0, 0), Px(9, 8, 7, 6)));

  // A point the user moved stays where it was put when the size changes.
  host.Param(3).u.td.x_value = 1 << 16;
  Image big(8, 8), bigOut(8, 8);
  g_script = [](const Call& c) {
    EXPECT_EQ(c.params[3]->u.td.x_value, 1 << 16);
    EXPECT_EQ(c.params[3]->u.td.y_value, 49152);  // the point moves as a whole or not at all
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.Render(big, bigOut), PF_Err_NONE);

  // A point set through SetPointPixels never follows the layer, even at (0, 0).
  host.SetPointPixels(3, 0, 0);
  Image small(2, 2), smallOut(2, 2);
  g_script = [](const Call& c) {
    EXPECT_EQ(c.params[3]->u.td.x_value, 0);
    EXPECT_EQ(c.params[3]->u.td.y_value, 0);
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.Render(small, smallOut), PF_Err_NONE);
}

TEST_F(HostCallbacks, RenderRefusesMismatchedOrBrokenImagesWithoutCallingThePlugin) {
  Image a(4, 4), b(4, 5), broken(4, 4);
  broken.data.resize(10);
  EXPECT_EQ(host.Render(a, b), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(host.Render(broken, a), PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(g_entered, 0);
  Image zero(0, 0), zeroOut(0, 0);
  EXPECT_EQ(host.Render(zero, zeroOut), PF_Err_NONE);
  EXPECT_EQ(g_entered, 1);
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
