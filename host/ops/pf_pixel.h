// The one pixel type shared by the host and all pixel code.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Four unsigned bytes in memory order alpha, red, green, blue; straight
// (not premultiplied) colour.
typedef struct {
  uint8_t alpha;
  uint8_t red;
  uint8_t green;
  uint8_t blue;
} PF_Pixel;

#ifdef __cplusplus
}
#endif
