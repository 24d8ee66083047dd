// Which vector width the samplers use, chosen once at run time. The build
// targets plain SSE2 (x86) or no vector unit at all; the AVX2 loops are
// compiled per function with a target attribute and only called when the
// processor has AVX2. Every width gives the same bytes.
#pragma once

#include <stdint.h>

#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__)) && \
    (defined(__SSE2__) || defined(__x86_64__))
#define TARVO_SAMPLER_AVX2 1
#endif

namespace tarvo {

enum class SamplerSimd : int32_t {
  kScalar = 0,  // a pixel at a time, no vector registers
  kSse2 = 1,    // the four-wide loops
  kAvx2 = 2,    // the eight-wide loops
};

// The widest width the processor and the build support, capped by
// LimitSamplerSimd.
SamplerSimd ActiveSamplerSimd();

// Caps the width (tests compare the widths; kAvx2 lifts the cap).
void LimitSamplerSimd(SamplerSimd widest);

}  // namespace tarvo
