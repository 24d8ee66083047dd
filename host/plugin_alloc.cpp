// The plug-in's allocator: malloc with a small header per block that keeps
// the block's size, so the live bytes can be tracked without a table.
#include "plugin_alloc.h"

#include <stddef.h>
#include <stdlib.h>

#if !defined(_WIN32)
#include <mutex>
#endif

namespace tarvo {

namespace {

// Keeps the payload aligned as malloc's own blocks are.
struct alignas(max_align_t) BlockHeader {
  size_t bytes;
};

AllocStats g_allocStats;

#if !defined(_WIN32)
// A render's bands may allocate on several threads (see render_bands.h).
std::mutex g_allocMutex;
#define TARVO_ALLOC_LOCK std::lock_guard<std::mutex> lock(g_allocMutex)
#else
#define TARVO_ALLOC_LOCK
#endif

}  // namespace

AllocStats* PluginAllocStats() { return &g_allocStats; }

void* PluginAlloc(size_t bytes) {
  TARVO_ALLOC_LOCK;
  AllocStats& s = g_allocStats;
  ++s.allocCount;
  if (s.failAt > 0 && --s.failAt == 0) return nullptr;
  if (bytes > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  auto* header = static_cast<BlockHeader*>(malloc(sizeof(BlockHeader) + bytes));
  if (!header) return nullptr;
  header->bytes = bytes;
  ++s.liveBlocks;
  s.liveBytes += static_cast<int64_t>(bytes);
  if (s.liveBytes > s.peakBytes) s.peakBytes = s.liveBytes;
  return header + 1;
}

void PluginFree(void* block) {
  if (!block) return;
  BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
  TARVO_ALLOC_LOCK;
  --g_allocStats.liveBlocks;
  g_allocStats.liveBytes -= static_cast<int64_t>(header->bytes);
  free(header);
}

}  // namespace tarvo
