#include "time_map.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace tarvo::frei0r {
namespace {

bool ProcessHas(const char* symbol) {
#if defined(_WIN32)
  (void)symbol;
  return false;
#else
  return dlsym(RTLD_DEFAULT, symbol) != nullptr;
#endif
}

}  // namespace

const char* TimeUnitName(TimeUnit u) { return u == TimeUnit::Milliseconds ? "milliseconds" : "seconds"; }

TimeUnit DetectTimeUnit(std::string* why, std::string* error) {
  if (const char* env = getenv("TARVO_RIPPLE_TIME_UNIT"); env && *env) {
    if (!strcmp(env, "ms") || !strcmp(env, "milliseconds")) {
      *why = "TARVO_RIPPLE_TIME_UNIT";
      return TimeUnit::Milliseconds;
    }
    if (!strcmp(env, "s") || !strcmp(env, "seconds")) {
      *why = "TARVO_RIPPLE_TIME_UNIT";
      return TimeUnit::Seconds;
    }
    *error = std::string("TARVO_RIPPLE_TIME_UNIT is \"") + env +
             "\", not s, seconds, ms or milliseconds; ignored: the unit is worked out from the host";
  }
  switch (DetectHost()) {
    case HostKind::Mlt: *why = "MLT"; return TimeUnit::Seconds;
    case HostKind::Ffmpeg: *why = "ffmpeg (libavfilter)"; return TimeUnit::Milliseconds;
    case HostKind::Other: break;
  }
  *why = "frei0r default";
  return TimeUnit::Seconds;
}

HostKind DetectHost() {
  if (ProcessHas("mlt_factory_init")) return HostKind::Mlt;
  if (ProcessHas("avfilter_get_by_name")) return HostKind::Ffmpeg;
  return HostKind::Other;
}

namespace {
HostTime Milliseconds(double ms) {
  ms = nearbyint(ms);
  const int32_t current = ms >= 2147483647.0 ? INT32_MAX : ms <= -2147483648.0 ? INT32_MIN : static_cast<int32_t>(ms);
  return {current, 1, 1000};
}
}  // namespace

bool MapTime(double time, TimeUnit unit, HostTime* out) {
  const double ms = nearbyint(unit == TimeUnit::Seconds ? time * 1000.0 : time);
  if (!isfinite(ms) || ms > 2147483647.0 || ms < -2147483648.0) return false;
  *out = Milliseconds(ms);
  return true;
}

double FallbackFrameRate(std::string* error) {
  const char* env = getenv("TARVO_RIPPLE_FRAME_RATE");
  if (!env || !*env) return kDefaultFrameRate;
  char* end = nullptr;
  const double rate = strtod(env, &end);
  if (*end == '\0' && isfinite(rate) && rate > 0) return rate;
  *error = std::string("TARVO_RIPPLE_FRAME_RATE is \"") + env + "\"; expected frames per second above 0; using 25";
  return kDefaultFrameRate;
}

HostTime CountedTime(int64_t frame, double rate) { return Milliseconds(static_cast<double>(frame) * 1000.0 / rate); }

}  // namespace tarvo::frei0r
