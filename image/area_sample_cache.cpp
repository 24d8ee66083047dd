// The area sampler's summed-area tables: built once per render when large
// boxes have cost about a pass over the frame, then read four entries per
// rectangle.
#include <string.h>

#include "area_sampler.h"
#include "area_span_sse2.h"
#include "plugin_alloc.h"
#include "simd_level.h"

namespace tarvo {

namespace {

// Boxes of fewer clipped pixels than this are always summed directly.
constexpr int64_t kTableMinCells = 256;

// Entry (r, c) holds, per channel, the sum over rows < r and columns < c.
// T is chosen so that the frame's whole sum (at most 255 × its pixels) fits
// it; a rectangle's sum from four entries is then exact.
template <class T>
void FillTable(const PixelImage& image, T* table, [[maybe_unused]] SimdLevel simd) {
  const int32_t width = image.Width(), height = image.Height();
  const size_t stride = 4 * (static_cast<size_t>(width) + 1);
  memset(table, 0, stride * sizeof(T));
  RowCursor cursor = image.RowAt(0);
  for (int32_t r = 0; r < height; ++r, cursor.Next()) {
    const T* above = table + stride * static_cast<size_t>(r);
    T* entry = table + stride * (static_cast<size_t>(r) + 1);
    entry[0] = entry[1] = entry[2] = entry[3] = 0;
    const PF_Pixel* p = cursor.Pixels();
#ifdef TARVO_SSE2_PATHS
    if constexpr (sizeof(T) == 4) {
      if (simd != SimdLevel::kScalar) {
        sse2::SummedRow(p, width, above, entry);
        continue;
      }
    }
#endif
    T a = 0, rd = 0, g = 0, b = 0;
    for (int32_t c = 1; c <= width; ++c, ++p) {
      a += p->alpha;
      rd += p->red;
      g += p->green;
      b += p->blue;
      entry[4 * c] = above[4 * c] + a;
      entry[4 * c + 1] = above[4 * c + 1] + rd;
      entry[4 * c + 2] = above[4 * c + 2] + g;
      entry[4 * c + 3] = above[4 * c + 3] + b;
    }
  }
}

template <class T>
void TableRect(const T* table, size_t stride, int32_t rowA, int32_t rowB, int32_t colA, int32_t colB, uint64_t out[4]) {
  const T* top = table + stride * static_cast<size_t>(rowA);
  const T* bottom = table + stride * (static_cast<size_t>(rowB) + 1);
  const size_t left = 4 * static_cast<size_t>(colA), right = 4 * (static_cast<size_t>(colB) + 1);
  for (int k = 0; k < 4; ++k) {
    out[k] = static_cast<T>(static_cast<T>(bottom[right + k] - bottom[left + k]) -
                            static_cast<T>(top[right + k] - top[left + k]));
  }
}

}  // namespace

AreaSampleCache::~AreaSampleCache() { PluginFree(table_); }

// Rows of a render may be sampled on several threads at once: the call
// whose boxes take the debt past the frame's size builds the tables, and
// the others sum directly until they are there.
bool AreaSampleCache::Covers(const PixelImage& image, int64_t cells) {
  if (&image != image_ || cells < kTableMinCells) return false;
  if (ready_.load(std::memory_order_acquire)) return true;
  if (failed_.load(std::memory_order_relaxed)) return false;
  // Building costs about one pass over the frame: worth it once the large
  // boxes summed directly have cost that much.
  const int64_t frame = static_cast<int64_t>(image.Width()) * image.Height();
  const int64_t before = debt_.fetch_add(cells, std::memory_order_relaxed);
  if (before + cells < frame || (before >= frame && before > 0)) return false;
  return Build();
}

bool AreaSampleCache::Build() {
  const int64_t width = image_->Width(), height = image_->Height();
  const int64_t entries = 4 * (width + 1) * (height + 1);
  wide_ = forceWide_ || 255 * width * height > static_cast<int64_t>(UINT32_MAX);
  table_ = wide_ ? static_cast<void*>(PluginAllocArray<uint64_t>(entries))
                 : static_cast<void*>(PluginAllocArray<uint32_t>(entries));
  if (table_ == nullptr) {
    failed_.store(true, std::memory_order_relaxed);
    return false;
  }
  if (wide_) {
    FillTable(*image_, static_cast<uint64_t*>(table_), simd_);
  } else {
    FillTable(*image_, static_cast<uint32_t*>(table_), simd_);
  }
  ready_.store(true, std::memory_order_release);
  return true;
}

void AreaSampleCache::RectSum(int32_t rowA, int32_t rowB, int32_t colA, int32_t colB, uint64_t out[4]) const {
  const size_t stride = 4 * (static_cast<size_t>(image_->Width()) + 1);
  if (wide_) {
    TableRect(static_cast<const uint64_t*>(table_), stride, rowA, rowB, colA, colB, out);
  } else {
    TableRect(static_cast<const uint32_t*>(table_), stride, rowA, rowB, colA, colB, out);
  }
}

}  // namespace tarvo
