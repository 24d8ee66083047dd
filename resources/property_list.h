// The module's property list: the bytes a host reads before it calls the
// entry point (on Windows the same bytes are the "PiPL" resource). Generated
// from pipl.txt. Exported so that a host can find them with dlsym.
#pragma once

#include <stdint.h>

#if defined(_WIN32)
#define TARVO_EXPORT_DATA
#else
#define TARVO_EXPORT_DATA __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

TARVO_EXPORT_DATA extern const unsigned char TarvoPropertyList[];
TARVO_EXPORT_DATA extern const uint32_t TarvoPropertyListSize;

#ifdef __cplusplus
}
#endif
