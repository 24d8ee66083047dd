// The per-call effect object: built for one host call, it turns the recorded
// command into a handler call and owns the parameter objects of that call.
//
// An effect derives from EffectBase and supplies the virtual operations; the
// handlers (DoAbout, DoGlobalSetup, ...) are the framework's. Handler results
// never reach the host: failures the user must see go through return_msg.
#pragma once

#include <stdint.h>

#include "effect_param.h"
#include "host_api.h"

namespace tarvo {

class PixelImage;

class EffectBase {
 public:
  EffectBase();
  // Slot 0: deletes the parameter objects and their array.
  virtual ~EffectBase();

  // Slot 1: 2 at the host's high quality (any nonzero quality), else 1.
  virtual int16_t QualityLevel();
  // Slot 2: writes the about text into text (256 characters).
  virtual PF_Err About(char* text) = 0;
  // Slot 3: the PF_VERSION-packed version word.
  virtual uint32_t Version() = 0;
  // Slot 4: global out flags (bit 0 is always added at global set-up).
  virtual int32_t OutFlags() = 0;
  // Slot 5: parameter count including the input layer.
  virtual int16_t NumParams() = 0;
  // Slot 6: creates the parameter objects with SetParam.
  virtual PF_Err SetupParams() = 0;
  // Slot 7: renders in into out. The base copies the input layer to the
  // output with the host's copy. When an effect's Render runs, every slot
  // 0..NumParams() − 1 holds a parameter object (DoRender checks it).
  virtual PF_Err Render(PixelImage* in, PixelImage* out);

  // Runs the handler of the recorded command; other commands do nothing.
  void Dispatch();

  PF_Err DoAbout();
  PF_Err DoGlobalSetup();
  PF_Err DoGlobalSetdown();
  PF_Err DoParamsSetup();
  PF_Err DoRender();

  // Creates the parameter array (once per object) and the objects.
  // PF_Err_INVALID_CALLBACK when the array cannot be allocated.
  PF_Err BuildParams();
  // The object at i (building the array first if needed), or null outside
  // 0..NumParams() − 1 or where the object could not be allocated.
  EffectParam* Param(int16_t i);
  // Typed access for an effect that knows the kind at i.
  template <class P>
  P* ParamAs(int16_t i) {
    return static_cast<P*>(Param(i));
  }
  // Stores p at i: 0 stored, 1 refused (i outside the array; p stays the caller's).
  int32_t SetParam(int16_t i, EffectParam* p);

  EffectBase(const EffectBase&) = delete;
  EffectBase& operator=(const EffectBase&) = delete;

 private:
  // True when the array exists and no slot is null.
  bool ParamsComplete() const;

  EffectParam** params;  // owned, with the objects it points to
  int16_t paramCount;
};

}  // namespace tarvo
