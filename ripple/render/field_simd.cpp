#include "field_simd.h"

namespace tarvo {

namespace {

SimdLevel g_widestAllowed = SimdLevel::kAvx2;

SimdLevel Supported() {
#if defined(TARVO_FIELD_AVX2)
  // Asked once: the processor does not change.
  static const bool avx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return avx2 ? SimdLevel::kAvx2 : SimdLevel::kSse2;
#elif defined(TARVO_TABLE_READS_SSE2)
  return SimdLevel::kSse2;
#else
  return SimdLevel::kScalar;
#endif
}

}  // namespace

SimdLevel FieldSimd() {
  const SimdLevel supported = Supported();
  return static_cast<int32_t>(supported) < static_cast<int32_t>(g_widestAllowed) ? supported : g_widestAllowed;
}

void LimitFieldSimd(SimdLevel widest) { g_widestAllowed = widest; }

}  // namespace tarvo
