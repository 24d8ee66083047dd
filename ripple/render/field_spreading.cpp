#include "field_spreading.h"

#include <optional>

#include "render_bands.h"

namespace tarvo {

// On one thread in one pass, asking the host nothing (the pinning's stop
// checks follow it). On several, in bands of quadrant rows, each band's map
// rows its own; the host is asked before each band, and a stop marks the
// map stopped.
void RippleRenderer::SpreadField(const PinProfiles* pins) {
  std::optional<MapRowPinner> pinner;
  if (pins != nullptr) pinner.emplace(*sourceMap, *pins);
  const MapRowPinner* rowPinner = pinner ? &*pinner : nullptr;
  if (RenderThreads() <= 1) {
    SourceMapSink sink{*sourceMap, rowPinner};
    SpreadFieldTo(*this, sink);
    return;
  }
  auto rows = [&](int32_t begin, int32_t end) {
    SourceMapSink sink{*sourceMap, rowPinner};
    SpreadFieldTo(*this, sink, begin, end);
  };
  if (!RunRowBands(quadRows, rows)) sourceMap->aborted = 1;
}

}  // namespace tarvo
