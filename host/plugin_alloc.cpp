// The plug-in's allocator: malloc with a small header per block that keeps
// the block's size, so the live bytes can be tracked without a table.
#include "plugin_alloc.h"

#include <stddef.h>
#include <stdlib.h>

#if !defined(_WIN32)
#include <mutex>
#endif
#if defined(__linux__)
#include <sys/mman.h>
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

#if defined(__linux__)
// Blocks this large (a 4K frame's source map and field) get pages of their
// own, marked for huge pages: malloc maps them fresh for every render
// anyway, and first touching them 4 KiB at a time cost a fifth of a 4K
// render.
constexpr size_t kHugeBlockBytes = size_t{32} << 20;

BlockHeader* MapBlock(size_t total) {
  void* p = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  madvise(p, total, MADV_HUGEPAGE);  // a hint: without it the block is simply slower to touch
  return static_cast<BlockHeader*>(p);
}
#endif

BlockHeader* SystemAlloc(size_t bytes) {
#if defined(__linux__)
  if (bytes >= kHugeBlockBytes) return MapBlock(sizeof(BlockHeader) + bytes);
#endif
  return static_cast<BlockHeader*>(malloc(sizeof(BlockHeader) + bytes));
}

void SystemFree(BlockHeader* header) {
#if defined(__linux__)
  if (header->bytes >= kHugeBlockBytes) {
    munmap(header, sizeof(BlockHeader) + header->bytes);
    return;
  }
#endif
  free(header);
}

}  // namespace

AllocStats* PluginAllocStats() { return &g_allocStats; }

void* PluginAlloc(size_t bytes) {
  TARVO_ALLOC_LOCK;
  AllocStats& s = g_allocStats;
  ++s.allocCount;
  if (s.failAt > 0 && --s.failAt == 0) return nullptr;
  if (bytes > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  BlockHeader* header = SystemAlloc(bytes);
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
  SystemFree(header);
}

}  // namespace tarvo
