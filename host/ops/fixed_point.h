// 16.16 fixed point and the integer conversions every table and sampler uses.
//
// Conversions truncate toward zero. A value outside the signed 32-bit range
// (or not a number) converts to INT32_MIN, the x86 "integer indefinite"
// that the host platform's truncating conversion yields, so that extreme
// inputs stay defined instead of trapping.
#pragma once

#include <stdint.h>

namespace tarvo {

inline int32_t TruncToInt32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// Truncation to a signed 16-bit integer keeps the low 16 bits of the 32-bit result.
inline int16_t TruncToInt16(double v) {
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(TruncToInt32(v))));
}

// v × 65536 (in double), truncated toward zero.
inline int32_t FloatToFixed(double v) { return TruncToInt32(v * 65536.0); }

inline double FixedToFloat(int32_t f) { return f / 65536.0; }

// x > 0 truncates x + 0.5, otherwise truncates x − 0.5.
inline int32_t RoundHalfAway(double x) { return x > 0 ? TruncToInt32(x + 0.5) : TruncToInt32(x - 0.5); }

}  // namespace tarvo
