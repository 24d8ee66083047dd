// The call context: recording a call, downsampled sizes, the error word, the
// stop check and the messages that reach return_msg.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "call_context.h"
#include "fake_host.h"

namespace tarvo {
namespace {

using testing::FakeHost;

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
}

TEST(CallContext, DownsampledSizeIsWidthTimesTheQuotientTruncated) {
  EXPECT_EQ(ScaledWidth(720, 1, 3), 240);
  EXPECT_EQ(ScaledWidth(100, 2, 3), 66);
  // The quotient is formed first: 49 × (1 ÷ 49) is just below 1 in double.
  EXPECT_EQ(ScaledWidth(49, 1, 49), 0);
  // The denominator is unsigned: 0xFFFFFFFF is huge, not −1.
  EXPECT_EQ(ScaledWidth(720, 1, 0xFFFFFFFFu), 0);
}

TEST(CallContext, ZeroDenominatorDoesNotTrap) {
  ScaledWidth(720, 1, 0);
  ScaledWidth(720, 0, 0);
  ScaledWidth(-720, 1, 0);
  StoreHostCall(PF_Cmd_ABOUT, nullptr, nullptr, nullptr, nullptr, nullptr);  // no in data at all
  EXPECT_EQ(g_callContext.g_scaledWidth, 0);
  EXPECT_EQ(CallError(), 0);
}

TEST(CallContext, FirstErrorWinsAndEachCallStartsClean) {
  FakeHost host;
  host.Store();
  EXPECT_EQ(CallError(), 0);
  SetCallError(517);
  SetCallError(3);
  EXPECT_EQ(CallError(), 517);
  host.Store();
  EXPECT_EQ(CallError(), 0);
  SetCallError(3);
  EXPECT_EQ(CallError(), 3);
}

TEST(CallContext, CheckAbortReadsTheLow16BitsOfProgress) {
  FakeHost host;
  host.Store();
  EXPECT_FALSE(CheckAbort());
  host.progressAnswer = 0x10000;  // low 16 bits zero: continue
  EXPECT_FALSE(CheckAbort());
  EXPECT_EQ(CallError(), 0);
  host.progressAnswer = PF_Interrupt_CANCEL;
  EXPECT_TRUE(CheckAbort());
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
  EXPECT_EQ(host.Count("progress"), 3);
  EXPECT_EQ(host.out.return_msg[0], 0) << "a stop writes no message";

  host.Store();
  host.progressAnswer = 0x18205;  // low half 0x8205 is negative as int16
  EXPECT_TRUE(CheckAbort());
  EXPECT_EQ(CallError(), static_cast<int16_t>(0x8205));
}

TEST(CallContext, NullProgressMeansContinue) {
  FakeHost host;
  host.in.inter.progress = nullptr;
  host.Store();
  EXPECT_FALSE(CheckAbort());
  StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_FALSE(CheckAbort());
}

TEST(CallContext, TimeAndQualityComeFromTheInData) {
  FakeHost host;
  host.in.current_time = 90;
  host.in.time_step = 3;
  host.in.time_scale = 30;
  host.in.quality = PF_Quality_LO;
  host.Store();
  const HostTime t = CurrentHostTime();
  EXPECT_EQ(t.current_time, 90);
  EXPECT_EQ(t.time_step, 3);
  EXPECT_EQ(t.time_scale, 30u);
  EXPECT_EQ(CurrentHostQuality(), PF_Quality_LO);
  StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(CurrentHostTime().time_step, 0);
}

TEST(Messages, ReportOutOfMemoryWritesOncePerCall) {
  FakeHost host;
  host.Store();
  ReportOutOfMemory();
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");
  EXPECT_EQ(host.out.out_flags, PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(CallError(), 3);
  strcpy(host.out.return_msg, "marker");
  ReportOutOfMemory();
  EXPECT_STREQ(host.out.return_msg, "marker");
  EXPECT_EQ(host.Count("sprintf"), 1);

  host.Store();  // a new call reports again
  ReportOutOfMemory();
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");
}

TEST(Messages, OutOfMemoryAfterAnotherErrorShowsTheMessageButKeepsTheFirstError) {
  FakeHost host;
  host.Store();
  SetCallError(PF_Interrupt_CANCEL);
  ReportOutOfMemory();
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");
  EXPECT_EQ(CallError(), PF_Interrupt_CANCEL);
}

TEST(Messages, ReportWorksWithoutTheHostsStringCallbacksOrOutData) {
  FakeHost host;
  host.utils.ansi.sprintf = nullptr;
  host.Store();
  ReportMessage(15);
  EXPECT_STREQ(host.out.return_msg, "Sorry, Tarvo Effects only supports editing one effect at a time.");
  EXPECT_TRUE(host.out.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);

  host.in.utils = nullptr;
  host.Store();
  ReportMessage(3);
  EXPECT_STREQ(host.out.return_msg, "Memory Allocation Failure!");

  StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
  ReportMessage(3);
  EXPECT_EQ(CallError(), 3);
}

TEST(Messages, AMessageWithConversionsIsShownVerbatim) {
  FakeHost host;
  host.Store();
  ReportMessage(12);
  EXPECT_STREQ(host.out.return_msg, "Only numbers from %d to %d are accepted!");
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
  EXPECT_EQ(strlen(text), 254u);
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
