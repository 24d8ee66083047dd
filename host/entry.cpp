// The module's entry point: every host command passes through here.
//
// The host calls "main" once per command. It records the call, runs the
// command through a RippleEffect built for this call only, and always
// answers PF_Err_NONE: failures reach the user through return_msg.
#include "call_context.h"
#include "host_api.h"
#include "plugin_alloc.h"
#include "render_bands.h"
#include "ripple_effect.h"
#include "thread_request.h"

namespace tarvo {

// Builds the effect for this call, dispatches the recorded command and
// destroys the effect (a local object: destroyed on every way out).
int32_t RunEffectCommand() {
  RippleEffect effect;
  effect.Dispatch();
  return 0;
}

}  // namespace tarvo

#if defined(_WIN32)
// Exported as "main" by the module-definition file.
extern "C" PF_Err __cdecl PluginMain(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[],
                                     PF_LayerDef* output, void* extra);
#define TARVO_EXPORT
#elif defined(__EMSCRIPTEN__)
// Linked into the studio page's program, whose own start is "main"; the
// page's host calls the entry point through its address.
#define TARVO_EXPORT
extern "C" PF_Err PluginMain(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[],
                             PF_LayerDef* output, void* extra);
#else
// The symbol is "main", but to the compiler this is an ordinary function,
// not a program's main.
#define TARVO_EXPORT __attribute__((visibility("default")))
extern "C" TARVO_EXPORT PF_Err PluginMain(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[],
                                          PF_LayerDef* output, void* extra) __asm__("main");
#endif

extern "C" PF_Err PF_CDECL PluginMain(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[],
                                      PF_LayerDef* output, void* extra) {
  tarvo::StoreHostCall(cmd, inData, outData, params, output, extra);
  tarvo::RunEffectCommand();
  // The render threads a host asked for live until the effect's global
  // set-down (or until the module is unloaded).
  if (cmd == PF_Cmd_GLOBAL_SETDOWN) tarvo::StopRenderThreads();
  return PF_Err_NONE;
}

#if !defined(_WIN32)
// Our own hosts' request for render threads (thread_request.h).
extern "C" TARVO_EXPORT int32_t TarvoRenderThreads(int32_t requested) { return tarvo::SetRenderThreads(requested); }
#endif

#if defined(TARVO_TEST_INTERFACE)
// Lets a test host watch and fail the plug-in's allocations.
extern "C" TARVO_EXPORT tarvo::AllocStats* TarvoAllocStats(void) { return tarvo::PluginAllocStats(); }
#endif
