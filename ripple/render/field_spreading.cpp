#include "field_spreading.h"

namespace tarvo {

void RippleRenderer::SpreadField() {
  SourceMapSink sink{*sourceMap};
  SpreadFieldTo(*this, sink);
}

}  // namespace tarvo
