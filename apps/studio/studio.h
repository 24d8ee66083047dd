// The studio's host: the plug-in driven through its entry point as every
// host of ours drives it (global set-up, parameter set-up, one render
// command per frame), behind a few C functions the page's worker calls.
//
// Settings are the command line's: option names without the dashes and
// the same value texts, so a page and `tarvo-ripple --demo` given the same
// settings render the same bytes. Pictures cross as straight RGBA, rows
// packed; returned texts live until the next call.
#pragma once

#include <stdint.h>

#if defined(__EMSCRIPTEN__)
#include <emscripten/emscripten.h>
#define STUDIO_API extern "C" EMSCRIPTEN_KEEPALIVE
#else
#define STUDIO_API extern "C"
#endif

// Global and parameter set-up; the declared parameters as
// `tarvo-ripple --list-params --json` prints them, or "error: ...".
STUDIO_API const char* StudioOpen();
// The input becomes the built-in demo picture at width × height; "" or why not.
STUDIO_API const char* StudioUseDemo(int32_t width, int32_t height);
// "" when a width × height picture can be rendered, else why not, in the
// command line's words to follow the picture's name ("is 5000x10, larger ...").
STUDIO_API const char* StudioCheckSize(int32_t width, int32_t height);
// Room for a width × height RGBA input (null when too large); the caller
// fills it, then StudioUseInputBuffer makes it the input.
STUDIO_API uint8_t* StudioInputBuffer(int32_t width, int32_t height);
STUDIO_API const char* StudioUseInputBuffer();
// Renders the input with settings given as "name=value" lines (parameters,
// time, time-step, time-scale, quality); "" or the message to show.
STUDIO_API const char* StudioRender(const char* settings);
// The frei0r filter's values (ffmpeg, melt) for the last render's settings,
// as a JSON list of {name, value, exact, changed} in the filter's order.
STUDIO_API const char* StudioFilterValues();
STUDIO_API uint8_t* StudioInputRgba();
STUDIO_API uint8_t* StudioOutputRgba();
STUDIO_API int32_t StudioWidth();
STUDIO_API int32_t StudioHeight();
