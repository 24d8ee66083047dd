// The plug-in's one allocation point. Every heap block the plug-in takes
// comes from here, so a host can watch and fail allocations (see
// TarvoAllocStats in the module's test interface).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <new>
#include <utility>

namespace tarvo {

// Returns null when the block cannot be had; never throws.
void* PluginAlloc(size_t bytes);
// Releases a block from PluginAlloc; null is ignored.
void PluginFree(void* block);

// Allocation bookkeeping, shared with hosts that drive the plug-in in tests.
struct AllocStats {
  int64_t failAt;      // > 0: the failAt-th allocation from now on fails (then resets to 0)
  int64_t allocCount;  // allocations attempted since the last reset
  int64_t liveBlocks;  // blocks not yet freed
  int64_t liveBytes;
  int64_t peakBytes;  // highest liveBytes since the last reset
};
AllocStats* PluginAllocStats();

// Constructs a T in a plug-in block; null when the block cannot be had.
template <class T, class... Args>
T* PluginNew(Args&&... args) {
  void* p = PluginAlloc(sizeof(T));
  return p ? new (p) T(std::forward<Args>(args)...) : nullptr;
}

template <class T>
void PluginDelete(T* p) {
  if (p) {
    p->~T();
    PluginFree(p);
  }
}

// Typed array of n elements (contents uninitialised); null on failure or when
// the byte count would overflow.
template <class T>
T* PluginAllocArray(int64_t n) {
  if (n < 0 || (n > 0 && static_cast<uint64_t>(n) > SIZE_MAX / sizeof(T))) return nullptr;
  return static_cast<T*>(PluginAlloc(static_cast<size_t>(n) * sizeof(T)));
}

}  // namespace tarvo
