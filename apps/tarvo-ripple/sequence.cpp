#include "sequence.h"

#include <stdio.h>

#include <charconv>

namespace tarvo::cli {

bool ParseFramePattern(const std::string& path, FramePattern* out, std::string* error) {
  FramePattern p;
  std::string* part = &p.prefix;
  for (size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%') {
      part->push_back(path[i]);
      continue;
    }
    if (i + 1 < path.size() && path[i + 1] == '%') {
      part->push_back('%');
      ++i;
      continue;
    }
    size_t j = i + 1;
    bool zero = false;
    if (j < path.size() && path[j] == '0') {
      zero = true;
      ++j;
    }
    int width = 0;
    if (j < path.size() && path[j] >= '1' && path[j] <= '9') width = path[j++] - '0';
    if (j >= path.size() || path[j] != 'd' || (zero && width == 0)) {
      *error = "\"" + path + "\" has a '%' that is not a frame number (use %d, %4d or %04d; %% for a '%')";
      return false;
    }
    if (p.hasFrame) {
      *error = "\"" + path + "\" has more than one frame number";
      return false;
    }
    p.hasFrame = true;
    p.zeroPad = zero;
    p.width = width;
    part = &p.suffix;
    i = j;
  }
  *out = std::move(p);
  return true;
}

bool HasFrameNumber(const std::string& path) {
  FramePattern p;
  std::string error;
  return ParseFramePattern(path, &p, &error) && p.hasFrame;
}

std::string FramePath(const FramePattern& p, int64_t n) {
  if (!p.hasFrame) return p.prefix;
  char digits[32];
  snprintf(digits, sizeof digits, p.zeroPad ? "%0*lld" : "%*lld", p.width, static_cast<long long>(n));
  return p.prefix + digits + p.suffix;
}

namespace {
bool ParseFrame(const char* b, const char* e, int32_t* v) {
  if (b == e || *b == '+' || *b == '-') return false;
  auto [ptr, ec] = std::from_chars(b, e, *v);
  return ec == std::errc() && ptr == e;
}
}  // namespace

bool ParseFrameRange(const std::string& text, int32_t* first, int32_t* last, std::string* error) {
  const char* b = text.data();
  const char* e = b + text.size();
  const size_t dash = text.find('-');
  bool good;
  if (dash == std::string::npos) {
    good = ParseFrame(b, e, first);
    *last = *first;
  } else {
    good = ParseFrame(b, b + dash, first) && ParseFrame(b + dash + 1, e, last);
  }
  if (!good) {
    *error = "--frames \"" + text + "\" is not a frame range (A-B with 0 <= A <= B, or one frame number)";
    return false;
  }
  if (*first > *last) {
    *error = "--frames " + text + " runs backwards";
    return false;
  }
  return true;
}

}  // namespace tarvo::cli
