// frei0r hands each frame a time; the plug-in reads current_time,
// time_step and time_scale. frei0r says seconds, and MLT passes seconds,
// but ffmpeg's wrapper passes milliseconds. Every time becomes whole
// milliseconds: current_time = ms, time_step = 1, time_scale = 1000, so the
// plug-in's phase advance, frame index × Frequency × 360 / time_scale,
// is Frequency × 360 degrees per second of video in every host.
#pragma once

#include <stdint.h>

#include <string>

namespace tarvo::frei0r {

enum class TimeUnit { Seconds, Milliseconds };

// Which frei0r host this process is, from the libraries it has loaded.
// MLT applications may carry libavfilter too (MLT's avformat module), so
// MLT wins.
enum class HostKind { Mlt, Ffmpeg, Other };
HostKind DetectHost();

// TARVO_RIPPLE_TIME_UNIT ("s"/"seconds" or "ms"/"milliseconds") when set;
// otherwise milliseconds inside an ffmpeg process (libavfilter loaded and
// no MLT), seconds everywhere else. *why says which rule decided; *error
// is set when the variable holds something else, which is then ignored.
TimeUnit DetectTimeUnit(std::string* why, std::string* error);
const char* TimeUnitName(TimeUnit u);

struct HostTime {
  int32_t current;
  int32_t step;
  uint32_t scale;
};

// time in the given unit → host time in whole milliseconds (rounded to
// nearest). False when it cannot be a timestamp: not finite, or beyond the
// 32-bit range once in milliseconds (ffmpeg hands frames without a
// timestamp over as about -3.7e20).
bool MapTime(double time, TimeUnit unit, HostTime* out);

// Frames per second of the frame counter that stands in for missing
// timestamps: TARVO_RIPPLE_FRAME_RATE when set (a number above 0; *error
// says when it is not), else 25.
constexpr double kDefaultFrameRate = 25;
double FallbackFrameRate(std::string* error);

// Frame n (0-based) of a counter at rate frames per second: n × 1000 / rate
// milliseconds, rounded to nearest, held to the 32-bit range.
HostTime CountedTime(int64_t frame, double rate);

}  // namespace tarvo::frei0r
