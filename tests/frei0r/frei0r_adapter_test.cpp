// The frei0r filter driven through its exported f0r_* functions, as ffmpeg
// and MLT drive it, checked against the in-process host rendering the same
// frames with the parameters set in the plug-in's own units. Inside ffmpeg
// and melt themselves: e2e.sh.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <random>
#include <set>
#include <thread>

extern "C" {
#include <frei0r.h>
}

#include "param_map.h"
#include "reference.h"

namespace {

using namespace tarvo;

// The filter, loaded and initialised once as a host does; F0R(f0r_update)
// is its f0r_update.
void* Filter() {
  static void* handle = [] {
    void* h = dlopen(TARVO_FREI0R_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (auto init = h ? reinterpret_cast<decltype(&f0r_init)>(dlsym(h, "f0r_init")) : nullptr) init();
    return h;
  }();
  return handle;
}
#define F0R(fn) reinterpret_cast<decltype(&fn)>(dlsym(Filter(), #fn))

// frei0r parameter indices.
enum : int {
  kRadius,
  kCenterX,
  kCenterY,
  kWaveHeight,
  kAngularHeight,
  kWaveWidth,
  kWaveForm,
  kFrequency,
  kIntensity,
  kStretch,
  kStretchAngle,
  kTwirl,
  kPinMode,
  kAntialias,
  kChaosBlend,
  kChaos,
  kPhase,
  kDraft,
  kCount
};

using Frame = std::vector<uint8_t>;  // RGBA bytes

Frame RandomFrame(int w, int h, unsigned seed) {
  std::mt19937 rng(seed);
  Frame f(static_cast<size_t>(w) * h * 4);
  for (auto& b : f) b = static_cast<uint8_t>(rng());
  return f;
}

class Instance {
 public:
  Instance(int w, int h, std::initializer_list<std::pair<int, double>> values = {}) : inst_(F0R(f0r_construct)(w, h)) {
    for (auto [index, v] : values) Set(index, v);
  }
  ~Instance() {
    if (inst_) F0R(f0r_destruct)(inst_);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  bool ok() const { return inst_ != nullptr; }
  void Set(int index, double v) { F0R(f0r_set_param_value)(inst_, &v, index); }
  double Get(int index) {
    double v = -12345;
    F0R(f0r_get_param_value)(inst_, &v, index);
    return v;
  }
  Frame Update(double time, const Frame& in) {
    std::vector<uint32_t> src(in.size() / 4), dst(in.size() / 4);  // frames of whole 32-bit words
    memcpy(src.data(), in.data(), in.size());
    F0R(f0r_update)(inst_, time, src.data(), dst.data());
    Frame out(in.size());
    memcpy(out.data(), dst.data(), out.size());
    return out;
  }

 private:
  f0r_instance_t inst_;
};

// The same frame through the in-process host (reference.h), time in
// milliseconds.
Frame HostRender(const Frame& in, int w, int h, int32_t ms, const std::vector<std::string>& settings) {
  std::string error;
  Frame out = frei0r_test::RenderFrames(in.data(), 1, w, h, ms, 0, settings, &error);
  EXPECT_EQ(error, "");
  return out;
}

class Frei0rTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(Filter(), nullptr) << dlerror(); }
};

TEST_F(Frei0rTest, DescribesAFilterWithEveryParameterAndItsDefault) {
  f0r_plugin_info_t info{};
  F0R(f0r_get_plugin_info)(&info);
  EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
  EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
  EXPECT_EQ(info.frei0r_version, FREI0R_MAJOR_VERSION);
  ASSERT_EQ(info.num_params, kCount);

  Instance inst(64, 48);
  ASSERT_TRUE(inst.ok());
  std::set<std::string> names;
  for (int i = 0; i <= kCount; ++i) {
    f0r_param_info_t p{};
    F0R(f0r_get_param_info)(&p, i);
    ASSERT_NE(p.name, nullptr);
    if (i == kCount) {
      EXPECT_STREQ(p.name, "");  // past the last parameter
      break;
    }
    EXPECT_TRUE(names.insert(p.name).second) << "duplicate name " << p.name;
    EXPECT_EQ(p.type, i == kDraft ? F0R_PARAM_BOOL : F0R_PARAM_DOUBLE) << p.name;
    // The default an editor states is the value the instance starts with.
    const char* stated = p.explanation ? strstr(p.explanation, "Default ") : nullptr;
    ASSERT_NE(stated, nullptr) << p.name;
    EXPECT_NEAR(inst.Get(i), atof(stated + 8), 5e-5) << p.name << ": " << p.explanation;
  }
}

// Each frei0r value maps onto the plug-in's own: the instances' renders
// equal the in-process host's with the values as the controls show them.
// Renders of three instances interleave, so nothing of one leaks into another.
TEST_F(Frei0rTest, InstancesRenderAsThePluginWithTheirOwnParameters) {
  // a: every popup away from its default, sliders at exact points of their
  // ranges: Radius 40, centre (24, 48) px, Wave Width 5, Square (entry 3),
  // Frequency 30, Super, Stretch 20 at 45°, Twirl, Pin Top (the fifth of
  // nine entries, menu value 6), Med.
  Instance a(96, 64,
             {{kRadius, 0.4},
              {kCenterX, 0.25},
              {kCenterY, 0.75},
              {kWaveWidth, 0.1},
              {kWaveForm, 0.1},
              {kFrequency, 0.6},
              {kIntensity, 0.9},
              {kStretch, 0.6},
              {kStretchAngle, 0.125},
              {kTwirl, 0.3},
              {kPinMode, 0.5},
              {kAntialias, 0.5}});
  // b: the ends of the ranges, chaos, phase and draft: Radius 30, Wave
  // Height 25, Angular 10, entry 24, Pin Vertical (menu value 11), Low,
  // Chaos Blend 50, Chaos 75, Phase 90°, Draft 0.5 (already true).
  Instance b(77, 51,
             {{kRadius, 0.3},
              {kWaveHeight, 1.0},
              {kAngularHeight, 0.4},
              {kWaveForm, 1.0},
              {kPinMode, 1.0},
              {kAntialias, 1.0},
              {kChaosBlend, 0.5},
              {kChaos, 0.5},
              {kPhase, 0.25},
              {kDraft, 0.5}});
  Instance defaults(77, 51);
  ASSERT_TRUE(a.ok() && b.ok() && defaults.ok());
  const Frame inA = RandomFrame(96, 64, 11), inB = RandomFrame(77, 51, 12);
  const Frame a1 = a.Update(0.12, inA), b1 = b.Update(0.5, inB), d1 = defaults.Update(0, inB);
  EXPECT_EQ(a1, HostRender(inA, 96, 64, 120,
                           {"1=40", "2=24,48", "5=5", "6=3", "7=30", "8=3", "9=20", "10=45", "11=2", "12=6", "13=2"}));
  EXPECT_EQ(b1, HostRender(inB, 77, 51, 500,
                           {"1=30", "3=25", "4=10", "6=24", "12=11", "13=3", "14=50", "15=75", "16=90", "draft"}));
  EXPECT_EQ(d1, HostRender(inB, 77, 51, 0, {}));
  EXPECT_EQ(a.Update(0.12, inA), a1);
}

// This process is neither ffmpeg nor MLT: times are seconds unless
// TARVO_RIPPLE_TIME_UNIT says otherwise; either way the plug-in sees whole
// milliseconds.
TEST_F(Frei0rTest, TimeIsWholeMillisecondsInEitherUnit) {
  const Frame in = RandomFrame(64, 48, 3);
  Instance s(64, 48, {{kFrequency, 0.55}});  // 15 periods per second
  setenv("TARVO_RIPPLE_TIME_UNIT", "ms", 1);
  Instance ms(64, 48, {{kFrequency, 0.55}});
  unsetenv("TARVO_RIPPLE_TIME_UNIT");
  ASSERT_TRUE(s.ok() && ms.ok());
  const Frame expected = HostRender(in, 64, 48, 1234, {"7=15"});
  EXPECT_EQ(s.Update(1.234, in), expected);
  EXPECT_EQ(s.Update(1.2344, in), expected);  // rounded to the nearest millisecond
  EXPECT_EQ(ms.Update(1234.0, in), expected);
}

TEST_F(Frei0rTest, FramesTooLargeForTheEffectPassThroughWithOneWarning) {
  testing::internal::CaptureStderr();
  Instance wide(4096, 8), wide2(5000, 8), tall(8, 32768);
  const std::string err = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(wide.ok() && wide2.ok() && tall.ok());
  const size_t first = err.find("passed through unchanged");
  EXPECT_TRUE(first != std::string::npos && err.find("passed through unchanged", first + 1) == std::string::npos)
      << err;
  const Frame in = RandomFrame(4096, 8, 6), inTall = RandomFrame(8, 32768, 6), in2 = RandomFrame(4095, 8, 8);
  EXPECT_EQ(wide.Update(0.0, in), in);
  EXPECT_EQ(tall.Update(0.0, inTall), inTall);
  // The widest frame the effect takes is rendered.
  Instance widest(4095, 8);
  ASSERT_TRUE(widest.ok());
  EXPECT_EQ(widest.Update(0.0, in2), HostRender(in2, 4095, 8, 0, {}));
}

TEST_F(Frei0rTest, BadValuesAndCallsAreRefusedWithoutHarm) {
  EXPECT_EQ(F0R(f0r_construct)(0, 16), nullptr);
  EXPECT_EQ(F0R(f0r_construct)(16, 0), nullptr);
  F0R(f0r_destruct)(nullptr);
  F0R(f0r_update)(nullptr, 0.0, nullptr, nullptr);
  F0R(f0r_update2)(nullptr, 0, nullptr, nullptr, nullptr, nullptr);

  // Each warning in the command line's words, once per process however
  // many instances get the value (melt sets them on more than one).
  struct BadValue {
    int index;
    double given, used;
    const char* warning;
  };
  const BadValue bad[] = {
      {kRadius, NAN, 0.25, "Radius = nan is not a number; using 0.25"},
      {kRadius, 7.0, 1.0, "Radius = 7 is outside the range 0 to 1; using 1"},
      {kPhase, -2.0, 0.0, "Phase = -2 is outside the range 0 to 1; using 0"},
      {kWaveForm, INFINITY, 1.0, "WaveForm = inf is outside the range 0 to 1; using 1"},
  };
  Instance inst(32, 16), twin(32, 16);
  ASSERT_TRUE(inst.ok() && twin.ok());
  testing::internal::CaptureStderr();
  for (const BadValue& b : bad) {
    for (Instance* i : {&inst, &twin, &inst}) i->Set(b.index, b.given);
    EXPECT_EQ(inst.Get(b.index), b.used) << b.warning;
  }
  inst.Set(kCount, 0.5);  // no such parameter
  inst.Set(-1, 0.5);
  EXPECT_EQ(inst.Get(kCount), -12345);
  const std::string err = testing::internal::GetCapturedStderr();
  for (const BadValue& b : bad) {
    const std::string line = std::string("tarvo_ripple: ") + b.warning + "\n";
    const size_t at = err.find(line);
    EXPECT_TRUE(at != std::string::npos && err.find(line, at + 1) == std::string::npos) << line << err;
  }

  // NaN and huge times still render.
  const Frame in = RandomFrame(32, 16, 9);
  Instance plain(32, 16);
  EXPECT_EQ(plain.Update(NAN, in), HostRender(in, 32, 16, 0, {}));
  EXPECT_EQ(plain.Update(1e300, in).size(), in.size());
  EXPECT_EQ(plain.Update(-1e300, in).size(), in.size());

  testing::internal::CaptureStderr();
  setenv("TARVO_RIPPLE_TIME_UNIT", "hours", 1);
  Instance odd(32, 16);
  unsetenv("TARVO_RIPPLE_TIME_UNIT");
  const std::string unitErr = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(odd.ok());
  EXPECT_NE(unitErr.find("TARVO_RIPPLE_TIME_UNIT is \"hours\", not s, seconds, ms or milliseconds; ignored"),
            std::string::npos)
      << unitErr;
}

// ffmpeg drops filter_params values past the last parameter; its command
// line tells how many were given.
TEST(Frei0rSurplus, ValuesPastTheLastParameterAreNamed) {
  const std::string v18 = "0.3|0.5|0.5|0.2|0|0.125|0.0208|0.51|0.5|0.5|0.25|0.125|0.1667|0.1667|0|0|0|n";
  const std::string said =
      "filter_params has 20 values, the filter 18 parameters (Radius to Draft): the last 2 are ignored";
  const struct {
    std::vector<std::string> args;
    std::vector<std::string> warnings;
  } cases[] = {
      {{"ffmpeg", "-vf", "frei0r=filter_name=tarvo_ripple:filter_params=" + v18 + "|1|2"}, {said}},
      {{"ffmpeg", "-vf", "scale=64:48,frei0r=tarvo_ripple:" + v18 + "|1|2,format=rgba"}, {said}},
      {{"ffmpeg", "-vf", "frei0r=tarvo_ripple:'" + v18 + "|1|2'[out]"}, {said}},
      {{"ffmpeg", "-vf", "frei0r=tarvo_ripple:" + v18}, {}},
      {{"ffmpeg", "-vf", "frei0r=other:" + v18 + "|1|2"}, {}},
      {{"ffmpeg", "-vf", "frei0r=tarvo_ripple"}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(frei0r::SurplusValueWarnings(c.args), c.warnings) << c.args[2];
}

TEST_F(Frei0rTest, AMissingPluginModuleIsNamedAndInstancesAreRefused) {
  // With no instance left, deinit lets the module go; the next instance
  // loads it again from TARVO_RIPPLE_MODULE.
  F0R(f0r_deinit)();
  for (const std::string& path : {std::string("/nonexistent/TarvoFXRipple.so"), std::string(TARVO_FREI0R_MODULE)}) {
    setenv("TARVO_RIPPLE_MODULE", path.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(F0R(f0r_construct)(32, 16), nullptr);
    const std::string err = testing::internal::GetCapturedStderr();
    // A library that is not the plug-in (the filter itself) has no "main".
    for (const char* named : {path == TARVO_FREI0R_MODULE ? "main" : path.c_str(), "TARVO_RIPPLE_MODULE"})
      EXPECT_NE(err.find(named), std::string::npos) << err;
  }
  setenv("TARVO_RIPPLE_MODULE", host::Module::BuiltModulePath().c_str(), 1);
  Instance inst(32, 16);
  unsetenv("TARVO_RIPPLE_MODULE");
  EXPECT_TRUE(inst.ok());
  F0R(f0r_init)();
}

// Renders share the plug-in's process-wide state: instances on several
// threads must render what they render one after another.
TEST_F(Frei0rTest, InstancesOnSeveralThreadsMatchSerialRenders) {
  constexpr int kThreads = 4, kFrames = 24, W = 96, H = 64;
  const Frame in = RandomFrame(W, H, 10);
  std::vector<std::unique_ptr<Instance>> insts;
  for (int t = 0; t < kThreads; ++t) {
    insts.push_back(std::make_unique<Instance>(
        W, H, std::initializer_list<std::pair<int, double>>{{kRadius, 0.2 + 0.1 * t}, {kWaveForm, t / 4.0}}));
    ASSERT_TRUE(insts.back()->ok());
  }
  auto timeOf = [](int t, int f) { return 0.01 * (t + 1) * f; };
  std::vector<std::vector<Frame>> serial(kThreads), threaded(kThreads);
  for (int t = 0; t < kThreads; ++t)
    for (int f = 0; f < kFrames; ++f) serial[t].push_back(insts[t]->Update(timeOf(t, f), in));
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int f = 0; f < kFrames; ++f) threaded[t].push_back(insts[t]->Update(timeOf(t, f), in));
    });
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(threaded[t], serial[t]) << "thread " << t;
}

}  // namespace
