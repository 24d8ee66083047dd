#include "field_spreading.h"

namespace tarvo {

void RippleRenderer::SpreadField(bool pinRows) {
  if (!pinRows) {
    SourceMapSink sink{*sourceMap};
    SpreadFieldTo(*this, sink);
    return;
  }
  const MapRowPinner pinner(*sourceMap);
  SourceMapSink sink{*sourceMap, &pinner};
  SpreadFieldTo(*this, sink);
}

}  // namespace tarvo
