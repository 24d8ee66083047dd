#include "effect_param.h"

#include <string.h>

#include "call_context.h"
#include "fixed_point.h"
#include "plugin_alloc.h"

namespace tarvo {

namespace {

void StoreFloat(ParamSettings* settings, int16_t row, double value) {
  if (!settings || row < 0 || row >= ParamRangeTable::kRows) return;
  settings->values[row].SetFloat(static_cast<float>(value), ParamValue::kFloatTag);
}

}  // namespace

// --- EffectParam -------------------------------------------------------------

EffectParam::EffectParam(int32_t index, const char* name, int16_t paramId, int16_t paramId2)
    : index(index), name(name), paramId(paramId), paramId2(paramId2) {
  memset(&def, 0, sizeof def);
}

EffectParam::~EffectParam() = default;

void* EffectParam::operator new(size_t bytes) noexcept { return PluginAlloc(bytes); }
void EffectParam::operator delete(void* block) noexcept { PluginFree(block); }

void EffectParam::GetIntRange(int32_t* min, int32_t* max, int16_t row) {
  const ParamRangeRecord& r = g_paramRanges.Row(row);
  if (min) *min = TruncToInt32(r.min);
  if (max) *max = TruncToInt32(r.max);
}

void EffectParam::GetDefault(ParamValue* out, int16_t row) {
  if (out) *out = ParamValue::DefaultOfRow(row);
}

int32_t EffectParam::RawValue() { return 0; }
double EffectParam::Value() { return 0.0; }
bool EffectParam::IsLinked() { return false; }
int32_t EffectParam::IntValue() { return 0; }
void EffectParam::Refresh() {}

PF_ParamDef* EffectParam::HostDef() const { return HostParam(index); }

void EffectParam::CopyNameToDef() { HostStrcpy(def.name, sizeof def.name, name ? name : ""); }

PF_Err EffectParam::SendToHost() {
  PF_InData* in = g_callContext.g_inData;
  if (!in || !in->inter.add_param) return PF_Err_INVALID_CALLBACK;
  return in->inter.add_param(in->effect_ref, -1, &def);
}

// --- LayerParam ----------------------------------------------------------------

LayerParam::LayerParam(int32_t index, const char* name) : EffectParam(index, name, kRowNone, kRowNone) {
  def.param_type = PF_Param_LAYER;
}

PF_Err LayerParam::AddToHost() { return PF_Err_NONE; }
void LayerParam::StoreValue(ParamSettings*) {}

// --- FixedSliderParam ----------------------------------------------------------

FixedSliderParam::FixedSliderParam(int32_t index, const char* name, int16_t paramId, int32_t displayMode)
    : EffectParam(index, name, paramId, kRowNone),
      divisor(1),
      divideRaw(0),
      displayMode(displayMode),
      precision(2),
      displayFlags(0) {
  def.param_type = PF_Param_FIX_SLIDER;
}

PF_Err FixedSliderParam::AddToHost() {
  ParamValue v;
  GetDefault(&v, paramId);
  CopyNameToDef();
  PF_FixedSliderDef& fd = def.u.fd;
  fd.value_str[0] = 0;
  fd.value_desc[0] = 0;

  float scale = 1.0f;
  if (displayMode == kShowMultiplied) scale = static_cast<float>(divisor);
  float lo, hi;
  g_paramRanges.GetRange(paramId, &lo, &hi);
  float dflt = v.AsFloat();
  if (displayMode != kShowStored) {
    dflt = dflt * scale;
    if (divideRaw) {
      lo = lo * scale;
      hi = hi * scale;
    }
  }
  fd.valid_min = fd.slider_min = FloatToFixed(lo);
  fd.valid_max = fd.slider_max = FloatToFixed(hi);
  fd.dephault = FloatToFixed(dflt);
  fd.value = fd.dephault;
  fd.precision = precision;
  fd.display_flags = displayFlags;
  return SendToHost();
}

int32_t FixedSliderParam::RawValue() {
  const PF_ParamDef* host = HostDef();
  if (!host) return 0;
  int64_t r = host->u.fd.value;
  if (divideRaw && divisor != 0) r /= divisor;  // truncates toward zero
  return static_cast<int32_t>(r);
}

double FixedSliderParam::Value() { return RawValue() / 65536.0; }

void FixedSliderParam::StoreValue(ParamSettings* settings) { StoreFloat(settings, paramId, Value()); }

void FixedSliderParam::SetRawValue(const int32_t* raw) {
  PF_ParamDef* host = HostDef();
  if (!host || !raw) return;
  host->u.fd.value = *raw;
  host->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
}

PercentSliderParam::PercentSliderParam(int32_t index, const char* name, int16_t paramId)
    : FixedSliderParam(index, name, paramId, kShowMultiplied) {
  divisor = 100;
  divideRaw = 1;
}

// --- AngleParam ----------------------------------------------------------------

AngleParam::AngleParam(int32_t index, const char* name, int16_t paramId, float angleOffset)
    : EffectParam(index, name, paramId, kRowNone), angleOffset(angleOffset) {
  def.param_type = PF_Param_ANGLE;
}

PF_Err AngleParam::AddToHost() {
  def.ui_flags = 0;
  def.ui_width = 0;
  def.ui_height = 0;
  def.param_type = PF_Param_ANGLE;
  CopyNameToDef();
  ParamValue v;
  GetDefault(&v, paramId);
  const float shown = v.AsFloat() + angleOffset;  // single precision
  def.u.ad.dephault = FloatToFixed(shown);
  def.u.ad.value = def.u.ad.dephault;
  return SendToHost();
}

double AngleParam::Value() {
  const PF_ParamDef* host = HostDef();
  const double degrees = host ? host->u.ad.value / 65536.0 : 0.0;
  return degrees - angleOffset;
}

void AngleParam::StoreValue(ParamSettings* settings) { StoreFloat(settings, paramId, Value()); }

// --- PopupParam ----------------------------------------------------------------

PopupParam::PopupParam(int32_t index, const char* name, const char* choices, int32_t defaultChoice, int16_t numChoices)
    : EffectParam(index, name, kRowNone, kRowNone),
      choices(choices),
      defaultChoice(defaultChoice),
      numChoices(numChoices) {
  def.param_type = PF_Param_POPUP;
}

PF_Err PopupParam::AddToHost() {
  CopyNameToDef();
  PF_PopupDef& pd = def.u.pd;
  pd.value = defaultChoice;
  pd.dephault = static_cast<int16_t>(defaultChoice);
  pd.num_choices = numChoices;
  pd.u.namesptr = choices;
  return SendToHost();
}

int32_t PopupParam::IntValue() {
  const PF_ParamDef* host = HostDef();
  return host ? host->u.pd.value : 0;
}

// Wraps like the host's 32-bit arithmetic for a value no host sends (INT32_MIN).
int32_t PopupParam::PopupIndex() { return static_cast<int32_t>(static_cast<uint32_t>(IntValue()) - 1u); }

void PopupParam::StoreValue(ParamSettings*) {}

// --- PointParam ----------------------------------------------------------------

PointParam::PointParam(int32_t index, const char* name, int16_t rowX, int16_t rowY, int32_t unbounded)
    : EffectParam(index, name, rowX, rowY), unbounded(unbounded) {
  def.param_type = PF_Param_POINT;
}

PF_Err PointParam::AddToHost() {
  const ParamValue vx = ParamValue::FromRow(paramId);  // the row's neutral value
  CopyNameToDef();
  PF_PointDef& td = def.u.td;
  // Declared in percent of the layer.
  td.x_dephault = FloatToFixed(vx.AsFloat() * 100.0f);
  td.x_value = td.x_dephault;
  ParamValue vy;
  GetDefault(&vy, paramId2);
  td.y_dephault = FloatToFixed(vy.AsFloat() * 100.0f);
  td.y_value = td.y_dephault;
  td.restrict_bounds = unbounded == 0 ? 1 : 0;
  return SendToHost();
}

void PointParam::GetRawPoint(PF_Fixed* x, PF_Fixed* y) {
  const PF_ParamDef* host = HostDef();
  if (x) *x = host ? host->u.td.x_value : 0;
  if (y) *y = host ? host->u.td.y_value : 0;
}

void PointParam::SetRawPoint(PF_Fixed x, PF_Fixed y) {
  PF_ParamDef* host = HostDef();
  if (!host) return;
  host->u.td.x_value = x;
  host->u.td.y_value = y;
  host->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
}

// A zero frame size gives an infinite or NaN fraction, never a trap.
double PointParam::X() {
  PF_Fixed x, y;
  GetRawPoint(&x, &y);
  return (x / 65536.0) / g_callContext.g_scaledWidth;
}

double PointParam::Y() {
  PF_Fixed x, y;
  GetRawPoint(&x, &y);
  return (y / 65536.0) / g_callContext.g_scaledHeight;
}

void PointParam::StoreValue(ParamSettings* settings) {
  StoreFloat(settings, paramId, X());
  StoreFloat(settings, paramId2, Y());
}

}  // namespace tarvo
