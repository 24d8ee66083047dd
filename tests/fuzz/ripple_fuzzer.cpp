// Fuzz target: drives the built module's exported "main" through the host
// library with any sequence of host commands, parameter values, frame
// layouts, time and downsample fields, failing callbacks, stops and failed
// allocations, and checks after every call what must always hold.
//
// Input format (read front to back; bytes past the end read as 0):
//   byte 0        bit 0: start with global set-up and parameter set-up
//   then up to kMaxCommands commands, each an opcode byte (taken modulo
//   kOpCount) followed by its operands, little-endian:
//     0 call         i32 cmd                 any command, records as they are
//     1 global set-up   2 global set-down   3 about   4 parameter set-up
//     5 defaults     every parameter back at its declared default
//     6 param        u8 index, i32 a, i32 b  value a (points: x a, y b)
//     7 frame size   i32 w, i32 h            PF_InData size (0: follow the input)
//     8 downsample   i32 nx, u32 dx, i32 ny, u32 dy
//     9 time         i32 current, i32 step, u32 scale, i32 total
//    10 quality      i32
//    11 field        i32
//    12 fault        u8 which, i32 value     0 fill, 1 copy, 2 new_world,
//                                            3 checkout_param errors; 4 fail the
//                                            value-th add_param; 5 stop at the
//                                            value-th progress call from now;
//                                            6 progress's answer; 7 clear all
//    13 fail alloc   u16 n                   the nth allocation from now fails
//    14 render       u16 w, u16 h, u8 pad, u8 seed   (w, h modulo 301;
//                                            rowbytes w × 4 + pad; skipped
//                                            past kPixelBudget pixels)
//    15 out flags    i32                     out_flags on entry
//
// What must hold: main answers 0; no plug-in block and no host world
// outlives a call; the only message is "Memory Allocation Failure!", and
// only when an allocation failed; a render never touches its input, puts
// nothing but the input's own padding into the output's row padding,
// writes nothing past the output's last row, and
// after a failed fill leaves the output alone; a render that reported a
// failed allocation, or met a stop, leaves transparent black. A failure it
// does not report either wrapped no image (transparent black) or denied the
// optional tables for very large area-sampled boxes: then the picture is
// the one a render without the failure gives.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>

#include "guarded_image.h"
#include "test_host.h"
#include "test_threads.h"

namespace {

using tarvo::host::AllTransparentBlack;
using tarvo::host::Guarded;
using tarvo::host::Host;
using tarvo::host::Image;
using tarvo::host::kGuard;
using tarvo::host::Module;
using tarvo::host::ModuleAllocStats;
using tarvo::host::RequestTestThreads;
using tarvo::host::TestHost;

constexpr int kMaxCommands = 30;
constexpr int kOpCount = 16;
constexpr int32_t kMaxSide = 300;
// The pixels rendered per input are capped (a render past the cap is
// skipped) so that no input nears the per-input timeout under the
// sanitizers: four of the largest frames. Boxes as large as the frame are
// read from summed-area tables, so even the widest ripples cost about a
// constant per pixel.
constexpr int64_t kPixelBudget = 4 * kMaxSide * kMaxSide;

Module* g_module = nullptr;

[[noreturn]] void Fail(const char* what, int command, long long a = 0, long long b = 0) {
  fprintf(stderr, "ripple_fuzzer: %s (command %d; %lld %lld)\n", what, command, a, b);
  abort();
}

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  bool AtEnd() const { return p_ >= end_; }
  uint8_t U8() { return p_ < end_ ? *p_++ : 0; }
  uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
  uint32_t U32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(U8()) << (8 * i);
    return v;
  }
  int32_t I32() { return static_cast<int32_t>(U32()); }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

// A picture that differs from pixel to pixel, alpha included.
Image Pattern(int32_t w, int32_t h, int32_t rowbytes, uint8_t seed) {
  Image img(w, h, rowbytes);
  uint32_t s = 0x9E3779B9u * (seed + 1u);
  for (auto& b : img.data) {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    b = static_cast<uint8_t>(s);
  }
  return img;
}

// A whole-row copy carries the source row's padding along (it copies the
// row's stride); nothing else may reach the padding or the guard bytes
// after the last row.
bool PaddingIntact(const Image& out, const Image& in) {
  for (int32_t y = 0; y < out.height; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(out.Row(y));
    const uint8_t* src = reinterpret_cast<const uint8_t*>(in.Row(y));
    for (int32_t i = out.width * 4; i < out.rowbytes; ++i)
      if (row[i] != kGuard && row[i] != src[i]) return false;
  }
  return std::all_of(out.data.begin() + int64_t{out.rowbytes} * out.height, out.data.end(),
                     [](uint8_t b) { return b == kGuard; });
}

void SetParam(Host& host, int index, int32_t a, int32_t b) {
  PF_ParamDef& p = host.Param(index);
  switch (p.param_type) {
    case PF_Param_ANGLE: p.u.ad.value = a; break;
    case PF_Param_POPUP: p.u.pd.value = a; break;
    case PF_Param_POINT: host.SetPointPixels(index, a, b); break;
    case PF_Param_SLIDER: p.u.sd.value = a; break;
    default: p.u.fd.value = a; break;
  }
}

void RunOne(const uint8_t* data, size_t size) {
  ModuleAllocStats& stats = *g_module->AllocStats();
  stats.failAt = 0;
  TestHost host(g_module->Entry());
  Reader in(data, size);
  int64_t budget = kPixelBudget;

  // One host call with the invariants every call keeps.
  int command = 0;
  auto call = [&](auto&& doCall) {
    const int64_t failAt = stats.failAt;
    const PF_Err err = doCall();
    const bool allocFailed = failAt > 0 && stats.failAt == 0;
    if (err != PF_Err_NONE) Fail("main answered an error", command, err);
    if (stats.liveBlocks != 0 || stats.liveBytes != 0)
      Fail("plug-in blocks outlive the call", command, stats.liveBlocks);
    if (host.LiveWorlds() != 0) Fail("host worlds outlive the call", command, host.LiveWorlds());
    const std::string message = host.ErrorMessage();
    if (!message.empty() && (message != "Memory Allocation Failure!" || !allocFailed))
      Fail(("unexpected message: " + message).c_str(), command, failAt);
    return allocFailed;
  };

  if (in.U8() & 1) {
    call([&] { return host.GlobalSetup(); });
    call([&] { return host.ParamsSetup(); });
  }
  for (; command < kMaxCommands && !in.AtEnd(); ++command) {
    switch (in.U8() % kOpCount) {
      case 0: {
        const PF_Cmd cmd = in.I32();
        call([&] { return host.Call(cmd); });
        break;
      }
      case 1: call([&] { return host.GlobalSetup(); }); break;
      case 2: call([&] { return host.GlobalSetdown(); }); break;
      case 3: call([&] { return host.About(); }); break;
      case 4: call([&] { return host.ParamsSetup(); }); break;
      case 5: host.SetParamsToDefaults(); break;
      case 6: {
        const int index = in.U8() % 20;
        const int32_t a = in.I32(), b = in.I32();
        SetParam(host, index, a, b);
        break;
      }
      case 7: {
        const int32_t w = in.I32(), h = in.I32();
        host.SetFrameSize(w, h);
        break;
      }
      case 8: {
        const int32_t nx = in.I32();
        const uint32_t dx = in.U32();
        const int32_t ny = in.I32();
        const uint32_t dy = in.U32();
        host.SetDownsample(nx, dx, ny, dy);
        break;
      }
      case 9: {
        const int32_t current = in.I32(), step = in.I32();
        const uint32_t scale = in.U32();
        host.SetTime(current, step, scale);
        host.InData().total_time = in.I32();
        break;
      }
      case 10: host.SetQuality(in.I32()); break;
      case 11: host.InData().field = in.I32(); break;
      case 12: {
        const uint8_t which = in.U8() % 8;
        const int32_t v = in.I32();
        tarvo::host::FaultPlan& f = host.Faults();
        switch (which) {
          case 0: f.fillError = v; break;
          case 1: f.copyError = v; break;
          case 2: f.newWorldError = v; break;
          case 3: f.checkoutError = v; break;
          case 4: f.addParamFailAt = host.Counts().addParam + (v & 0xFF); break;
          case 5: f.stopAtProgress = host.Counts().progress + (v & 0xFFFF); break;
          case 6: f.progressError = v; break;
          default: f = tarvo::host::FaultPlan{}; break;
        }
        break;
      }
      case 13: stats.failAt = in.U16(); break;
      case 14: {
        const int32_t w = in.U16() % (kMaxSide + 1), h = in.U16() % (kMaxSide + 1);
        const int32_t rowbytes = w * 4 + in.U8();
        const uint8_t seed = in.U8();
        if (static_cast<int64_t>(w) * h > budget) break;
        budget -= static_cast<int64_t>(w) * h;
        const Image input = Pattern(w, h, rowbytes, seed);
        Image output = Guarded(w, h, rowbytes);
        const auto inputBefore = input.data;
        const tarvo::host::FaultPlan& f = host.Faults();
        const int progressBefore = host.Counts().progress;
        const bool allocFailed = call([&] { return host.Render(input, output); });
        const bool reported = !host.ErrorMessage().empty();
        const bool stopped = static_cast<int16_t>(f.progressError) != 0 && f.stopAtProgress > progressBefore &&
                             f.stopAtProgress <= host.Counts().progress;
        const bool stopPending = static_cast<int16_t>(f.progressError) != 0 &&
                                 f.stopAtProgress > host.Counts().progress;
        if (input.data != inputBefore) Fail("render wrote into its input", command, w, h);
        if (!PaddingIntact(output, input)) Fail("render wrote into the output's row padding", command, w, rowbytes);
        if (f.fillError != 0) {
          for (uint8_t b : output.data)
            if (b != kGuard) Fail("render went on after a failed fill", command, w, h);
        } else if (((allocFailed && reported) || stopped) && !AllTransparentBlack(output)) {
          Fail(stopped ? "stop left pixels" : "failed allocation left pixels", command, w, h);
        } else if (allocFailed && !stopped && !stopPending && !AllTransparentBlack(output) &&
                   static_cast<int64_t>(w) * h <= budget) {
          budget -= static_cast<int64_t>(w) * h;
          Image again = Guarded(w, h, rowbytes);
          call([&] { return host.Render(input, again); });
          if (again.data != output.data) Fail("an unreported failed allocation changed the picture", command, w, h);
        }
        break;
      }
      default: {
        // A host would not ask for an error message on entry: keep the
        // message check meaningful.
        host.SetOutFlagsOnEntry(in.I32() & ~PF_OutFlag_DISPLAY_ERROR_MESSAGE);
        break;
      }
    }
  }
  stats.failAt = 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::string error;
  std::unique_ptr<Module> m = Module::LoadBuilt(&error);
  if (!m) {
    fprintf(stderr, "ripple_fuzzer: %s\n", error.c_str());
    abort();
  }
  if (!m->AllocStats()) {
    fprintf(stderr, "ripple_fuzzer: the module was built without its test interface\n");
    abort();
  }
  RequestTestThreads(*m);
  g_module = m.release();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RunOne(data, size);
  return 0;
}
