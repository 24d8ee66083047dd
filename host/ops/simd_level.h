// The vector width of the pixel loops, chosen once at run time. The build
// targets plain SSE2 on x86 (no vector unit elsewhere); the AVX2 loops are
// compiled per function with a target attribute, never with FMA, and are
// called only when the processor has AVX2. Every width gives the same bytes.
#pragma once

#include <stdint.h>

// TARVO_SSE2_PATHS: the build's baseline has SSE2 (four-wide loops).
// TARVO_AVX2_PATHS: eight-wide loops can be compiled, each function marked
// TARVO_AVX2 (or TARVO_AVX2_INLINE for helpers that must be inlined).
#if defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
#define TARVO_SSE2_PATHS 1
#endif
// TARVO_HOT_INLINE: a helper of a pixel loop, inlined into it at any width.
#if defined(__GNUC__) || defined(__clang__)
#define TARVO_HOT_INLINE inline __attribute__((always_inline))
#elif defined(_MSC_VER)
#define TARVO_HOT_INLINE __forceinline
#else
#define TARVO_HOT_INLINE inline
#endif
#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__)) && defined(TARVO_SSE2_PATHS)
#define TARVO_AVX2_PATHS 1
#define TARVO_AVX2 __attribute__((target("avx2")))
#define TARVO_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline
#endif

namespace tarvo {

enum class SimdLevel : int32_t {
  kScalar = 0,  // one pixel or entry at a time
  kSse2 = 1,    // four at a time
  kAvx2 = 2,    // eight at a time
};

namespace simd_detail {

inline SimdLevel g_widestAllowed = SimdLevel::kAvx2;

inline SimdLevel Supported() {
#if defined(TARVO_AVX2_PATHS)
  // Asked once: the processor does not change. The answer includes the
  // operating system's saving of the wide registers.
  static const bool avx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return avx2 ? SimdLevel::kAvx2 : SimdLevel::kSse2;
#elif defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
  return SimdLevel::kSse2;
#else
  return SimdLevel::kScalar;
#endif
}

}  // namespace simd_detail

// The widest level the processor and the build support, capped by LimitSimd.
inline SimdLevel ActiveSimd() {
  const SimdLevel supported = simd_detail::Supported();
  return static_cast<int32_t>(supported) < static_cast<int32_t>(simd_detail::g_widestAllowed)
             ? supported
             : simd_detail::g_widestAllowed;
}

// Caps the level (tests compare the widths; kAvx2 lifts the cap).
inline void LimitSimd(SimdLevel widest) { simd_detail::g_widestAllowed = widest; }

}  // namespace tarvo
