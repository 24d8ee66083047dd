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
             "\"; expected s, seconds, ms or milliseconds; using seconds";
    *why = "frei0r default";
    return TimeUnit::Seconds;
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

HostTime MapTime(double time, TimeUnit unit) {
  double ms = unit == TimeUnit::Seconds ? time * 1000.0 : time;
  ms = nearbyint(ms);
  int32_t current = 0;
  if (isnan(ms))
    current = 0;
  else if (ms >= 2147483647.0)
    current = INT32_MAX;
  else if (ms <= -2147483648.0)
    current = INT32_MIN;
  else
    current = static_cast<int32_t>(ms);
  return {current, 1, 1000};
}

}  // namespace tarvo::frei0r
