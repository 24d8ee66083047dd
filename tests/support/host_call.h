// A host call for tests that run pixel code without a host: the current
// call's records, with a progress callback that asks for a stop from its
// stopAt-th call on (0: never).
#pragma once

#include "call_context.h"
#include "host_api.h"

namespace tarvo::testing {

struct HostCall {
  PF_InData in{};
  PF_OutData out{};
  int progressCalls = 0;
  int stopAt = 0;

  HostCall() {
    current = this;
    in.inter.progress = &Progress;
    in.downsample_x = {1, 1};
    in.downsample_y = {1, 1};
    StoreHostCall(PF_Cmd_RENDER, &in, &out, nullptr, nullptr, nullptr);
  }
  ~HostCall() {
    StoreHostCall(PF_Cmd_RENDER, nullptr, nullptr, nullptr, nullptr, nullptr);
    current = nullptr;
  }
  HostCall(const HostCall&) = delete;
  HostCall& operator=(const HostCall&) = delete;

  static PF_Err Progress(PF_ProgPtr, int32_t, int32_t) {
    HostCall* c = current;
    if (!c) return 0;
    ++c->progressCalls;
    return c->stopAt > 0 && c->progressCalls >= c->stopAt ? PF_Interrupt_CANCEL : 0;
  }
  static inline HostCall* current = nullptr;
};

}  // namespace tarvo::testing
