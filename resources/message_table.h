// The framework's message texts as the module carries them on platforms
// without a string-table resource. Generated from messages.txt.
#pragma once

#include <stdint.h>

namespace tarvo {

// Entries kMessageFirstId .. kMessageFirstId + kMessageCount − 1; an entry
// without a text is the empty string.
extern const int32_t kMessageFirstId;
extern const int32_t kMessageCount;
extern const char* const kMessageTexts[];

}  // namespace tarvo
