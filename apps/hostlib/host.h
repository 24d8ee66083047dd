// The in-process host: drives the plug-in's exported entry point exactly as a
// video host does. Used by the tests, the command-line host, the benchmarks,
// the frei0r filter and the GEGL operation.
//
// The host owns real PF_InData / PF_OutData records, a parameter array, the
// input and output worlds over its own buffers, and every callback the
// plug-in calls.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "host_api.h"
#include "module.h"
#include "property_list.h"

namespace tarvo::host {

// An 8-bit ARGB image in host memory; rowbytes may exceed width × 4.
struct Image {
  int32_t width = 0, height = 0, rowbytes = 0;
  std::vector<uint8_t> data;

  Image() = default;
  Image(int32_t w, int32_t h, int32_t rowbytes = 0);  // rowbytes 0: width × 4; zero-filled
  // Sizes non-negative, rows at least width × 4 bytes, data large enough.
  bool Valid() const;
  PF_Pixel* Row(int32_t y) { return reinterpret_cast<PF_Pixel*>(data.data() + static_cast<size_t>(y) * rowbytes); }
  const PF_Pixel* Row(int32_t y) const {
    return reinterpret_cast<const PF_Pixel*>(data.data() + static_cast<size_t>(y) * rowbytes);
  }
  PF_Pixel& At(int32_t y, int32_t x) { return Row(y)[x]; }
  const PF_Pixel& At(int32_t y, int32_t x) const { return Row(y)[x]; }
};

// One parameter definition as the plug-in declared it through add_param.
struct DeclaredParam {
  PF_ParamDef def;  // popups: namesptr points at the host's own copy
  // Popups: the '|'-separated names, copied at add_param. A closing '|'
  // ends the list without adding a name; values past the names are valid
  // but unnamed.
  std::vector<std::string> choices;
};

// The host callbacks the plug-in can call (the ANSI ones that can fail
// none: sprintf and strcpy).
enum class HostCallback {
  kAddParam,
  kProgress,
  kFill,
  kCopy,
  kNewWorld,
  kDisposeWorld,
  kCheckout,
  kCheckin,
  kSprintf,
  kStrcpy
};

class Host {
 public:
  explicit Host(PF_EntryFunc entry);
  virtual ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Calls the entry point with cmd and the current records. Before the call
  // out_data is reset (out_flags as given by SetOutFlagsOnEntry, return_msg
  // empty), unless keepOutData.
  PF_Err Call(PF_Cmd cmd, bool keepOutData = false);

  PF_Err About() { return Call(PF_Cmd_ABOUT); }
  PF_Err GlobalSetup() { return Call(PF_Cmd_GLOBAL_SETUP); }
  PF_Err GlobalSetdown() { return Call(PF_Cmd_GLOBAL_SETDOWN); }
  // Records every definition and, from them, sets up the parameter array
  // with each parameter at its declared default (as a host does).
  PF_Err ParamsSetup();
  // Puts every parameter back at its declared default. A point's default is
  // its declared percentage of the layer in pixels (layer = frame size after
  // downsampling, or the last input's size). A point left at that default
  // follows the layer when a later render changes its size.
  void SetParamsToDefaults();
  // Sets the point at index to (x, y) layer pixels (16.16); it then stays
  // there whatever the layer size.
  void SetPointPixels(int index, PF_Fixed x, PF_Fixed y);
  // Renders input into output (sizes must match, both Valid; otherwise
  // PF_Err_BAD_CALLBACK_PARAM without calling the plug-in). The frame size
  // in PF_InData follows the input unless SetFrameSize was called.
  PF_Err Render(const Image& input, Image& output);

  // Parameter values, index 1..16 as declared (0 is the input layer). An
  // index outside the array gives a zeroed scratch definition.
  PF_ParamDef& Param(int index);
  // Length of the parameter array handed to the plug-in (at least 17).
  int NumParams() const;
  const std::vector<DeclaredParam>& Declared() const { return declared_; }

  PF_InData& InData() { return in_; }
  PF_OutData& OutData() { return out_; }
  void SetOutFlagsOnEntry(PF_OutFlags flags) { outFlagsOnEntry_ = flags; }
  void SetQuality(PF_Quality q) { in_.quality = q; }
  void SetTime(int32_t current, int32_t step, uint32_t scale);
  void SetDownsample(int32_t nx, uint32_t dx, int32_t ny, uint32_t dy);
  // Frame size reported in PF_InData (width/height); 0 follows the input.
  void SetFrameSize(int32_t width, int32_t height);

  // The message the plug-in left for the user, or "" when it set no
  // display-error flag.
  std::string ErrorMessage() const;
  // return_msg as left by the last call, whatever the flags.
  std::string ReturnMessage() const;
  // Worlds made by new_world and not yet disposed of.
  int LiveWorlds() const;

  // percent (16.16) of size pixels, in 16.16 pixels, truncated as a host does.
  static PF_Fixed PointDefaultPixels(PF_Fixed percent, int32_t size);

 protected:
  // Called first in every callback the plug-in makes; a nonzero answer is
  // what the callback returns, without doing its work (sprintf and strcpy
  // cannot fail and ignore it). The test host injects faults here.
  virtual PF_Err BeforeCallback(HostCallback) { return PF_Err_NONE; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  PF_EntryFunc entry_;
  PF_InData in_{};
  PF_OutData out_{};
  PF_UtilCallbacks utils_{};
  PF_OutFlags outFlagsOnEntry_ = 0;
  std::vector<DeclaredParam> declared_;
  int32_t frameWidth_ = 0, frameHeight_ = 0;
  int32_t lastInputWidth_ = 0, lastInputHeight_ = 0;

  void PointFrameSize(int32_t* w, int32_t* h) const;
};

}  // namespace tarvo::host
