// Frame-numbered file names and frame ranges for image sequences.
#pragma once

#include <stdint.h>

#include <string>

namespace tarvo::cli {

// A path with at most one printf-style frame number: %d, %Nd or %0Nd
// (N ≤ 9); "%%" stands for one '%'.
struct FramePattern {
  std::string prefix, suffix;  // '%%' already resolved
  bool hasFrame = false;
  int width = 0;  // minimum digits
  bool zeroPad = false;
};

// False with *error for a malformed pattern (a lone '%', two frame numbers,
// an unsupported conversion).
bool ParseFramePattern(const std::string& path, FramePattern* out, std::string* error);

// True when path holds a frame number (as ParseFramePattern reads it).
bool HasFrameNumber(const std::string& path);

// The path of frame n (the pattern's literal path when it has no frame number).
std::string FramePath(const FramePattern& p, int64_t n);

// "A-B" (A ≤ B) or "N"; frames are non-negative.
bool ParseFrameRange(const std::string& text, int32_t* first, int32_t* last, std::string* error);

}  // namespace tarvo::cli
