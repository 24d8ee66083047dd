// The built-in test picture: a colour wheel over a checkerboard with a
// one-pixel grid, a zone of single-pixel stripes, a bull's-eye of thin
// rings, and an alpha that fades softly to transparent at the borders. It
// shows what a distortion does to hue, straight lines, fine detail and
// alpha edges without needing a file.
#pragma once

#include <stdint.h>

#include "host.h"

namespace tarvo::cli {

constexpr int32_t kDemoWidth = 640;
constexpr int32_t kDemoHeight = 480;

host::Image MakeDemoImage(int32_t width, int32_t height);

}  // namespace tarvo::cli
