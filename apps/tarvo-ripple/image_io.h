// Image files for the command-line host: PNG, JPEG, TIFF, OpenEXR and
// whatever else the image library reads, converted to and from the effect's
// 8-bit ARGB.
//
// Reading: regular files only; gray becomes R = G = B; images without alpha
// get alpha 255; colour becomes straight (unassociated): OpenEXR and
// associated TIFF are divided by alpha, the other formats store it so.
// Writing: the format follows the output's extension; 8-bit RGBA where the
// format holds alpha, RGB otherwise; OpenEXR half floats multiplied by
// alpha, as that format defines. A file is written under a temporary
// name in its target's directory (through symbolic links), every write
// checked, flushed to disk and renamed into place with the replaced file's
// permissions: a failed or interrupted write leaves the old file as it was
// and no temporary file.
#pragma once

#include <signal.h>
#include <stdint.h>

#include <string>

#include "host.h"

namespace tarvo::cli {

// The largest frame the effect's image model holds; larger ones are refused.
constexpr int32_t kMaxImageWidth = 4095;
constexpr int32_t kMaxImageHeight = 32767;

// "" when width × height can be rendered, else why not ("is 5000x10, larger
// than ..."), to follow the picture's name. Inline: the studio page's host
// words its refusals the same way without the image library.
inline std::string CheckImageSize(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return "has no pixels (" + std::to_string(width) + "x" + std::to_string(height) + ")";
  if (width > kMaxImageWidth || height > kMaxImageHeight)
    return "is " + std::to_string(width) + "x" + std::to_string(height) + ", larger than the effect allows (" +
           std::to_string(kMaxImageWidth) + "x" + std::to_string(kMaxImageHeight) + " at most)";
  return "";
}

bool ReadImage(const std::string& path, host::Image* out, std::string* error);

// True when path's extension names a format this program writes.
bool CanWriteFormat(const std::string& path, std::string* error);

// True when both paths name one existing file.
bool SameFile(const std::string& a, const std::string& b);

// PNG output's zlib level, 0 (none) to 9 (smallest); process-wide.
constexpr int kDefaultPngCompression = 1;
void SetPngCompression(int level);

bool WriteImage(const std::string& path, const host::Image& image, std::string* error);

// The temporary file of a write in progress, where a signal handler or the
// parent of a worker process can remove it.
struct TempFileSlot {
  volatile sig_atomic_t active = 0;
  char path[4096] = {};
};
// Where this process records its temporary file (nullptr: its own slot).
void UseTempFileSlot(TempFileSlot* slot);
// Removes the slot's file when a write was in progress.
void RemoveTempFile(TempFileSlot* slot);

// An interrupt (SIGINT, SIGTERM, SIGHUP) removes the temporary file of a
// write in progress before the process ends; SIGXFSZ is ignored, so that a
// write past the file size limit fails and is reported.
void InstallInterruptCleanup();

// Keeps the image library on the calling thread (no worker pool), so that
// the process can fork safely.
void UseSingleThreadedImageLibrary();

}  // namespace tarvo::cli
