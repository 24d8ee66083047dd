// Runs test code inside a call of the project's host library (host::Host):
// the entry point stores the host's records in the call context exactly as
// the module's main does, then runs the test's script. Framework code called
// from the script sees real host records and callbacks, counted and
// fault-injectable through the Host.
#pragma once

#include <functional>

#include "call_context.h"
#include "test_host.h"

namespace tarvo::testing {

struct HostCallArgs {
  PF_Cmd cmd;
  PF_InData* in;
  PF_OutData* out;
  PF_ParamDef** params;
  PF_LayerDef* output;
};
using HostScript = std::function<PF_Err(const HostCallArgs&)>;

inline HostScript& CurrentScript() {
  static HostScript script;
  return script;
}
inline int& EntryCalls() {
  static int calls = 0;
  return calls;
}

inline PF_Err ScriptedMain(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef* output,
                           void* extra) {
  ++EntryCalls();
  StoreHostCall(cmd, in, out, params, output, extra);
  return CurrentScript() ? CurrentScript()(HostCallArgs{cmd, in, out, params, output}) : PF_Err_NONE;
}

// A host whose entry point runs the script set last (nothing by default).
struct ScriptedHost : host::TestHost {
  ScriptedHost() : host::TestHost(&ScriptedMain) {
    CurrentScript() = nullptr;
    EntryCalls() = 0;
  }
  ~ScriptedHost() {
    CurrentScript() = nullptr;
    StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);  // no records left dangling
  }
  // One host call of cmd whose body is script.
  PF_Err During(HostScript script, PF_Cmd cmd = PF_Cmd_RENDER, bool keepOutData = false) {
    CurrentScript() = std::move(script);
    return Call(cmd, keepOutData);
  }
};

inline PF_EffectWorld WorldOver(void* pixels, int32_t width, int32_t height, int32_t rowbytes) {
  PF_EffectWorld w{};
  w.data = static_cast<PF_Pixel*>(pixels);
  w.width = width;
  w.height = height;
  w.rowbytes = rowbytes;
  return w;
}
inline PF_EffectWorld WorldOver(host::Image& img) {
  return WorldOver(img.data.data(), img.width, img.height, img.rowbytes);
}

}  // namespace tarvo::testing
