// Digests of renders over a broad sweep of parameters, for proving that a
// speed-up leaves every output byte as it was: run it on the module before
// and after the change and compare the two listings (scripts/bench.sh
// --digest does both). Each line: the render's number, its frame size, its
// parameter values in the host's units, its quality and time, and the
// FNV-1a hash of the output pixels (plus the message, if any).
//
// Usage: tarvo_render_digest [--module PATH] [--count N] [--threads N]
// (--threads: the render threads asked of the module, default 1; the
// listing must not depend on it).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <string>

#include "bench_cases.h"
#include "host.h"

namespace tarvo::bench {
namespace {

uint64_t Fnv1a(const host::Image& img) {
  uint64_t h = 1469598103934665603ull;
  for (int32_t y = 0; y < img.height; ++y) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(img.Row(y));
    for (int32_t i = 0; i < img.width * 4; ++i) h = (h ^ p[i]) * 1099511628211ull;
  }
  return h;
}

struct Sweep {
  host::Host& host;
  int number = 0;

  void Render(const host::Image& input, const std::string& what) {
    host::Image out(input.width, input.height);
    const PF_Err err = host.Render(input, out);
    printf("%d %dx%d %s err=%d hash=%016llx %s\n", number++, input.width, input.height, what.c_str(),
           static_cast<int>(err), static_cast<unsigned long long>(Fnv1a(out)), host.ErrorMessage().c_str());
  }
};

// A value from a list of edges and interesting points, or uniform between
// lo and hi, rounded to 1/64 so that the listing shows it exactly.
double Pick(std::mt19937& rng, double lo, double hi) {
  std::uniform_int_distribution<int> kind(0, 9);
  const int k = kind(rng);
  if (k == 0) return lo;
  if (k == 1) return hi;
  std::uniform_real_distribution<double> u(lo, hi);
  return static_cast<double>(static_cast<int64_t>(u(rng) * 64)) / 64;
}

}  // namespace
}  // namespace tarvo::bench

int main(int argc, char** argv) {
  using namespace tarvo;
  using namespace tarvo::bench;
  std::string modulePath;
  int count = 3000;
  int threads = 1;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--module") == 0 && i + 1 < argc) {
      modulePath = argv[++i];
    } else if (strcmp(argv[i], "--count") == 0 && i + 1 < argc) {
      count = atoi(argv[++i]);
    } else if (strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
      threads = atoi(argv[++i]);
    } else {
      fprintf(stderr, "usage: tarvo_render_digest [--module PATH] [--count N] [--threads N]\n");
      return 2;
    }
  }
  std::string error;
  auto module = modulePath.empty() ? host::Module::LoadBuilt(&error) : host::Module::Load(modulePath, &error);
  if (!module) {
    fprintf(stderr, "cannot load the module: %s\n", error.c_str());
    return 1;
  }
  module->RequestThreads(threads);
  host::Host h(module->Entry());
  if (h.GlobalSetup() != PF_Err_NONE || h.ParamsSetup() != PF_Err_NONE) {
    fprintf(stderr, "the module's set-up failed\n");
    return 1;
  }
  Sweep sweep{h};

  // The benchmark cases at every benchmark size.
  for (const FrameSize& size : FrameSizes()) {
    const host::Image input = TestPicture(size.width, size.height);
    for (const BenchCase& c : Cases()) {
      c.Apply(h);
      sweep.Render(input, c.name);
    }
  }

  // Random parameter sets on small frames of even and odd sizes, with the
  // centre anywhere (also outside the frame), both qualities and a moving
  // time.
  const FrameSize smallSizes[] = {{64, 48}, {97, 61}, {33, 100}, {320, 240}, {7, 5}};
  std::mt19937 rng(20240611);
  for (int n = 0; n < count; ++n) {
    const FrameSize size = smallSizes[n % 5 == 4 ? (n / 5) % 5 : n % 4];
    const host::Image input = TestPicture(size.width, size.height);
    h.SetParamsToDefaults();
    std::uniform_int_distribution<int> popup(1, 24);
    auto p = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const double radius = Pick(rng, 0, 100), waveHeight = Pick(rng, 0, 25), angular = Pick(rng, 0, 25),
                 waveWidth = Pick(rng, 0, 50), frequency = Pick(rng, -150, 150), chaosBlend = Pick(rng, 0, 100),
                 chaos = Pick(rng, 10, 140), phase = Pick(rng, -720, 720);
    const int waveform = popup(rng), intensity = p(1, 3), twirl = p(1, 4), pinMode = p(1, 11), antialias = p(1, 3);
    // Stretch: unstretched, barely, or anything; angles on and off the axes.
    const int stretchKind = p(0, 3);
    const double stretch = stretchKind == 0 ? 0 : stretchKind == 1 ? Pick(rng, -0.2, 0.2) : Pick(rng, -100, 100);
    const int angleKind = p(0, 2);
    const double stretchAngle = angleKind == 0 ? 90.0 * p(-4, 4) : Pick(rng, -400, 400);
    const double cx = Pick(rng, -0.5, 1.5) * size.width, cy = Pick(rng, -0.5, 1.5) * size.height;
    const bool centred = p(0, 2) == 0;
    const bool high = p(0, 3) != 0;
    const int32_t time = p(0, 3) == 0 ? p(0, 90) : 0;

    auto fixed = [](double v) { return static_cast<PF_Fixed>(v * 65536.0); };
    h.Param(1).u.fd.value = fixed(radius);
    if (!centred) {
      h.Param(2).u.td.x_value = fixed(cx);
      h.Param(2).u.td.y_value = fixed(cy);
    }
    h.Param(3).u.fd.value = fixed(waveHeight);
    h.Param(4).u.fd.value = fixed(angular);
    h.Param(5).u.fd.value = fixed(waveWidth);
    h.Param(6).u.pd.value = waveform;
    h.Param(7).u.fd.value = fixed(frequency);
    h.Param(8).u.pd.value = intensity;
    h.Param(9).u.fd.value = fixed(stretch);
    h.Param(10).u.ad.value = fixed(stretchAngle);
    h.Param(11).u.pd.value = twirl;
    h.Param(12).u.pd.value = pinMode;
    h.Param(13).u.pd.value = antialias;
    h.Param(14).u.fd.value = fixed(chaosBlend);
    h.Param(15).u.fd.value = fixed(chaos);
    h.Param(16).u.ad.value = fixed(phase);
    h.SetQuality(high ? PF_Quality_HI : PF_Quality_LO);
    h.SetTime(time, 1, 30);
    char what[512];
    snprintf(
        what, sizeof what,
        "r=%g c=%s%g,%g wh=%g awh=%g ww=%g wf=%d f=%g i=%d s=%g sa=%g tw=%d pin=%d aa=%d cb=%g ch=%g ph=%g q=%s t=%d",
        radius, centred ? "default:" : "", centred ? 0.0 : cx, centred ? 0.0 : cy, waveHeight, angular, waveWidth,
        waveform, frequency, intensity, stretch, stretchAngle, twirl, pinMode, antialias, chaosBlend, chaos, phase,
        high ? "hi" : "lo", time);
    sweep.Render(input, what);
  }
  h.SetTime(0, 1, 30);
  return 0;
}
