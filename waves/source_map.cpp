// The source map's buffers: entries, the per-row spans and written flags.
#include "source_map.h"

#include <string.h>

#include "plugin_alloc.h"

namespace tarvo {

SourceMap::SourceMap(int32_t rowCount, int32_t colCount, const RenderSetup& renderSetup)
    : aborted(0),
      entries(nullptr),
      ok(false),
      rows(rowCount),
      cols(colCount),
      source(renderSetup.source),
      rowFirst(nullptr),
      rowLast(nullptr),
      rowWritten(nullptr),
      setup(renderSetup) {
  // Sizes are 32-bit products: a map whose byte count does not fit is not ok.
  if (rows < 1 || cols < 1) return;
  const int64_t count = static_cast<int64_t>(rows) * cols;
  if (count > INT32_MAX / static_cast<int64_t>(sizeof(MapPoint)) ||
      rows > INT32_MAX / static_cast<int32_t>(sizeof(int32_t)))
    return;

  entries = PluginAllocArray<MapPoint>(count);
  rowFirst = PluginAllocArray<int32_t>(rows);
  rowLast = PluginAllocArray<int32_t>(rows);
  rowWritten = PluginAllocArray<uint8_t>(rows);
  if (entries && rowFirst && rowLast && rowWritten) {
    memset(rowWritten, 0, static_cast<size_t>(rows));
    ok = true;
    return;
  }
  Release();
}

SourceMap::~SourceMap() { Release(); }

void SourceMap::Release() {
  PluginFree(entries);
  PluginFree(rowFirst);
  PluginFree(rowLast);
  PluginFree(rowWritten);
  entries = nullptr;
  rowFirst = nullptr;
  rowLast = nullptr;
  rowWritten = nullptr;
}

void SourceMap::SetRowSpan(int32_t y, int32_t first, int32_t last) {
  if (!ok || y < 0 || y >= rows || first > last) return;
  rowFirst[y] = first;
  rowLast[y] = last;
  rowWritten[y] = 1;
}

}  // namespace tarvo
