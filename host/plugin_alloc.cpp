// The plug-in's allocator: malloc with a small header per block that keeps
// the block's size, so the live bytes can be tracked without a table.
#include "plugin_alloc.h"

#include <stddef.h>
#include <stdlib.h>

namespace tarvo {

namespace {

// Keeps the payload aligned as malloc's own blocks are.
struct alignas(max_align_t) BlockHeader {
  size_t bytes;
};

AllocStats g_allocStats;

}  // namespace

AllocStats* PluginAllocStats() { return &g_allocStats; }

void* PluginAlloc(size_t bytes) {
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
  --g_allocStats.liveBlocks;
  g_allocStats.liveBytes -= static_cast<int64_t>(header->bytes);
  free(header);
}

}  // namespace tarvo
