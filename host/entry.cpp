// Placeholder entry point; replaced by the real dispatch.
#include "host_api.h"
extern "C" __attribute__((visibility("default"))) PF_Err PluginMain(PF_Cmd, PF_InData*, PF_OutData*, PF_ParamDef**, PF_LayerDef*, void*) __asm__("main");
extern "C" PF_Err PluginMain(PF_Cmd, PF_InData*, PF_OutData*, PF_ParamDef**, PF_LayerDef*, void*) { return 0; }
