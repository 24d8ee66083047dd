// Parameter objects: one per host parameter of an effect.
//
// At parameter set-up an object fills a PF_ParamDef from its own fields and
// its row of g_paramRanges and appends it to the host's list (AddToHost). At
// render time it reads the host's current value from the call's parameter
// array at `index` and converts it into the unit the effect works in:
//
//   slider   Value()       RawValue() / 65536, where a percent slider's raw
//                          value is the host value / 100 (integer, toward 0):
//                          shown 25.00 reads 0.25
//   angle    Value()       host degrees − angleOffset
//   popup    PopupIndex()  0-based menu index (host value − 1); separators
//                          take indices of their own
//   point    X(), Y()      the point as fractions of the downsampled frame
//
// The objects keep no values between calls. They are allocated from the
// plug-in allocator: `new` yields null when the block cannot be had.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "host_api.h"
#include "param_ranges.h"

namespace tarvo {

// A settings record: one stored value per range row.
struct ParamSettings {
  ParamValue values[ParamRangeTable::kRows];
};

class EffectParam {
 public:
  EffectParam(int32_t index, const char* name, int16_t paramId, int16_t paramId2);
  // Slot 0.
  virtual ~EffectParam();

  // Slot 1: declares the parameter to the host (add_param, appended).
  virtual PF_Err AddToHost() = 0;
  // Slots 2, 6, 8 and 9 and the raw setters complete the framework's interface for the
  // family's other effects; the Ripple effect never calls them.
  // Slot 2: trunc(min), trunc(max) of a row.
  virtual void GetIntRange(int32_t* min, int32_t* max, int16_t row);
  // Slot 3: the row's default (a colour row: its colour), tag 0.
  virtual void GetDefault(ParamValue* out, int16_t row);
  // Slot 4.
  virtual int32_t RawValue();
  // Slot 5: the value in the effect's unit.
  virtual double Value();
  // Slot 6.
  virtual bool IsLinked();
  // Slot 7: the host's integer value (popups: 1-based).
  virtual int32_t IntValue();
  // Slot 8: writes the value into the settings slot of the object's row(s).
  virtual void StoreValue(ParamSettings* settings) = 0;
  // Slot 9: nothing to do for any kind of this framework.
  virtual void Refresh();

  int32_t Index() const { return index; }
  const PF_ParamDef& Def() const { return def; }
  // The definition's flags (0 when constructed), set before AddToHost.
  void SetFlags(PF_ParamFlags flags) { def.flags = flags; }

  static void* operator new(size_t bytes) noexcept;
  static void operator delete(void* block) noexcept;

  EffectParam(const EffectParam&) = delete;
  EffectParam& operator=(const EffectParam&) = delete;

 protected:
  // The host's record for this parameter in the current call, or null.
  PF_ParamDef* HostDef() const;
  // Copies name into def.name with the host's strcpy.
  void CopyNameToDef();
  // Appends def to the host's list.
  PF_Err SendToHost();

  int32_t index;
  const char* name;  // not owned
  int16_t paramId;   // row of g_paramRanges, −1 none
  int16_t paramId2;  // second row (a point's vertical), −1 none
  PF_ParamDef def;
};

// The input layer: index 0, never declared (the host adds it itself).
class LayerParam : public EffectParam {
 public:
  explicit LayerParam(int32_t index, const char* name = "");
  PF_Err AddToHost() override;
  void StoreValue(ParamSettings* settings) override;
};

class FixedSliderParam : public EffectParam {
 public:
  static constexpr int32_t kShowStored = 0;      // range and default shown as stored
  static constexpr int32_t kShowMultiplied = 3;  // shown multiplied by divisor

  FixedSliderParam(int32_t index, const char* name, int16_t paramId, int32_t displayMode = kShowStored);

  PF_Err AddToHost() override;
  int32_t RawValue() override;
  double Value() override;
  void StoreValue(ParamSettings* settings) override;
  // Slot 10: sets the host value and marks it changed.
  virtual void SetRawValue(const int32_t* raw);

 protected:
  int32_t divisor;
  uint8_t divideRaw;
  int32_t displayMode;
  int16_t precision;
  int16_t displayFlags;
};

// A fraction shown to the user as a percentage (0.25 shown as 25.00).
class PercentSliderParam : public FixedSliderParam {
 public:
  PercentSliderParam(int32_t index, const char* name, int16_t paramId);
};

class AngleParam : public EffectParam {
 public:
  AngleParam(int32_t index, const char* name, int16_t paramId, float angleOffset);
  PF_Err AddToHost() override;
  double Value() override;
  void StoreValue(ParamSettings* settings) override;

 protected:
  float angleOffset;  // degrees added to the declared default, subtracted from the value read
};

class PopupParam : public EffectParam {
 public:
  // choices: '|'-separated names (not owned); defaultChoice is 1-based.
  PopupParam(int32_t index, const char* name, const char* choices, int32_t defaultChoice, int16_t numChoices);
  PF_Err AddToHost() override;
  int32_t IntValue() override;
  void StoreValue(ParamSettings* settings) override;
  // Slot 10: the 0-based choice.
  virtual int32_t PopupIndex();

 protected:
  const char* choices;
  int32_t defaultChoice;
  int16_t numChoices;
};

class PointParam : public EffectParam {
 public:
  // unbounded 0: the host keeps the point inside the layer.
  PointParam(int32_t index, const char* name, int16_t rowX, int16_t rowY, int32_t unbounded = 0);
  PF_Err AddToHost() override;
  void StoreValue(ParamSettings* settings) override;
  // Slots 10–13.
  virtual void GetRawPoint(PF_Fixed* x, PF_Fixed* y);
  virtual void SetRawPoint(PF_Fixed x, PF_Fixed y);
  virtual double X();  // fraction of the downsampled frame width
  virtual double Y();  // fraction of the downsampled frame height

 protected:
  int32_t unbounded;
};

}  // namespace tarvo
