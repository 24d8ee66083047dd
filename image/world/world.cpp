#include "world.h"

#include <string.h>

#include "call_context.h"
#include "fixed_point.h"

namespace tarvo {

namespace {

constexpr int32_t kMaxWidth = 4095;    // a row is at most 16,383 bytes
constexpr int32_t kMaxHeight = 32767;  // heights are 16-bit
constexpr int32_t kMaxRowBytes = 16383;

bool InsidePixelModel(int32_t width, int32_t height, int32_t rowbytes) {
  return width >= 0 && width <= kMaxWidth && height >= 0 && height <= kMaxHeight && rowbytes >= 1 &&
         rowbytes <= kMaxRowBytes && rowbytes >= width * 4;
}

PF_ProgPtr EffectRef() {
  const PF_InData* in = g_callContext.g_inData;
  return in ? in->effect_ref : nullptr;
}

}  // namespace

World::World(const PF_EffectWorld& source, int32_t mode)
    : attached(0),
      checked_out(0),
      filled(0),
      fill_color{255, 0, 0, 0},
      image(nullptr),
      copy_mode(mode == kCopy ? 1 : 0),
      owns_host_copy(0) {
  memset(&layer_param, 0, sizeof layer_param);
  memset(&host_copy, 0, sizeof host_copy);
  Attach(source);
}

World::~World() {
  const PF_InData* in = g_callContext.g_inData;
  PF_UtilCallbacks* utils = HostUtils();
  if (checked_out) {
    if (in && in->inter.checkin_param) in->inter.checkin_param(in->effect_ref, &layer_param);
    checked_out = 0;
  }
  if (owns_host_copy) {
    if (utils && utils->dispose_world) utils->dispose_world(EffectRef(), &host_copy);
    owns_host_copy = 0;
  }
  // image releases its own record as a member, after this body.
}

bool World::WrapHostWorld(const PF_EffectWorld& w) {
  if (!InsidePixelModel(w.width, w.height, w.rowbytes)) {
    image.Release();
    return false;
  }
  return image.Wrap(static_cast<int16_t>(w.width), static_cast<int16_t>(w.height), w.rowbytes, w.data, AllRows);
}

PF_Err World::Attach(const PF_EffectWorld& source) {
  if (!source.data) return PF_Err_BAD_CALLBACK_PARAM;

  PF_Err result = PF_Err_NONE;
  if (!copy_mode) {
    if (!WrapHostWorld(source)) result = PF_Err_INTERNAL_STRUCT_DAMAGED;
  } else {
    PF_UtilCallbacks* utils = HostUtils();
    if (owns_host_copy) {  // attaching again: give the previous copy back first
      if (utils && utils->dispose_world) utils->dispose_world(EffectRef(), &host_copy);
      owns_host_copy = 0;
      image.Release();
    }
    if (!utils || !utils->new_world || !utils->copy ||
        utils->new_world(EffectRef(), static_cast<int16_t>(source.width), static_cast<int16_t>(source.height),
                         PF_NewWorldFlag_NONE, &host_copy) != PF_Err_NONE) {
      result = PF_Err_INTERNAL_STRUCT_DAMAGED;
    } else {
      owns_host_copy = 1;
      // The host only reads the source.
      result = utils->copy(EffectRef(), const_cast<PF_EffectWorld*>(&source), &host_copy, nullptr, nullptr);
      if (result == PF_Err_NONE && !WrapHostWorld(host_copy)) result = PF_Err_INTERNAL_STRUCT_DAMAGED;
    }
  }
  if (result == PF_Err_NONE) attached = 1;
  return result;
}

// A layer checked out without pixels is given straight back, so every
// check-out of this World is matched by a check-in.
PF_Err World::MakeTFXWorld(int16_t layerIndex, int16_t colourIndex) {
  if (checked_out) return ReportWorldError("MakeTFXWorld: Doubly Checked out layer", PF_Err_BAD_CALLBACK_PARAM);

  const PF_InData* in = g_callContext.g_inData;
  if (!in || !in->inter.checkout_param) return PF_Err_INVALID_CALLBACK;
  const PF_Err err = in->inter.checkout_param(in->effect_ref, layerIndex, in->current_time, in->time_step,
                                              in->time_scale, &layer_param);
  if (err != PF_Err_NONE) return err;

  PF_Err result = PF_Err_NONE;
  if (layer_param.u.ld.data) {
    checked_out = 1;
    result = Attach(layer_param.u.ld);
  } else {
    if (in->inter.checkin_param) in->inter.checkin_param(in->effect_ref, &layer_param);
    const int32_t w = g_callContext.g_scaledWidth;
    const int32_t h = g_callContext.g_scaledHeight;
    const ShortRect r{0, 0, TruncToInt16(h), TruncToInt16(w)};
    const bool fits = w >= 1 && w <= kMaxWidth && h >= 1 && h <= kMaxHeight;
    if (!fits || !image.Resize(r)) {
      result = PF_Err_INTERNAL_STRUCT_DAMAGED;
    } else {
      filled = 1;
      const PF_ParamDef* colour = colourIndex > 0 ? HostParam(colourIndex) : nullptr;
      fill_color = colour ? colour->u.cd.value : PF_Pixel{255, 0, 0, 0};
      fill_color.alpha = 255;
      image.FillRect(r, PixelWord(fill_color));
    }
  }
  if (result == PF_Err_NONE) attached = 1;
  return result;
}

PF_Err World::ReportWorldError(const char* message, PF_Err code) {
  if (PF_OutData* out = g_callContext.g_outData) {
    HostStrcpy(out->return_msg, sizeof out->return_msg, message);
    out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  }
  return code;
}

}  // namespace tarvo
