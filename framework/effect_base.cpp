#include "effect_base.h"

#include "call_context.h"
#include "pixel_image.h"
#include "plugin_alloc.h"
#include "world.h"

namespace tarvo {

EffectBase::EffectBase() : params(nullptr), paramCount(0) {}

EffectBase::~EffectBase() {
  if (!params) return;
  for (int16_t i = 0; i < paramCount; ++i) delete params[i];
  PluginFree(params);
}

int16_t EffectBase::QualityLevel() { return CurrentHostQuality() != PF_Quality_LO ? 2 : 1; }

PF_Err EffectBase::Render(PixelImage*, PixelImage*) {
  PF_InData* in = g_callContext.g_inData;
  PF_UtilCallbacks* utils = HostUtils();
  PF_ParamDef* layer = HostParam(0);
  if (in && utils && utils->copy && layer && g_callContext.g_output) {
    utils->copy(in->effect_ref, &layer->u.ld, g_callContext.g_output, nullptr, nullptr);
  }
  return PF_Err_NONE;
}

void EffectBase::Dispatch() {
  switch (g_callContext.g_cmd) {
    case PF_Cmd_ABOUT: DoAbout(); break;
    case PF_Cmd_GLOBAL_SETUP: DoGlobalSetup(); break;
    case PF_Cmd_GLOBAL_SETDOWN: DoGlobalSetdown(); break;
    case PF_Cmd_PARAMS_SETUP: DoParamsSetup(); break;
    case PF_Cmd_RENDER: DoRender(); break;
    default: break;  // not an error: the host sends commands this effect has no use for
  }
}

PF_Err EffectBase::DoAbout() {
  char text[256];
  text[0] = 0;
  const PF_Err err = About(text);
  PF_OutData* out = g_callContext.g_outData;
  if (err == PF_Err_NONE && out) HostSprintf(out->return_msg, sizeof out->return_msg, "%s\r", text);
  return err;
}

PF_Err EffectBase::DoGlobalSetup() {
  PF_OutData* out = g_callContext.g_outData;
  if (!out) return PF_Err_BAD_CALLBACK_PARAM;
  out->my_version = Version();
  out->out_flags |= OutFlags() | PF_OutFlag_KEEP_RESOURCE_OPEN;
  return PF_Err_NONE;
}

PF_Err EffectBase::DoGlobalSetdown() { return PF_Err_NONE; }

// A slot left null by a failed allocation ends the declaration there with an
// out-of-memory report: the host must not receive a list with a gap, which
// would shift every later parameter's index.
PF_Err EffectBase::DoParamsSetup() {
  PF_OutData* out = g_callContext.g_outData;
  PF_Err err = BuildParams();
  if (err == PF_Err_NONE) {
    const int16_t n = NumParams();
    for (int16_t i = 0; i < n && err == PF_Err_NONE; ++i) {
      EffectParam* p = Param(i);
      if (!p) {
        ReportOutOfMemory();
        err = PF_Err_OUT_OF_MEMORY;
        break;
      }
      err = p->AddToHost();
    }
    if (out) out->num_params = n;
  } else if (out) {
    out->num_params = 1;  // the input layer only
  }
  return err;
}

PF_Err EffectBase::DoRender() {
  PF_InData* in = g_callContext.g_inData;
  PF_UtilCallbacks* utils = HostUtils();
  PF_LayerDef* output = g_callContext.g_output;
  if (!in || !utils || !utils->fill) return PF_Err_INVALID_CALLBACK;
  if (!output) return PF_Err_BAD_CALLBACK_PARAM;

  const PF_Pixel transparentBlack{0, 0, 0, 0};
  const PF_Err fillErr = utils->fill(in->effect_ref, &transparentBlack, nullptr, output);
  if (fillErr != PF_Err_NONE) return fillErr;

  // Destroyed in reverse order: the input World first, then the output World.
  World outWorld(*output, World::kWrap);
  const PF_ParamDef* layer = HostParam(0);
  const PF_EffectWorld noLayer{};
  World inWorld(layer ? layer->u.ld : noLayer, World::kWrap);

  // An effect's Render reads every parameter; it runs only with all of them.
  BuildParams();
  if (!ParamsComplete()) {
    ReportOutOfMemory();
    return PF_Err_OUT_OF_MEMORY;
  }
  return Render(&inWorld.Image(), &outWorld.Image());
}

PF_Err EffectBase::BuildParams() {
  if (!params) {
    const int16_t n = NumParams();
    params = n > 0 ? PluginAllocArray<EffectParam*>(n) : nullptr;
    if (params) {
      paramCount = n;
      for (int16_t i = 0; i < n; ++i) params[i] = nullptr;
      SetupParams();
    } else {
      ReportOutOfMemory();
    }
  }
  return params ? PF_Err_NONE : PF_Err_INVALID_CALLBACK;
}

EffectParam* EffectBase::Param(int16_t i) {
  if (!params) BuildParams();
  return (params && i >= 0 && i < paramCount) ? params[i] : nullptr;
}

int32_t EffectBase::SetParam(int16_t i, EffectParam* p) {
  if (!params || i < 0 || i >= paramCount) return 1;
  delete params[i];  // null unless an effect stores twice
  params[i] = p;
  return 0;
}

bool EffectBase::ParamsComplete() const {
  if (!params) return false;
  for (int16_t i = 0; i < paramCount; ++i) {
    if (!params[i]) return false;
  }
  return true;
}

}  // namespace tarvo
