// How a host of our own asks the module for threads.
//
// The Linux module exports, beside "main" and the property list,
//
//   int32_t TarvoRenderThreads(int32_t requested);
//
// It sets how many threads every later render may use (values below 1 mean
// 1, values above kMaxRenderThreads mean that many) and returns the count in
// effect. A host that never calls it gets the module's plain behaviour: every
// render on the host's calling thread, no thread started. The renders are
// byte for byte the same at every count. The Windows module does not export
// it. Call it between host calls, never during one.
#pragma once

#include <stdint.h>

namespace tarvo {

inline constexpr const char* kThreadRequestSymbol = "TarvoRenderThreads";
inline constexpr int32_t kMaxRenderThreads = 64;
using ThreadRequestFn = int32_t (*)(int32_t requested);

// The module's side of the request.
int32_t SetRenderThreads(int32_t requested);

}  // namespace tarvo
