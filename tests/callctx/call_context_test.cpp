// The call context: recording a call, downsampled sizes, the error word, the
// stop check and the messages that reach return_msg.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "in_host_call.h"

namespace tarvo {
namespace {

using testing::HostCallArgs;
using testing::ScriptedHost;

int32_t ScaledWidth(int32_t width, int32_t num, uint32_t den) {
  PF_InData in{};
  in.width = width;
  in.downsample_x = {num, den};
  in.downsample_y = {1, 1};
  StoreHostCall(PF_Cmd_RENDER, &in, nullptr, nullptr, nullptr, nullptr);
  return g_callContext.g_scaledWidth;
}

TEST(CallContext, RecordsTheSixArgumentsAndTheDownsampledSize) {
  PF_InData in{};
  PF_OutData out{};
  PF_ParamDef* params[1] = {nullptr};
  PF_LayerDef output{};
  int extra = 0;
  in.width = 720;
  in.height = 486;
  in.downsample_x = {1, 2};
  in.downsample_y = {1, 2};
  StoreHostCall(PF_Cmd_FRAME_SETUP, &in, &out, params, &output, &extra);
  const CallContext& c = g_callContext;
  EXPECT_EQ(c.g_cmd, PF_Cmd_FRAME_SETUP);
  EXPECT_EQ(c.g_inData, &in);
  EXPECT_EQ(c.g_outData, &out);
  EXPECT_EQ(c.g_params, params);
  EXPECT_EQ(c.g_output, &output);
  EXPECT_EQ(c.g_extra, &extra);
  EXPECT_EQ(c.g_scaledWidth, 360);
  EXPECT_EQ(c.g_scaledHeight, 243);

  EXPECT_EQ(ScaledWidth(720, 1, 3), 240);
  EXPECT_EQ(ScaledWidth(100, 2, 3), 66);
  EXPECT_EQ(ScaledWidth(49, 1, 49), 0) << "the quotient first: 49 × (1 ÷ 49) is just below 1";
  EXPECT_EQ(ScaledWidth(720, 1, 0xFFFFFFFFu), 0) << "the denominator is unsigned";
  // A zero denominator, or no in data at all, must not trap.
  ScaledWidth(720, 1, 0);
  ScaledWidth(720, 0, 0);
  ScaledWidth(-720, 1, 0);
  StoreHostCall(PF_Cmd_ABOUT, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(g_callContext.g_scaledWidth, 0);
  EXPECT_EQ(CallError(), 0);
}

// The first error of a call wins and each call starts clean. A stop is the
// low 16 bits of progress's answer, as a signed number; it writes no
// message.
TEST(CallContext, ErrorWordAndStopCheck) {
  ScriptedHost host;
  host.During([](const HostCallArgs&) {
    SetCallError(517);
    SetCallError(3);
    EXPECT_EQ(CallError(), 517);
    return PF_Err_NONE;
  });
  const struct {
    PF_Err answer;
    bool stop;
  } answers[] = {{0, false}, {0x10000, false}, {PF_Interrupt_CANCEL, true}, {0x18205, true}};
  for (const auto& a : answers) {
    host.faults().stopAtProgress = host.counts().progress + 1;
    host.faults().progressError = a.answer;
    host.During([&](const HostCallArgs& c) {
      EXPECT_EQ(CallError(), 0);
      EXPECT_EQ(CheckAbort(), a.stop) << a.answer;
      EXPECT_EQ(CallError(), a.stop ? static_cast<int16_t>(a.answer) : 0) << a.answer;
      EXPECT_EQ(c.out->return_msg[0], 0);
      return PF_Err_NONE;
    });
  }
  host.InData().inter.progress = nullptr;  // no callback, or no in data: never a stop
  host.During([](const HostCallArgs&) {
    EXPECT_FALSE(CheckAbort());
    StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_FALSE(CheckAbort());
    return PF_Err_NONE;
  });
}

// "Memory Allocation Failure!" is written once per call, also after another
// error, which stays the call's error; a message with conversions is shown
// verbatim.
TEST(Messages, ReportOutOfMemoryWritesOncePerCall) {
  ScriptedHost host;
  for (int call = 0; call < 2; ++call)
    host.During([](const HostCallArgs& c) {
      ReportOutOfMemory();
      EXPECT_STREQ(c.out->return_msg, "Memory Allocation Failure!");
      EXPECT_EQ(c.out->out_flags, PF_OutFlag_DISPLAY_ERROR_MESSAGE);
      EXPECT_EQ(CallError(), 3);
      strcpy(c.out->return_msg, "marker");
      ReportOutOfMemory();
      EXPECT_STREQ(c.out->return_msg, "marker");
      return PF_Err_NONE;
    });
  EXPECT_EQ(host.counts().sprintf, 2);
  host.During([](const HostCallArgs& c) {
    SetCallError(PF_Interrupt_CANCEL);
    ReportOutOfMemory();
    EXPECT_STREQ(c.out->return_msg, "Memory Allocation Failure!");
    EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
    ReportMessage(12);
    EXPECT_STREQ(c.out->return_msg, "Only numbers from %d to %d are accepted!");
    return PF_Err_NONE;
  });
}

TEST(Messages, ReportWorksWithoutTheHostsStringCallbacksOrOutData) {
  ScriptedHost host;
  host.InData().utils->ansi.sprintf = nullptr;
  host.During([](const HostCallArgs& c) {
    ReportMessage(15);
    EXPECT_STREQ(c.out->return_msg, "Sorry, Tarvo Effects only supports editing one effect at a time.");
    EXPECT_TRUE(c.out->out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    return PF_Err_NONE;
  });
  host.InData().utils = nullptr;
  host.During([](const HostCallArgs& c) {
    ReportMessage(3);
    EXPECT_STREQ(c.out->return_msg, "Memory Allocation Failure!");
    StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
    ReportMessage(3);
    EXPECT_EQ(CallError(), 3);
    return PF_Err_NONE;
  });
}

std::string Load(int16_t group, int16_t index, int16_t capacity = 255) {
  uint8_t buffer[256];
  memset(buffer, 0xEE, sizeof buffer);
  LoadMessage(group, index, buffer, capacity);
  return std::string(reinterpret_cast<const char*>(buffer + 1), buffer[0]);
}

TEST(Messages, LoadsEveryEntryByNumber) {
  const char* expected[16] = {"----- All errors start here -----",
                              "Can't Open Settings File!",
                              "Picture File Not Found!",
                              "Memory Allocation Failure!",
                              "Keyframe already exists at this point.",
                              "Settings not compatible with this version of plug-in.",
                              "",
                              "",
                              "",
                              "Host Error. Read from bad handle.",
                              "Bad or Missing Picture File!",
                              "Bad or Missing Movie File!",
                              "Only numbers from %d to %d are accepted!",
                              "",
                              "",
                              "Sorry, Tarvo Effects only supports editing one effect at a time."};
  for (int16_t n = 0; n < 16; ++n) EXPECT_EQ(Load(kMessageGroup, n), expected[n]) << "message " << n;
  EXPECT_EQ(Load(kMessageGroup, 16), "");
  EXPECT_EQ(Load(kMessageGroup, -1), "");
  EXPECT_EQ(Load(419, 3), "");
  EXPECT_EQ(Load(kMessageGroup, 3, 11), "Memory All") << "capacity counts the length byte";
}

TEST(Messages, LengthPrefixedConversionsAreBounded) {
  const std::string longText(300, 'x');
  uint8_t pascal[256];
  CStrToLenStr(longText.c_str(), pascal, 255);
  EXPECT_EQ(pascal[0], 255);
  char text[256];
  memset(text, 0xEE, sizeof text);
  LenStrToCStr(pascal, text, 255);
  EXPECT_EQ(std::string(text), std::string(254, 'x'));

  CStrToLenStr("Ripple", pascal, 4);
  EXPECT_EQ(pascal[0], 4);
  LenStrToCStr(pascal, text, 1);
  EXPECT_STREQ(text, "");
  LenStrToCStr(pascal, text, 100);
  EXPECT_STREQ(text, "Ripp");
}

}  // namespace
}  // namespace tarvo
