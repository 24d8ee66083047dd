// Renders raw RGBA frames through the plug-in with the in-process host, as
// the expected output of the frei0r filter in ffmpeg and melt.
//
//   reference_render IN.rgba OUT.rgba WIDTH HEIGHT MS_PER_FRAME [SETTING...]
//
// Frame n renders at current_time n × MS_PER_FRAME, time_step 1,
// time_scale 1000. SETTINGs as ApplySetting takes them (reference.h).
#include <stdio.h>

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
  using namespace tarvo;
  if (argc < 6) return Fail("usage: IN.rgba OUT.rgba WIDTH HEIGHT MS_PER_FRAME [INDEX=VALUE...]");
  const int w = atoi(argv[3]), h = atoi(argv[4]), ms = atoi(argv[5]);
  if (w <= 0 || h <= 0) return Fail("bad size");

  std::ifstream in(argv[1], std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t frameBytes = static_cast<size_t>(w) * h * 4;
  if (bytes.empty() || bytes.size() % frameBytes) return Fail(std::string("cannot read whole frames from ") + argv[1]);

  std::string error;
  auto module = host::Module::LoadBuilt(&error);
  if (!module) return Fail(error);
  host::Host host(module->Entry());
  host.GlobalSetup();
  host.ParamsSetup();
  for (int i = 6; i < argc; ++i)
    if (!frei0r_test::ApplySetting(host, argv[i])) return Fail(std::string("bad setting ") + argv[i]);

  std::ofstream out(argv[2], std::ios::binary);
  host::Image src(w, h), dst(w, h);
  for (size_t f = 0; f < bytes.size() / frameBytes; ++f) {
    frei0r_test::RgbaToHost(reinterpret_cast<const uint8_t*>(bytes.data() + f * frameBytes), src);
    host.SetTime(static_cast<int32_t>(f) * ms, 1, 1000);
    if (PF_Err err = host.Render(src, dst); err || !host.ErrorMessage().empty())
      return Fail("render failed: " + std::to_string(err) + " " + host.ErrorMessage());
    const std::vector<uint8_t> frame = frei0r_test::HostToRgba(dst);
    out.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
  }
  host.GlobalSetdown();
  return out ? 0 : Fail(std::string("cannot write ") + argv[2]);
}
