// A minimal host for unit tests of the call context, parameters and worlds:
// real records whose callbacks log what they were asked and can be told to
// fail. Tests put it in the call context with Store() and then call the
// framework directly, without the module.
#pragma once

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "call_context.h"
#include "host_api.h"

namespace tarvo::testing {

class FakeHost {
 public:
  static constexpr int kParams = 17;

  PF_InData in{};
  PF_OutData out{};
  PF_UtilCallbacks utils{};
  std::vector<PF_ParamDef> values = std::vector<PF_ParamDef>(kParams);
  std::vector<PF_ParamDef*> params;
  PF_EffectWorld output{};

  // What the callbacks were asked, in order ("fill", "copy", "checkout", ...).
  std::vector<std::string> log;
  std::vector<PF_ParamDef> added;  // every add_param definition
  PF_Pixel lastFillColour{1, 1, 1, 1};
  bool lastFillHadRect = false;

  // Injected answers.
  int32_t progressAnswer = 0;
  PF_Err fillError = 0, copyError = 0, newWorldError = 0, checkoutError = 0;
  PF_ParamDef checkoutAnswer{};  // what checkout_param hands out
  int liveWorlds = 0;

  FakeHost() {
    current = this;
    for (auto& v : values) params.push_back(&v);
    in.inter.checkout_param = &Checkout;
    in.inter.checkin_param = &Checkin;
    in.inter.add_param = &AddParam;
    in.inter.progress = &Progress;
    utils.fill = &Fill;
    utils.copy = &Copy;
    utils.new_world = &NewWorld;
    utils.dispose_world = &DisposeWorld;
    utils.ansi.sprintf = &Sprintf;
    utils.ansi.strcpy = &Strcpy;
    in.utils = &utils;
    in.effect_ref = reinterpret_cast<PF_ProgPtr>(this);
    in.quality = PF_Quality_HI;
    in.downsample_x = {1, 1};
    in.downsample_y = {1, 1};
  }
  ~FakeHost() {
    if (current == this) current = nullptr;
  }
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // Makes this host's records the current call's.
  void Store(PF_Cmd cmd = PF_Cmd_RENDER) { StoreHostCall(cmd, &in, &out, params.data(), &output, nullptr); }

  int Count(const std::string& what) const {
    int n = 0;
    for (const auto& e : log) n += e == what;
    return n;
  }

  static PF_EffectWorld WorldOver(void* data, int32_t width, int32_t height, int32_t rowbytes) {
    PF_EffectWorld w{};
    w.data = static_cast<PF_Pixel*>(data);
    w.width = width;
    w.height = height;
    w.rowbytes = rowbytes;
    return w;
  }

 private:
  static inline FakeHost* current = nullptr;
  std::vector<std::unique_ptr<PF_Pixel[]>> blocks_;

  static FakeHost& Self(PF_ProgPtr ref) { return *reinterpret_cast<FakeHost*>(ref); }

  static PF_Err Checkout(PF_ProgPtr ref, PF_ParamIndex, int32_t, int32_t, uint32_t, PF_ParamDef* param) {
    FakeHost& h = Self(ref);
    h.log.push_back("checkout");
    if (h.checkoutError) return h.checkoutError;
    *param = h.checkoutAnswer;
    return PF_Err_NONE;
  }
  static PF_Err Checkin(PF_ProgPtr ref, PF_ParamDef*) {
    Self(ref).log.push_back("checkin");
    return PF_Err_NONE;
  }
  static PF_Err AddParam(PF_ProgPtr ref, PF_ParamIndex, PF_ParamDef* def) {
    Self(ref).log.push_back("add_param");
    Self(ref).added.push_back(*def);
    return PF_Err_NONE;
  }
  static PF_Err Progress(PF_ProgPtr ref, int32_t, int32_t) {
    Self(ref).log.push_back("progress");
    return Self(ref).progressAnswer;
  }
  static PF_Err Fill(PF_ProgPtr ref, const PF_Pixel* colour, const PF_Rect* rect, PF_EffectWorld* w) {
    FakeHost& h = Self(ref);
    h.log.push_back("fill");
    h.lastFillColour = colour ? *colour : PF_Pixel{0, 0, 0, 0};
    h.lastFillHadRect = rect != nullptr;
    if (h.fillError) return h.fillError;
    for (int32_t y = 0; y < w->height; ++y) {
      auto* row = reinterpret_cast<PF_Pixel*>(reinterpret_cast<uint8_t*>(w->data) + y * w->rowbytes);
      for (int32_t x = 0; x < w->width; ++x) row[x] = h.lastFillColour;
    }
    return PF_Err_NONE;
  }
  static PF_Err Copy(PF_ProgPtr ref, PF_EffectWorld* src, PF_EffectWorld* dst, PF_Rect*, PF_Rect*) {
    FakeHost& h = Self(ref);
    h.log.push_back("copy");
    if (h.copyError) return h.copyError;
    for (int32_t y = 0; y < src->height && y < dst->height; ++y)
      memcpy(reinterpret_cast<uint8_t*>(dst->data) + y * dst->rowbytes,
             reinterpret_cast<uint8_t*>(src->data) + y * src->rowbytes, static_cast<size_t>(src->width) * 4);
    return PF_Err_NONE;
  }
  static PF_Err NewWorld(PF_ProgPtr ref, int32_t width, int32_t height, PF_NewWorldFlags, PF_EffectWorld* w) {
    FakeHost& h = Self(ref);
    h.log.push_back("new_world");
    if (h.newWorldError) return h.newWorldError;
    h.blocks_.emplace_back(new PF_Pixel[static_cast<size_t>(width) * height + 1]());
    *w = WorldOver(h.blocks_.back().get(), width, height, width * 4);
    ++h.liveWorlds;
    return PF_Err_NONE;
  }
  static PF_Err DisposeWorld(PF_ProgPtr ref, PF_EffectWorld*) {
    Self(ref).log.push_back("dispose_world");
    --Self(ref).liveWorlds;
    return PF_Err_NONE;
  }
  // The ANSI callbacks carry no effect_ref: they reach the current host.
  static int Sprintf(char* dst, const char* format, ...) {
    if (current) current->log.push_back("sprintf");
    va_list ap;
    va_start(ap, format);
    const int n = vsnprintf(dst, 256, format, ap);
    va_end(ap);
    return n;
  }
  static char* Strcpy(char* dst, const char* src) {
    if (current) current->log.push_back("strcpy");
    return strcpy(dst, src);
  }
};

}  // namespace tarvo::testing
