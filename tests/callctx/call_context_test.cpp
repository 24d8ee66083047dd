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

// The downsampled size is the size times the quotient, truncated; a zero
// denominator or no in data must not trap.
TEST(CallContext, DownsampledSize) {
  const struct {
    int32_t width, num;
    uint32_t den;
    int32_t scaled;
  } cases[] = {{720, 1, 2, 360},
               {720, 1, 3, 240},
               {100, 2, 3, 66},
               {49, 1, 49, 0},             // the quotient first: 49 × (1 ÷ 49) is just below 1
               {720, 1, 0xFFFFFFFFu, 0}};  // the denominator is unsigned
  for (const auto& c : cases) EXPECT_EQ(ScaledWidth(c.width, c.num, c.den), c.scaled) << c.width << "/" << c.den;
  PF_InData in{};
  in.height = 486;
  in.downsample_x = {1, 1};  // each axis its own scale
  in.downsample_y = {1, 2};
  StoreHostCall(PF_Cmd_RENDER, &in, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(g_callContext.g_scaledHeight, 243);
  ScaledWidth(720, 1, 0);
  ScaledWidth(-720, 0, 0);
  StoreHostCall(PF_Cmd_ABOUT, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(g_callContext.g_scaledWidth, 0);
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
    host.Faults().stopAtProgress = host.Counts().progress + 1;
    host.Faults().progressError = a.answer;
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
  EXPECT_EQ(host.Counts().sprintf, 2);
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

// Message n is entry 42000 + n; gaps and numbers outside the table are empty.
TEST(Messages, LoadsEntriesByNumber) {
  const struct {
    int16_t group, index, capacity;
    const char* text;
  } cases[] = {{kMessageGroup, 0, 255, "----- All errors start here -----"},
               {kMessageGroup, 3, 255, "Memory Allocation Failure!"},
               {kMessageGroup, 4, 255, "Keyframe already exists at this point."},
               {kMessageGroup, 15, 255, "Sorry, Tarvo Effects only supports editing one effect at a time."},
               {kMessageGroup, 6, 255, ""},
               {kMessageGroup, 16, 255, ""},
               {kMessageGroup, -1, 255, ""},
               {419, 3, 255, ""},
               {kMessageGroup, 3, 11, "Memory All"}};  // the capacity counts the length byte
  for (const auto& c : cases) EXPECT_EQ(Load(c.group, c.index, c.capacity), c.text) << c.group << " " << c.index;
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
