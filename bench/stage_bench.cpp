// The render's stages timed one by one on plain images, linked from the
// static layers: the tables of the frame (ripple wave, pin profiles), the
// renderer's set-up (its buffers and the field), the field alone, the
// spreading into the source map, the pinning and the resampling, and the
// whole driver for comparison. Before timing anything, the stages put
// together are checked against the module's own render, byte for byte.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench_cases.h"
#include "chaos.h"
#include "geometry.h"
#include "host.h"
#include "output_stage.h"
#include "pixel_image.h"
#include "render_ripple.h"
#include "ripple_renderer.h"
#include "wave_table.h"

namespace tarvo::bench {
namespace {

RippleSettings Settings(const DriverInputs& in) {
  return {.waveHeight = in.waveHeight,
          .angularWaveHeight = in.angularHeight,
          .waveWidth = in.waveWidth,
          .radius = in.radius,
          .stretch = in.stretch,
          .stretchAngle = in.stretchAngle,
          .phase = in.phase,
          .waveform = in.waveform,
          .pinMode = in.pinMode,
          .twirl = in.twirl,
          .centreX = in.centreX,
          .centreY = in.centreY,
          .chaos = in.chaos,
          .antialias = in.antialias,
          .chaosBlend = in.chaosBlend,
          .quality = in.quality,
          .intensity = in.intensity};
}

// The frame's tables, as the driver prepares them.
void PrepareTables(const DriverInputs& in, WaveTable& rippleWave) {
  g_arcTanTable.Build();
  g_sineTable.Build(kSine, false);
  if (in.chaosBlend > 0.0f) {
    BuildRippleWave(rippleWave, static_cast<uint32_t>(in.waveform), in.chaos, in.chaosBlend);
  } else {
    rippleWave.Build(static_cast<uint32_t>(in.waveform), true);
  }
}

// One frame taken through the driver's steps by hand, up to a filled (and
// not yet pinned) source map.
class Pipeline {
 public:
  Pipeline(const BenchCase& c, FrameSize size)
      : in_(c.Inputs()),
        size_(size),
        input_(TestPicture(size.width, size.height)),
        output_(size.width, size.height),
        src_(static_cast<int16_t>(size.width), static_cast<int16_t>(size.height), input_.data.data(), AllRows),
        dst_(static_cast<int16_t>(size.width), static_cast<int16_t>(size.height), output_.data.data(), AllRows) {
    settings_ = ToRendererSettings(Settings(in_), size.width, size.height);
    mode_ = ChooseSamplingMode(in_.quality, in_.antialias);
    PrepareTables(in_, wave_);
    setup_ = RenderSetup{&src_, size.width, size.height, mode_, kTransparentBlack};
    if (pins_.ok) Build();
  }
  ~Pipeline() { delete renderer_; }

  bool ok() const { return pins_.ok && renderer_ && renderer_->ready && !renderer_->aborted; }
  // A new renderer: buffers allocated, field computed.
  void Build() {
    delete renderer_;
    renderer_ = new RippleRenderer(setup_, settings_, wave_);
  }
  RippleRenderer& renderer() { return *renderer_; }
  SourceMap& map() { return *renderer_->sourceMap; }
  void Pin() {
    if (in_.pinMode != 0) PinSourceMap(map(), pins_);
  }
  void Resample() { ResampleOutput(map(), dst_); }
  const host::Image& input() const { return input_; }
  const host::Image& output() const { return output_; }
  host::Image& output() { return output_; }
  const PixelImage& source() const { return src_; }
  PixelImage& destination() { return dst_; }
  const DriverInputs& inputs() const { return in_; }
  size_t MapBytes() const { return static_cast<size_t>(size_.width + 1) * (size_.height + 1) * sizeof(MapPoint); }

 private:
  DriverInputs in_;
  FrameSize size_;
  host::Image input_, output_;
  PixelImage src_, dst_;
  int32_t mode_ = 0;
  RendererSettings settings_{};
  RenderSetup setup_{};
  WaveTable wave_{};
  PinProfiles pins_{in_.pinMode, size_.height + 1, size_.width + 1};
  RippleRenderer* renderer_ = nullptr;
};

void SetPixels(benchmark::State& state, FrameSize size) {
  state.SetItemsProcessed(state.iterations() * size.width * size.height);
}

void TablesStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  const DriverInputs in = c.Inputs();
  WaveTable wave{};
  for (auto _ : state) {
    PrepareTables(in, wave);
    const PinProfiles pins(in.pinMode, size.height + 1, size.width + 1);
    benchmark::DoNotOptimize(pins.columns);
    benchmark::ClobberMemory();
  }
}

void SetupStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  for (auto _ : state) p.Build();
  SetPixels(state, size);
}

void FieldStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  for (auto _ : state) {
    p.renderer().ComputeField();
    benchmark::ClobberMemory();
  }
  SetPixels(state, size);
}

void SpreadStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  for (auto _ : state) {
    p.renderer().SpreadField();
    benchmark::ClobberMemory();
  }
  SetPixels(state, size);
}

// Pinning changes the map in place; its cost does not depend on the
// values, so it is simply repeated on the same map.
void PinStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  p.renderer().SpreadField();
  for (auto _ : state) {
    p.Pin();
    benchmark::ClobberMemory();
  }
  SetPixels(state, size);
}

void ResampleStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  p.renderer().SpreadField();
  p.Pin();
  for (auto _ : state) {
    p.Resample();
    benchmark::DoNotOptimize(p.output().data.data());
    benchmark::ClobberMemory();
  }
  SetPixels(state, size);
}

// The whole driver (tables, buffers, field, spreading, pinning,
// resampling, release) on plain images, without the host's entry point.
void DriverStage(benchmark::State& state, const BenchCase& c, FrameSize size) {
  Pipeline p(c, size);
  const DriverInputs& in = p.inputs();
  for (auto _ : state) {
    RenderRipple(p.source(), p.destination(), Settings(in));
    benchmark::DoNotOptimize(p.output().data.data());
    benchmark::ClobberMemory();
  }
  SetPixels(state, size);
}

// The stages put together must give the module's render exactly, or the
// breakdown would time something else.
bool CheckAgainstModule(const FrameSize& size) {
  std::string error;
  auto module = host::Module::LoadBuilt(&error);
  if (!module) {
    fprintf(stderr, "cannot load the module: %s\n", error.c_str());
    return false;
  }
  host::Host h(module->Entry());
  if (h.GlobalSetup() != PF_Err_NONE || h.ParamsSetup() != PF_Err_NONE) return false;
  bool all = true;
  for (const BenchCase& c : Cases()) {
    Pipeline p(c, size);
    if (!p.ok()) {
      fprintf(stderr, "%s %s: the stages could not run\n", c.name.c_str(), size.Name().c_str());
      all = false;
      continue;
    }
    p.renderer().SpreadField();
    p.Pin();
    p.Resample();
    host::Image expected(size.width, size.height);
    c.Apply(h);
    if (h.Render(p.input(), expected) != PF_Err_NONE || !h.ErrorMessage().empty() || expected.data != p.output().data) {
      fprintf(stderr, "%s %s: the stages differ from the module's render\n", c.name.c_str(), size.Name().c_str());
      all = false;
    }
  }
  return all;
}

// The source map of the default case at 1920x1080, pinned, as the source
// position each output pixel is taken from: P(y, x) where the resampling
// samples it, the pixel's own position where it copies the source. Written
// as "TARVOMAP width height\n" and then, row by row, (column, row) pairs
// of floats in the machine's byte order: the map OpenCV's remap reads
// (pixel centres at whole coordinates, as the bilinear sampler's).
bool WriteMap(const char* path) {
  const FrameSize size{1920, 1080};
  Pipeline p(Cases()[0], size);
  if (!p.ok()) return false;
  p.renderer().SpreadField();
  p.Pin();
  const SourceMap& map = p.map();
  std::vector<float> row(2 * static_cast<size_t>(size.width));
  FILE* f = fopen(path, "wb");
  if (!f) return false;
  bool ok = fprintf(f, "TARVOMAP %d %d\n", size.width, size.height) > 0;
  for (int32_t y = 0; y < size.height && ok; ++y) {
    int32_t first = 0, last = -1;
    if (map.rowWritten[y] && map.rowWritten[y + 1]) {
      first = std::max({map.rowFirst[y], map.rowFirst[y + 1], 0});
      last = std::min({map.rowLast[y], map.rowLast[y + 1], map.cols - 1});
    }
    for (int32_t x = 0; x < size.width; ++x) {
      const bool sampled = x >= first && x < last;
      const MapPoint& m = map.At(y, x);
      row[2 * x] = sampled ? m.column : static_cast<float>(x);
      row[2 * x + 1] = sampled ? m.row : static_cast<float>(y);
    }
    ok = fwrite(row.data(), sizeof(float), row.size(), f) == row.size();
  }
  return fclose(f) == 0 && ok;
}

}  // namespace
}  // namespace tarvo::bench

int main(int argc, char** argv) {
  using namespace tarvo::bench;
  // --write-map PATH: writes the default case's source map and exits.
  if (argc == 3 && strcmp(argv[1], "--write-map") == 0) {
    if (WriteMap(argv[2])) return 0;
    fprintf(stderr, "cannot write the source map to %s\n", argv[2]);
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  bool verify = true;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--no-verify") == 0) {
      verify = false;
      for (int k = i; k + 1 < argc; ++k) argv[k] = argv[k + 1];
      --argc;
      --i;
    }
  }
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (verify && !CheckAgainstModule(FrameSizes()[0])) return 1;

  using Stage = void (*)(benchmark::State&, const BenchCase&, FrameSize);
  const struct {
    const char* name;
    Stage run;
  } stages[] = {{"tables", TablesStage},    {"setup", SetupStage}, {"field", FieldStage},
                {"spreading", SpreadStage}, {"pinning", PinStage}, {"resampling", ResampleStage},
                {"driver", DriverStage}};
  for (const BenchCase& c : Cases()) {
    for (const FrameSize& size : FrameSizes()) {
      for (const auto& stage : stages) {
        const Stage run = stage.run;
        benchmark::RegisterBenchmark(("stage/" + c.name + "/" + size.Name() + "/" + stage.name).c_str(),
                                     [&c, size, run](benchmark::State& s) { run(s, c, size); })
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
      }
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
