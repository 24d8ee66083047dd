// Renders raw RGBA frames through the plug-in with the in-process host, as
// the expected output of the frei0r filter in ffmpeg and melt.
//
//   reference_render IN.rgba OUT.rgba WIDTH HEIGHT MS_PER_FRAME [SETTING...]
//
// Frame n renders at current_time n × MS_PER_FRAME, time_step 1,
// time_scale 1000. SETTINGs as ApplySetting takes them (reference.h).
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>

#include "reference.h"

namespace {

int Fail(const std::string& why) {
  fprintf(stderr, "reference_render: %s\n", why.c_str());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) return Fail("usage: IN.rgba OUT.rgba WIDTH HEIGHT MS_PER_FRAME [INDEX=VALUE...]");
  const int w = atoi(argv[3]), h = atoi(argv[4]), ms = atoi(argv[5]);
  if (w <= 0 || h <= 0) return Fail("bad size");
  std::ifstream in(argv[1], std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t frameBytes = static_cast<size_t>(w) * h * 4;
  if (bytes.empty() || bytes.size() % frameBytes) return Fail(std::string("cannot read whole frames from ") + argv[1]);
  std::string error;
  const std::vector<uint8_t> frames = tarvo::frei0r_test::RenderFrames(
      bytes.data(), bytes.size() / frameBytes, w, h, 0, ms, std::vector<std::string>(argv + 6, argv + argc), &error);
  if (frames.empty()) return Fail(error);
  std::ofstream out(argv[2], std::ios::binary);
  out.write(reinterpret_cast<const char*>(frames.data()), static_cast<std::streamsize>(frames.size()));
  return out ? 0 : Fail(std::string("cannot write ") + argv[2]);
}
