// World: one host image wrapped for the length of one host call.
//
// A World either wraps the host's pixels (mode kWrap, no copy), copies them
// into a world the host allocates (mode kCopy), or is made from a layer
// parameter it checks out (MakeTFXWorld). Whatever it took from the host it
// gives back when destroyed: the checked-out layer (checkin_param), then the
// host copy (dispose_world), then its own image record. Host pixels are never
// freed by a World.
//
// Host images outside the pixel model are refused rather than wrapped, so no
// pixel code can read or write past a host buffer: a width outside 0..4095, a
// height outside 0..32767, a rowbytes outside 1..16383, or a rowbytes smaller
// than width × 4. Such a World stays unattached with an empty image, as if
// the wrap had failed (PF_Err_INTERNAL_STRUCT_DAMAGED).
#pragma once

#include <stdint.h>

#include "host_api.h"
#include "pixel_image.h"

namespace tarvo {

class World {
 public:
  enum Mode : int32_t { kWrap = 0, kCopy = 1 };  // kCopy: for the family's other effects

  // Attaches to source at once; a failed attach leaves the World unattached
  // with an empty (0 × 0) image and is not reported.
  World(const PF_EffectWorld& source, int32_t mode);
  ~World();

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // 0 on success; PF_Err_BAD_CALLBACK_PARAM when the source has no pixels,
  // PF_Err_INTERNAL_STRUCT_DAMAGED when it cannot be wrapped or copied, or
  // the host's copy error.
  PF_Err Attach(const PF_EffectWorld& source);

  PixelImage& Image() { return image; }
  bool Attached() const { return attached != 0; }
  bool CheckedOut() const { return checked_out != 0; }
  bool Filled() const { return filled != 0; }
  const PF_Pixel& FillColor() const { return fill_color; }

  // For effects with further layer parameters; the Ripple effect only wraps
  // the render command's two worlds.
  // Makes the World from the layer parameter at layerIndex. A layer without
  // pixels gives a blank image of the downsampled frame size, filled with
  // the colour parameter at colourIndex (> 0; alpha forced opaque) or opaque
  // black. A second call while a layer is checked out reports
  // "MakeTFXWorld: Doubly Checked out layer" and returns 516.
  PF_Err MakeTFXWorld(int16_t layerIndex, int16_t colourIndex);

  // Puts message into return_msg with PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  // returns code.
  static PF_Err ReportWorldError(const char* message, PF_Err code);

 private:
  // Wraps a host world's pixels into image, or refuses (false).
  bool WrapHostWorld(const PF_EffectWorld& w);

  uint8_t attached;
  PF_ParamDef layer_param;
  uint8_t checked_out;
  uint8_t filled;
  PF_Pixel fill_color;
  PixelImage image;
  uint8_t copy_mode;
  PF_EffectWorld host_copy;
  uint8_t owns_host_copy;
};

}  // namespace tarvo
