// The test host: the in-process host with callbacks that can be told to
// fail and a count of every callback the plug-in made.
#pragma once

#include "host.h"

namespace tarvo::host {

// Which callback to make fail, and with what.
struct FaultPlan {
  int32_t addParamFailAt = 0;  // the Nth add_param call (1-based) returns addParamError
  PF_Err addParamError = PF_Err_OUT_OF_MEMORY;
  int32_t stopAtProgress = 0;  // the Nth progress call (1-based) returns progressError
  PF_Err progressError = PF_Interrupt_CANCEL;
  PF_Err fillError = 0;  // nonzero: fill returns it
  PF_Err copyError = 0;
  PF_Err newWorldError = 0;
  PF_Err checkoutError = 0;
};

struct CallbackCounts {
  int32_t addParam = 0, progress = 0, fill = 0, copy = 0, newWorld = 0, disposeWorld = 0, checkout = 0, checkin = 0,
          sprintf = 0, strcpy = 0;
};

class TestHost : public Host {
 public:
  using Host::Host;

  FaultPlan& Faults() { return faults_; }
  CallbackCounts& Counts() { return counts_; }

 protected:
  PF_Err BeforeCallback(HostCallback callback) override {
    switch (callback) {
      case HostCallback::kAddParam:
        return ++counts_.addParam == faults_.addParamFailAt ? faults_.addParamError : PF_Err_NONE;
      case HostCallback::kProgress:
        return ++counts_.progress == faults_.stopAtProgress ? faults_.progressError : PF_Err_NONE;
      case HostCallback::kFill: ++counts_.fill; return faults_.fillError;
      case HostCallback::kCopy: ++counts_.copy; return faults_.copyError;
      case HostCallback::kNewWorld: ++counts_.newWorld; return faults_.newWorldError;
      case HostCallback::kCheckout: ++counts_.checkout; return faults_.checkoutError;
      case HostCallback::kDisposeWorld: ++counts_.disposeWorld; break;
      case HostCallback::kCheckin: ++counts_.checkin; break;
      case HostCallback::kSprintf: ++counts_.sprintf; break;
      case HostCallback::kStrcpy: ++counts_.strcpy; break;
    }
    return PF_Err_NONE;
  }

 private:
  FaultPlan faults_;
  CallbackCounts counts_;
};

// Sets parameter index to a value as the host's controls show it: sliders and
// angles in their units (16.16, truncated toward zero), popups 1-based.
inline void SetShown(Host& host, int index, double shown) {
  PF_ParamDef& p = host.Param(index);
  const auto fixed = static_cast<PF_Fixed>(shown * 65536.0);
  if (p.param_type == PF_Param_POPUP)
    p.u.pd.value = static_cast<int32_t>(shown);
  else if (p.param_type == PF_Param_ANGLE)
    p.u.ad.value = fixed;
  else
    p.u.fd.value = fixed;
}

}  // namespace tarvo::host
