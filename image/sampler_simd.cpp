#include "sampler_simd.h"

namespace tarvo {
namespace {

SamplerSimd g_widestAllowed = SamplerSimd::kAvx2;

SamplerSimd Supported() {
#if defined(TARVO_SAMPLER_AVX2)
  // Asked once: the processor does not change. The answer includes the
  // operating system's saving of the wide registers.
  static const bool avx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return avx2 ? SamplerSimd::kAvx2 : SamplerSimd::kSse2;
#elif defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
  return SamplerSimd::kSse2;
#else
  return SamplerSimd::kScalar;
#endif
}

}  // namespace

SamplerSimd ActiveSamplerSimd() {
  const SamplerSimd supported = Supported();
  return static_cast<int32_t>(supported) < static_cast<int32_t>(g_widestAllowed) ? supported : g_widestAllowed;
}

void LimitSamplerSimd(SamplerSimd widest) { g_widestAllowed = widest; }

}  // namespace tarvo
