#include "call_context.h"

#include <math.h>
#include <string.h>

#include "fixed_point.h"

namespace tarvo {

CallContext g_callContext;

namespace {

// num ÷ den in double as IEEE division gives it, spelt out so that a zero
// denominator never reaches a division (no trap, no sanitizer report).
double Quotient(int32_t num, uint32_t den) {
  if (den != 0) return static_cast<double>(num) / static_cast<double>(den);
  if (num == 0) return NAN;
  return num > 0 ? INFINITY : -INFINITY;
}

int32_t ScaledSize(int32_t size, const PF_RationalScale& scale) {
  return TruncToInt32(static_cast<double>(size) * Quotient(scale.num, scale.den));
}

}  // namespace

void StoreHostCall(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef** params, PF_LayerDef* output,
                   void* extra) {
  CallContext& c = g_callContext;
  c.g_cmd = cmd;
  c.g_inData = inData;
  c.g_outData = outData;
  c.g_params = params;
  c.g_output = output;
  c.g_extra = extra;
  c.g_scaledWidth = inData ? ScaledSize(inData->width, inData->downsample_x) : 0;
  c.g_scaledHeight = inData ? ScaledSize(inData->height, inData->downsample_y) : 0;
  c.g_callError = 0;
}

void SetCallError(int16_t code) {
  if (g_callContext.g_callError == 0) g_callContext.g_callError = code;
}

int16_t CallError() { return g_callContext.g_callError; }

bool CheckAbort() {
  PF_InData* in = g_callContext.g_inData;
  if (!in || !in->inter.progress) return false;
  const int16_t r = static_cast<int16_t>(in->inter.progress(in->effect_ref, 0, 0));
  if (r == 0) return false;
  SetCallError(r);
  return true;
}

void ReportOutOfMemory() {
  if (CallError() != kMsgOutOfMemory) ReportMessage(kMsgOutOfMemory);
}

HostTime CurrentHostTime() {
  const PF_InData* in = g_callContext.g_inData;
  if (!in) return HostTime{0, 0, 0};
  return HostTime{in->current_time, in->time_step, in->time_scale};
}

int32_t CurrentHostQuality() {
  const PF_InData* in = g_callContext.g_inData;
  return in ? in->quality : PF_Quality_LO;
}

PF_ParamDef* HostParam(int32_t index) {
  PF_ParamDef** params = g_callContext.g_params;
  if (!params || index < 0) return nullptr;
  return params[index];
}

PF_UtilCallbacks* HostUtils() {
  PF_InData* in = g_callContext.g_inData;
  return in ? in->utils : nullptr;
}

void HostStrcpy(char* dst, size_t capacity, const char* src) {
  if (!dst || !src) return;
  PF_UtilCallbacks* utils = HostUtils();
  if (utils && utils->ansi.strcpy) {
    utils->ansi.strcpy(dst, src);
    return;
  }
  if (capacity == 0) return;
  size_t n = strlen(src);
  if (n > capacity - 1) n = capacity - 1;
  memcpy(dst, src, n);
  dst[n] = 0;
}

}  // namespace tarvo
