// Framework messages: loading them by number and putting them in front of the
// user through return_msg.
#include <string.h>

#include "call_context.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include "message_table.h"
#endif

namespace tarvo {

namespace {

#if defined(_WIN32)
// The module's own handle, found from an address inside it, so that strings
// load from this module's string table whoever loaded it.
HMODULE ThisModule() {
  static const char kAnchor = 0;
  HMODULE module = nullptr;
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, &kAnchor,
                     &module);
  return module;
}
#endif

}  // namespace

void LoadMessage(int16_t group, int16_t index, uint8_t* buffer, int16_t capacity) {
  if (!buffer || capacity < 1) return;
  const int32_t entry = static_cast<int32_t>(group) * 100 + index;
#if defined(_WIN32)
  char text[256];
  if (LoadStringA(ThisModule(), static_cast<UINT>(entry), text, sizeof text) <= 0) text[0] = 0;
#else
  const int32_t slot = entry - kMessageFirstId;
  const char* text = (slot >= 0 && slot < kMessageCount) ? kMessageTexts[slot] : "";
#endif
  CStrToLenStr(text, buffer, static_cast<int16_t>(capacity - 1));
}

void LenStrToCStr(const uint8_t* src, char* dst, int16_t n) {
  if (!src || !dst || n < 1) return;
  int32_t count = src[0];
  if (count > n - 1) count = n - 1;
  memcpy(dst, src + 1, static_cast<size_t>(count));
  dst[count] = 0;
}

void CStrToLenStr(const char* src, uint8_t* dst, int16_t n) {
  if (!src || !dst) return;
  size_t count = strlen(src);
  const size_t limit = n < 0 ? 0 : (n > 255 ? 255 : static_cast<size_t>(n));
  if (count > limit) count = limit;
  dst[0] = static_cast<uint8_t>(count);
  memcpy(dst + 1, src, count);
}

void ReportMessage(int16_t n) {
  uint8_t loaded[255] = {};
  char text[255];
  LoadMessage(kMessageGroup, n, loaded, sizeof loaded);
  LenStrToCStr(loaded, text, sizeof text);
  if (PF_OutData* out = g_callContext.g_outData) {
    // The text is handed over as an argument, never as a format of its own.
    HostSprintf(out->return_msg, sizeof out->return_msg, "%s", text);
    out->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  }
  SetCallError(n);
}

}  // namespace tarvo
