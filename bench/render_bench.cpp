// Whole renders through the module's entry point, driven as a host drives
// it: one render command per iteration, at three frame sizes, for each
// benchmark case. Counters: megapixels per second and the plug-in's peak
// heap use during one render (the host's input and output images are not
// the plug-in's and are not counted).
//
// --threads N[,M...] renders every case at each of these thread counts (the
// module is asked for them, see thread_request.h); names then end in
// /threads:N. Without it, one thread, as a host that does not ask.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench_cases.h"
#include "host.h"

namespace tarvo::bench {
namespace {

struct Session {
  std::unique_ptr<host::Module> module;
  std::unique_ptr<host::Host> host;
};

Session* g_session = nullptr;

void RenderBenchmark(benchmark::State& state, const BenchCase& c, FrameSize size, int threads) {
  if (g_session->module->RequestThreads(threads) != threads) {
    state.SkipWithError("the module does not render on that many threads");
    return;
  }
  host::Host& h = *g_session->host;
  host::ModuleAllocStats* stats = g_session->module->AllocStats();
  const host::Image input = TestPicture(size.width, size.height);
  host::Image output(size.width, size.height);
  c.Apply(h);
  // One render outside the timing builds the process-wide tables.
  if (h.Render(input, output) != PF_Err_NONE || !h.ErrorMessage().empty()) {
    state.SkipWithError(("render failed: " + h.ErrorMessage()).c_str());
    return;
  }
  int64_t peak = 0;
  for (auto _ : state) {
    if (stats) stats->peakBytes = stats->liveBytes;
    const int64_t before = stats ? stats->liveBytes : 0;
    h.Render(input, output);
    if (stats) peak = std::max(peak, stats->peakBytes - before);
    benchmark::DoNotOptimize(output.data.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * size.width * size.height);
  if (stats) state.counters["peak_MiB"] = static_cast<double>(peak) / (1024.0 * 1024.0);
  state.counters["frame_MiB"] = 2.0 * size.width * size.height * 4 / (1024.0 * 1024.0);
}

// The test picture as a PAM file (RGB_ALPHA), for tools that compare
// themselves on the same frame.
bool WritePicture(const char* path, FrameSize size) {
  const host::Image img = TestPicture(size.width, size.height);
  FILE* f = fopen(path, "wb");
  if (!f) return false;
  fprintf(f, "P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n", size.width, size.height);
  std::vector<uint8_t> row(static_cast<size_t>(size.width) * 4);
  bool ok = true;
  for (int32_t y = 0; y < size.height && ok; ++y) {
    const PF_Pixel* p = img.Row(y);
    for (int32_t x = 0; x < size.width; ++x) {
      row[4 * x] = p[x].red;
      row[4 * x + 1] = p[x].green;
      row[4 * x + 2] = p[x].blue;
      row[4 * x + 3] = p[x].alpha;
    }
    ok = fwrite(row.data(), 1, row.size(), f) == row.size();
  }
  return fclose(f) == 0 && ok;
}

}  // namespace
}  // namespace tarvo::bench

int main(int argc, char** argv) {
  using namespace tarvo::bench;
  // --write-picture PATH [WxH]: writes the test picture (default 1920x1080) and exits.
  if (argc >= 3 && strcmp(argv[1], "--write-picture") == 0) {
    FrameSize size{1920, 1080};
    if (argc >= 4 && sscanf(argv[3], "%dx%d", &size.width, &size.height) != 2) {
      fprintf(stderr, "size must be WxH\n");
      return 2;
    }
    if (size.width < 1 || size.height < 1 || size.width > 4095 || size.height > 4095 || !WritePicture(argv[2], size)) {
      fprintf(stderr, "cannot write %s\n", argv[2]);
      return 1;
    }
    return 0;
  }
  std::string error;
  Session session;
  session.module = tarvo::host::Module::LoadBuilt(&error);
  if (!session.module) {
    fprintf(stderr, "cannot load the module: %s\n", error.c_str());
    return 1;
  }
  session.host = std::make_unique<tarvo::host::Host>(session.module->Entry());
  if (session.host->GlobalSetup() != PF_Err_NONE || session.host->ParamsSetup() != PF_Err_NONE) {
    fprintf(stderr, "the module's set-up failed\n");
    return 1;
  }
  g_session = &session;
  std::vector<int> threadCounts{1};
  bool namedThreads = false;
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], "--threads=", 10) != 0) continue;
    threadCounts.clear();
    for (const char* p = argv[i] + 10; *p;) {
      char* end = nullptr;
      const long n = strtol(p, &end, 10);
      if (end == p || n < 1 || n > 64 || (*end != ',' && *end != '\0')) {
        fprintf(stderr, "--threads wants counts from 1 to 64, e.g. --threads=1,2\n");
        return 2;
      }
      threadCounts.push_back(static_cast<int>(n));
      p = *end ? end + 1 : end;
    }
    namedThreads = true;
    for (int k = i; k + 1 < argc; ++k) argv[k] = argv[k + 1];
    --argc;
    --i;
  }
  for (const BenchCase& c : Cases()) {
    for (const FrameSize& size : FrameSizes()) {
      for (const int threads : threadCounts) {
        const std::string suffix = namedThreads ? "/threads:" + std::to_string(threads) : "";
        benchmark::RegisterBenchmark(("render/" + c.name + "/" + size.Name() + suffix).c_str(),
                                     [&c, size, threads](benchmark::State& s) { RenderBenchmark(s, c, size, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
