// The frei0r filter driven through its exported f0r_* functions, as ffmpeg
// and MLT drive it, checked against the in-process host rendering the same
// frames with the parameters set in the plug-in's own units.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <functional>
#include <random>
#include <set>
#include <thread>

extern "C" {
#include <frei0r.h>
}

#include "reference.h"

namespace {

using namespace tarvo;

struct Frei0r {
  void* handle = nullptr;
  int (*init)() = nullptr;
  void (*deinit)() = nullptr;
  void (*pluginInfo)(f0r_plugin_info_t*) = nullptr;
  void (*paramInfo)(f0r_param_info_t*, int) = nullptr;
  f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
  void (*destruct)(f0r_instance_t) = nullptr;
  void (*set)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*get)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;
  void (*update2)(f0r_instance_t, double, const uint32_t*, const uint32_t*, const uint32_t*, uint32_t*) = nullptr;
};

template <typename F>
void Resolve(void* h, const char* name, F* fn) {
  *fn = reinterpret_cast<F>(dlsym(h, name));
  ASSERT_NE(*fn, nullptr) << "tarvo_ripple.so does not export " << name;
}

Frei0r& Api() {
  static Frei0r api = [] {
    Frei0r a;
    a.handle = dlopen(TARVO_FREI0R_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (!a.handle) return a;
    Resolve(a.handle, "f0r_init", &a.init);
    Resolve(a.handle, "f0r_deinit", &a.deinit);
    Resolve(a.handle, "f0r_get_plugin_info", &a.pluginInfo);
    Resolve(a.handle, "f0r_get_param_info", &a.paramInfo);
    Resolve(a.handle, "f0r_construct", &a.construct);
    Resolve(a.handle, "f0r_destruct", &a.destruct);
    Resolve(a.handle, "f0r_set_param_value", &a.set);
    Resolve(a.handle, "f0r_get_param_value", &a.get);
    Resolve(a.handle, "f0r_update", &a.update);
    Resolve(a.handle, "f0r_update2", &a.update2);
    a.init();
    return a;
  }();
  return api;
}

// frei0r parameter indices.
enum : int {
  kRadius, kCenterX, kCenterY, kWaveHeight, kAngularHeight, kWaveWidth, kWaveForm, kFrequency, kIntensity,
  kStretch, kStretchAngle, kTwirl, kPinMode, kAntialias, kChaosBlend, kChaos, kPhase, kDraft, kCount
};

using Frame = std::vector<uint8_t>;

Frame RandomFrame(int w, int h, unsigned seed) {
  std::mt19937 rng(seed);
  Frame f(static_cast<size_t>(w) * h * 4);
  for (auto& b : f) b = static_cast<uint8_t>(rng());
  return f;
}

// A frei0r instance; frames are RGBA bytes.
class Instance {
 public:
  Instance(int w, int h) : w_(w), h_(h), inst_(Api().construct(w, h)) {}
  ~Instance() {
    if (inst_) Api().destruct(inst_);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  bool ok() const { return inst_ != nullptr; }
  void Set(int index, double v) { Api().set(inst_, &v, index); }
  double Get(int index) {
    double v = -12345;
    Api().get(inst_, &v, index);
    return v;
  }
  Frame Update(double time, const Frame& in) {
    // frei0r frames are 16-byte aligned.
    std::vector<uint32_t> src(in.size() / 4), dst(in.size() / 4);
    memcpy(src.data(), in.data(), in.size());
    Api().update(inst_, time, src.data(), dst.data());
    Frame out(in.size());
    memcpy(out.data(), dst.data(), out.size());
    return out;
  }

 private:
  int w_, h_;
  f0r_instance_t inst_;
};

// The same frame through the in-process host: settings as ApplySetting
// takes them, time in milliseconds.
Frame HostRender(const Frame& in, int w, int h, int32_t ms, const std::vector<std::string>& settings) {
  std::string error;
  auto module = host::Module::LoadBuilt(&error);
  EXPECT_TRUE(module) << error;
  if (!module) return {};
  host::Host host(module->Entry());
  host.GlobalSetup();
  host.ParamsSetup();
  for (const auto& s : settings) EXPECT_TRUE(frei0r_test::ApplySetting(host, s)) << s;
  host.SetTime(ms, 1, 1000);
  host::Image src(w, h), dst(w, h);
  frei0r_test::RgbaToHost(in.data(), src);
  EXPECT_EQ(host.Render(src, dst), PF_Err_NONE);
  EXPECT_EQ(host.ErrorMessage(), "");
  host.GlobalSetdown();
  return frei0r_test::HostToRgba(dst);
}

// True once the renderer is in: the default ripple changes a detailed frame.
bool RendererActive() {
  const Frame in = RandomFrame(64, 48, 1);
  return HostRender(in, 64, 48, 0, {}) != in;
}

class Frei0rTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(Api().handle, nullptr) << dlerror(); }
};

// ---------------------------------------------------------------------------

TEST_F(Frei0rTest, DescribesAFilterWithEveryParameterAndItsDefault) {
  f0r_plugin_info_t info{};
  Api().pluginInfo(&info);
  EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
  EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
  EXPECT_EQ(info.frei0r_version, FREI0R_MAJOR_VERSION);
  ASSERT_EQ(info.num_params, kCount);

  Instance inst(64, 48);
  ASSERT_TRUE(inst.ok());
  std::set<std::string> names;
  for (int i = 0; i < info.num_params; ++i) {
    f0r_param_info_t p{};
    Api().paramInfo(&p, i);
    ASSERT_NE(p.name, nullptr);
    EXPECT_TRUE(names.insert(p.name).second) << "duplicate name " << p.name;
    EXPECT_EQ(p.type, i == kDraft ? F0R_PARAM_BOOL : F0R_PARAM_DOUBLE) << p.name;
    // The default an editor states is the value the instance starts with.
    const char* stated = p.explanation ? strstr(p.explanation, "Default ") : nullptr;
    ASSERT_NE(stated, nullptr) << p.name;
    EXPECT_NEAR(inst.Get(i), atof(stated + 8), 5e-5) << p.name << ": " << p.explanation;
  }
  f0r_param_info_t none{};
  Api().paramInfo(&none, kCount);
  EXPECT_STREQ(none.name, "");
}

TEST_F(Frei0rTest, StartsAtThePluginsDeclaredDefaults) {
  for (auto [w, h] : {std::pair{64, 48}, std::pair{77, 51}}) {
    Instance inst(w, h);
    ASSERT_TRUE(inst.ok());
    const Frame in = RandomFrame(w, h, 7);
    EXPECT_EQ(inst.Update(0.0, in), HostRender(in, w, h, 0, {})) << w << "x" << h;
  }
}

TEST_F(Frei0rTest, TwoInstancesRenderTheirOwnParameters) {
  Instance a(96, 64), b(77, 51);
  ASSERT_TRUE(a.ok() && b.ok());
  // a: every popup away from its default, sliders at exact points of their ranges.
  a.Set(kRadius, 0.4);         // 40
  a.Set(kCenterX, 0.25);       // 24 px
  a.Set(kCenterY, 0.75);       // 48 px
  a.Set(kWaveWidth, 0.1);      // 5
  a.Set(kWaveForm, 0.1);       // entry 3, Square
  a.Set(kFrequency, 0.6);      // 30
  a.Set(kIntensity, 0.9);      // Super
  a.Set(kStretch, 0.6);        // 20
  a.Set(kStretchAngle, 0.125); // 45 degrees
  a.Set(kTwirl, 0.3);          // Twirl
  a.Set(kPinMode, 0.5);        // fifth of nine: Pin Top, menu value 6
  a.Set(kAntialias, 0.5);      // Med
  const std::vector<std::string> aHost = {"1=40", "2=24,48", "5=5", "6=3", "7=30", "8=3",
                                          "9=20", "10=45", "11=2", "12=6", "13=2"};
  // b: the ends of the ranges, chaos, phase and draft quality.
  b.Set(kRadius, 0.3);         // 30
  b.Set(kWaveHeight, 1.0);     // 25
  b.Set(kAngularHeight, 0.4);  // 10
  b.Set(kWaveForm, 1.0);       // entry 24
  b.Set(kPinMode, 1.0);        // Pin Vertical, menu value 11
  b.Set(kAntialias, 1.0);      // Low
  b.Set(kChaosBlend, 0.5);     // 50
  b.Set(kChaos, 0.5);          // 75
  b.Set(kPhase, 0.25);         // 90 degrees
  b.Set(kDraft, 1.0);
  const std::vector<std::string> bHost = {"1=30", "3=25", "4=10", "6=24", "12=11", "13=3",
                                          "14=50", "15=75", "16=90", "draft"};

  const Frame inA = RandomFrame(96, 64, 11), inB = RandomFrame(77, 51, 12);
  // Interleaved, so that nothing of one render leaks into the other.
  const Frame a1 = a.Update(0.12, inA);
  const Frame b1 = b.Update(0.5, inB);
  const Frame a2 = a.Update(0.12, inA);
  EXPECT_EQ(a1, HostRender(inA, 96, 64, 120, aHost));
  EXPECT_EQ(b1, HostRender(inB, 77, 51, 500, bHost));
  EXPECT_EQ(a1, a2);
  if (RendererActive()) {
    EXPECT_NE(a1, HostRender(inA, 96, 64, 120, {})) << "a's parameters had no effect";
  }
}

TEST_F(Frei0rTest, TimeIsWholeMillisecondsInEitherUnit) {
  const Frame in = RandomFrame(64, 48, 3);
  Instance s(64, 48);  // this process is neither ffmpeg nor MLT: seconds
  ASSERT_TRUE(s.ok());
  s.Set(kFrequency, 0.55);  // 15 periods per second
  setenv("TARVO_RIPPLE_TIME_UNIT", "ms", 1);
  Instance ms(64, 48);
  unsetenv("TARVO_RIPPLE_TIME_UNIT");
  ASSERT_TRUE(ms.ok());
  ms.Set(kFrequency, 0.55);

  const Frame expected = HostRender(in, 64, 48, 1234, {"7=15"});
  EXPECT_EQ(s.Update(1.234, in), expected);
  EXPECT_EQ(s.Update(1.2344, in), expected);  // rounded to the nearest millisecond
  EXPECT_EQ(ms.Update(1234.0, in), expected);
}

TEST_F(Frei0rTest, RingsMoveOnlyWhenFrequencyIsNotZero) {
  if (!RendererActive()) GTEST_SKIP() << "the plug-in renders a pass-through copy";
  const Frame in = RandomFrame(64, 48, 4);
  Instance moving(64, 48), still(64, 48);
  ASSERT_TRUE(moving.ok() && still.ok());
  still.Set(kFrequency, 0.5);  // 0
  EXPECT_NE(moving.Update(0.0, in), moving.Update(0.04, in));
  EXPECT_NE(moving.Update(0.04, in), moving.Update(0.08, in));
  EXPECT_EQ(still.Update(0.0, in), still.Update(3.21, in));
}

TEST_F(Frei0rTest, RadiusZeroGivesBackTheFrameByteForByte) {
  const Frame in = RandomFrame(40, 24, 5);  // every alpha and colour value
  Instance inst(40, 24);
  ASSERT_TRUE(inst.ok());
  inst.Set(kRadius, 0.0);
  EXPECT_EQ(inst.Update(0.0, in), in);
}

TEST_F(Frei0rTest, FramesTooWideForTheEffectPassThroughWithOneWarning) {
  testing::internal::CaptureStderr();
  Instance wide(4096, 8), wide2(5000, 8), tall(8, 32768);
  const std::string err = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(wide.ok() && wide2.ok() && tall.ok());
  size_t count = 0;
  for (size_t p = err.find("passed through unchanged"); p != std::string::npos;
       p = err.find("passed through unchanged", p + 1))
    ++count;
  EXPECT_EQ(count, 1u) << err;
  const Frame in = RandomFrame(4096, 8, 6);
  EXPECT_EQ(wide.Update(0.0, in), in);
  const Frame inTall = RandomFrame(8, 32768, 6);
  EXPECT_EQ(tall.Update(0.0, inTall), inTall);

  // The widest frame the effect takes is rendered.
  Instance widest(4095, 8);
  ASSERT_TRUE(widest.ok());
  const Frame in2 = RandomFrame(4095, 8, 8);
  EXPECT_EQ(widest.Update(0.0, in2), HostRender(in2, 4095, 8, 0, {}));
}

TEST_F(Frei0rTest, BadValuesAndCallsAreRefusedWithoutHarm) {
  EXPECT_EQ(Api().construct(0, 16), nullptr);
  EXPECT_EQ(Api().construct(16, 0), nullptr);
  Api().destruct(nullptr);
  Api().update(nullptr, 0.0, nullptr, nullptr);

  Instance inst(32, 16);
  ASSERT_TRUE(inst.ok());
  const double radius = inst.Get(kRadius);
  testing::internal::CaptureStderr();
  inst.Set(kRadius, NAN);
  EXPECT_EQ(inst.Get(kRadius), radius);
  inst.Set(kRadius, 7.0);
  EXPECT_EQ(inst.Get(kRadius), 1.0);
  inst.Set(kPhase, -2.0);
  EXPECT_EQ(inst.Get(kPhase), 0.0);
  inst.Set(kCount, 0.5);  // no such parameter
  inst.Set(-1, 0.5);
  EXPECT_EQ(inst.Get(kCount), -12345);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("Radius"), std::string::npos) << err;
  EXPECT_NE(err.find("Phase = -2 is outside 0 to 1"), std::string::npos) << err;

  // A render with null frames does nothing; NaN and huge times still render.
  Api().update2(static_cast<f0r_instance_t>(nullptr), 0, nullptr, nullptr, nullptr, nullptr);
  const Frame in = RandomFrame(32, 16, 9);
  inst.Set(kRadius, 0.25);
  EXPECT_EQ(inst.Update(NAN, in), HostRender(in, 32, 16, 0, {}));
  EXPECT_EQ(inst.Update(1e300, in).size(), in.size());
  EXPECT_EQ(inst.Update(-1e300, in).size(), in.size());

  testing::internal::CaptureStderr();
  setenv("TARVO_RIPPLE_TIME_UNIT", "hours", 1);
  Instance odd(32, 16);
  unsetenv("TARVO_RIPPLE_TIME_UNIT");
  const std::string unitErr = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(odd.ok());
  EXPECT_NE(unitErr.find("TARVO_RIPPLE_TIME_UNIT is \"hours\""), std::string::npos) << unitErr;
}

TEST_F(Frei0rTest, AMissingPluginModuleIsNamedAndInstancesAreRefused) {
  // With no instance left, deinit lets the module go; the next instance
  // loads it again from TARVO_RIPPLE_MODULE.
  Api().deinit();
  setenv("TARVO_RIPPLE_MODULE", "/nonexistent/TarvoFXRipple.so", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Api().construct(32, 16), nullptr);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("/nonexistent/TarvoFXRipple.so"), std::string::npos) << err;
  EXPECT_NE(err.find("TARVO_RIPPLE_MODULE"), std::string::npos) << err;

  // A library that is not the plug-in: the frei0r module itself.
  setenv("TARVO_RIPPLE_MODULE", TARVO_FREI0R_MODULE, 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Api().construct(32, 16), nullptr);
  err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("main"), std::string::npos) << err;

  setenv("TARVO_RIPPLE_MODULE", host::Module::BuiltModulePath().c_str(), 1);
  Instance inst(32, 16);
  unsetenv("TARVO_RIPPLE_MODULE");
  EXPECT_TRUE(inst.ok());
  Api().init();
}

TEST_F(Frei0rTest, InstancesOnSeveralThreadsMatchSerialRenders) {
  constexpr int kThreads = 4, kFrames = 24, W = 96, H = 64;
  const Frame in = RandomFrame(W, H, 10);
  std::vector<std::unique_ptr<Instance>> insts;
  for (int t = 0; t < kThreads; ++t) {
    insts.push_back(std::make_unique<Instance>(W, H));
    ASSERT_TRUE(insts.back()->ok());
    insts.back()->Set(kRadius, 0.2 + 0.1 * t);
    insts.back()->Set(kWaveForm, t / 4.0);
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
