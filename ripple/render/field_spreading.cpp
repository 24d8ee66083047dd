#include "field_spreading.h"

namespace tarvo {

void RippleRenderer::SpreadField(const PinProfiles* pins) {
  if (pins == nullptr) {
    SourceMapSink sink{*sourceMap};
    SpreadFieldTo(*this, sink);
    return;
  }
  const MapRowPinner pinner(*sourceMap, *pins);
  SourceMapSink sink{*sourceMap, &pinner};
  SpreadFieldTo(*this, sink);
}

}  // namespace tarvo
