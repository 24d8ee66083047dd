// tarvo_ripple: a frei0r filter that drives the plug-in module through its
// exported entry point with the project's host library, so its pixels are
// the plug-in's own. Each instance has its own Host; the module is loaded
// once per process, and because the plug-in keeps process-wide state every
// call into it is serialised by one lock.
extern "C" {
#include <frei0r.h>
}
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

#include "host.h"
#include "param_map.h"
#include "time_map.h"

#ifndef TARVO_FREI0R_MODULE_REL
#define TARVO_FREI0R_MODULE_REL ""
#endif

#define F0R_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using namespace tarvo;
using namespace tarvo::frei0r;

// The effect's image model: 16-bit signed sizes, rows of at most 4095 pixels.
constexpr unsigned kMaxWidth = 4095;
constexpr unsigned kMaxHeight = 32767;

std::mutex g_lock;  // guards everything below and every call into the plug-in
std::unique_ptr<host::Module> g_module;
int g_instances = 0;
bool g_warnedTooLarge = false;
bool g_warnedWidth64 = false;

void Say(const std::string& what) { fprintf(stderr, "tarvo_ripple: %s\n", what.c_str()); }

// Says what once per process under key: hosts such as melt set the same
// values on several instances of one filter.
void SayOnce(const std::string& key, const std::string& what) {
  static std::mutex lock;
  static std::set<std::string> said;
  std::lock_guard<std::mutex> guard(lock);
  if (said.insert(key).second) Say(what);
}

// ffmpeg's own command line, where the filter's values were given.
std::vector<std::string> ProcessArguments() {
  std::vector<std::string> args;
  FILE* f = fopen("/proc/self/cmdline", "rb");
  if (!f) return args;
  std::string arg;
  for (int c; (c = fgetc(f)) != EOF;) {
    if (c) {
      arg += static_cast<char>(c);
    } else {
      args.push_back(arg);
      arg.clear();
    }
  }
  fclose(f);
  return args;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string SelfDirectory() {
#if defined(_WIN32)
  return "";
#else
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&SelfDirectory), &info) || !info.dli_fname) return "";
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
#endif
}

// TARVO_RIPPLE_MODULE, else the installed plug-in module beside this one,
// else the module of the build tree this adapter came from.
std::string ModulePath() {
  if (const char* env = getenv("TARVO_RIPPLE_MODULE"); env && *env) return env;
  const std::string rel = TARVO_FREI0R_MODULE_REL;
  const std::string installed = rel.empty() ? "" : SelfDirectory() + "/" + rel;
  if (FileExists(installed)) return installed;
  const std::string built = host::Module::BuiltModulePath();
  if (FileExists(built)) return built;
  return installed.empty() ? built : installed;
}

// Every core, or at most TARVO_RIPPLE_THREADS (a whole number from 1) when
// it is set: a host that runs several filters at once can keep this one to
// its share.
int32_t RenderThreadCount() {
  const unsigned cores = std::thread::hardware_concurrency();
  int32_t threads = cores < 1 ? 1 : static_cast<int32_t>(std::min<unsigned>(cores, tarvo::kMaxRenderThreads));
  if (const char* env = getenv("TARVO_RIPPLE_THREADS"); env && *env) {
    char* end = nullptr;
    const long cap = strtol(env, &end, 10);
    if (*end != '\0' || cap < 1) {
      Say(std::string("TARVO_RIPPLE_THREADS=\"") + env + "\" is not a whole number from 1; using " +
          std::to_string(threads) + " threads");
    } else if (cap < threads) {
      threads = static_cast<int32_t>(cap);
    }
  }
  return threads;
}

// Caller holds g_lock.
bool EnsureModuleLoaded(bool trace) {
  if (g_module) return true;
  const std::string path = ModulePath();
  std::string error;
  g_module = host::Module::Load(path, &error);
  if (!g_module) {
    Say(error + " (set TARVO_RIPPLE_MODULE to the plug-in module's path)");
    return false;
  }
  const int32_t threads = g_module->RequestThreads(RenderThreadCount());
  if (trace) Say("plug-in module " + path + ", " + std::to_string(threads) + " render threads");
  return true;
}

struct Instance {
  unsigned width = 0, height = 0;
  bool passThrough = false;
  std::unique_ptr<host::Host> host;
  host::Image in, out;
  double values[kNumParams] = {};
  double initial[kNumParams] = {};
  TimeUnit unit = TimeUnit::Seconds;
  double frameRate = kDefaultFrameRate;  // of the counter used when a frame has no timestamp
  int64_t frames = 0;                    // frames handed over so far
  bool warnedTime = false;
  bool trace = false;
  std::set<std::string> reported;  // render errors already printed

  size_t Bytes() const { return static_cast<size_t>(width) * height * 4; }
  void ReportOnce(const std::string& what) {
    if (reported.insert(what).second) Say(what);
  }
};

void RgbaToArgb(const uint32_t* src, host::Image& dst) {
  const auto* s = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d = dst.data.data();
  const size_t n = static_cast<size_t>(dst.width) * dst.height;
  for (size_t i = 0; i < n; ++i, s += 4, d += 4) {
    d[0] = s[3];
    d[1] = s[0];
    d[2] = s[1];
    d[3] = s[2];
  }
}

void ArgbToRgba(const host::Image& src, uint32_t* dst) {
  const uint8_t* s = src.data.data();
  auto* d = reinterpret_cast<uint8_t*>(dst);
  const size_t n = static_cast<size_t>(src.width) * src.height;
  for (size_t i = 0; i < n; ++i, s += 4, d += 4) {
    d[0] = s[1];
    d[1] = s[2];
    d[2] = s[3];
    d[3] = s[0];
  }
}

// Caller holds g_lock. Null (with the reason on stderr) when the plug-in
// cannot be set up.
std::unique_ptr<host::Host> MakeHost(bool trace) {
  if (!EnsureModuleLoaded(trace)) return nullptr;
  auto h = std::make_unique<host::Host>(g_module->Entry());
  PF_Err err = h->GlobalSetup();
  std::string msg = h->ErrorMessage();
  if (!err && msg.empty()) {
    err = h->ParamsSetup();
    msg = h->ErrorMessage();
  }
  if (err || !msg.empty()) {
    Say("the plug-in failed to set up" + (msg.empty() ? " (error " + std::to_string(err) + ")" : ": " + msg));
    h->GlobalSetdown();
    return nullptr;
  }
  if (const std::string bad = CheckDeclarations(*h); !bad.empty()) {
    Say("unexpected plug-in module: " + bad);
    h->GlobalSetdown();
    return nullptr;
  }
  return h;
}

Instance* Construct(unsigned width, unsigned height) {
  if (width == 0 || height == 0) {
    Say("cannot process an empty frame (" + std::to_string(width) + "x" + std::to_string(height) + ")");
    return nullptr;
  }
  auto inst = std::make_unique<Instance>();
  inst->width = width;
  inst->height = height;
  inst->passThrough = width > kMaxWidth || height > kMaxHeight;
  const char* trace = getenv("TARVO_RIPPLE_TRACE");
  inst->trace = trace && *trace && strcmp(trace, "0") != 0;
  std::string why, unitError;
  inst->unit = DetectTimeUnit(&why, &unitError);
  if (!unitError.empty()) SayOnce("time unit", unitError);
  unitError.clear();
  inst->frameRate = FallbackFrameRate(&unitError);
  if (!unitError.empty()) SayOnce("frame rate", unitError);
  if (inst->trace) Say(std::string("time unit ") + TimeUnitName(inst->unit) + " (" + why + ")");

  if (!inst->passThrough) {
    inst->in = host::Image(static_cast<int32_t>(width), static_cast<int32_t>(height));
    inst->out = host::Image(static_cast<int32_t>(width), static_cast<int32_t>(height));
  }

  std::lock_guard<std::mutex> lock(g_lock);
  if (inst->passThrough && !g_warnedTooLarge) {
    g_warnedTooLarge = true;
    Say("frames of " + std::to_string(width) + "x" + std::to_string(height) +
        " exceed what the effect can process (at most 4095 pixels wide and 32767 high); they are "
        "passed through unchanged");
  }
  if (DetectHost() == HostKind::Ffmpeg)
    for (const std::string& w : SurplusValueWarnings(ProcessArguments())) SayOnce(w, w);
  if (width % 64 != 0 && !g_warnedWidth64 && DetectHost() == HostKind::Ffmpeg) {
    g_warnedWidth64 = true;
    Say("frame width " + std::to_string(width) +
        " is not a multiple of 64: ffmpeg's frei0r wrapper hands such frames over without their "
        "timestamps (and garbles widths that are not a multiple of 16); pad the video first, e.g. "
        "-vf \"pad=ceil(iw/64)*64:ih,frei0r=tarvo_ripple,crop=" +
        std::to_string(width) + ":ih:0:0\"");
  }
  inst->host = MakeHost(inst->trace);
  if (!inst->host) return nullptr;
  for (int i = 0; i < kNumParams; ++i) inst->values[i] = inst->initial[i] = InitialValue(Info(i), *inst->host);
  ++g_instances;
  return inst.release();
}

void Render(Instance* inst, double time, const uint32_t* inframe, uint32_t* outframe) {
  if (!inst || !inframe || !outframe) return;
  HostTime t;
  if (!MapTime(time, inst->unit, &t)) {
    t = CountedTime(inst->frames, inst->frameRate);
    if (!inst->warnedTime) {
      inst->warnedTime = true;
      char text[160];
      snprintf(text, sizeof text, "the host gave a frame no usable time (%g); counting frames at %g a second instead",
               time, inst->frameRate);
      Say(std::string(text) + " (TARVO_RIPPLE_FRAME_RATE sets the rate)");
    }
  }
  ++inst->frames;
  if (inst->trace)
    fprintf(stderr, "tarvo_ripple: time %.17g (%s) -> current_time %d, time_step %d, time_scale %u\n", time,
            TimeUnitName(inst->unit), t.current, t.step, t.scale);
  if (inst->passThrough) {
    if (inframe != outframe) memmove(outframe, inframe, inst->Bytes());
    return;
  }
  RgbaToArgb(inframe, inst->in);
  PF_Err err;
  std::string msg;
  {
    std::lock_guard<std::mutex> lock(g_lock);
    host::Host& h = *inst->host;
    for (int i = 0; i < kNumParams; ++i) {
      const ParamInfo& s = Info(i);
      if (s.kind != Kind::CenterX && s.kind != Kind::CenterY) ApplyValue(s, inst->values[i], h);
    }
    ApplyCenter(inst->values[1], inst->values[2], static_cast<int32_t>(inst->width), static_cast<int32_t>(inst->height),
                h);
    h.SetTime(t.current, t.step, t.scale);
    err = h.Render(inst->in, inst->out);
    msg = h.ErrorMessage();
  }
  if (err || !msg.empty()) {
    inst->ReportOnce("frame passed through unchanged: " +
                     (msg.empty() ? "the plug-in failed with error " + std::to_string(err) : msg));
    if (inframe != outframe) memmove(outframe, inframe, inst->Bytes());
    return;
  }
  ArgbToRgba(inst->out, outframe);
}

}  // namespace

F0R_EXPORT int f0r_init() { return 1; }

F0R_EXPORT void f0r_deinit() {
  // Hosts may init and deinit once per filter they create; the module goes
  // only when no instance is left.
  std::lock_guard<std::mutex> lock(g_lock);
  if (g_instances == 0) g_module.reset();
}

F0R_EXPORT void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  if (!info) return;
  info->name = "Tarvo FX Ripple";
  info->author = "Tarvo FX";
  info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
  info->color_model = F0R_COLOR_MODEL_RGBA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = TARVO_VERSION_MAJOR;
  info->minor_version = TARVO_VERSION_MINOR;
  info->num_params = kNumParams;
  info->explanation =
      "Concentric ripples around a centre: 24 wave shapes, chaos morphing, stretch, twirl and pinning. "
      "Frequency is in wave periods per second.";
}

F0R_EXPORT void f0r_get_param_info(f0r_param_info_t* info, int index) {
  if (!info) return;
  if (index < 0 || index >= kNumParams) {
    info->name = "";
    info->type = F0R_PARAM_DOUBLE;
    info->explanation = "";
    return;
  }
  const ParamInfo& s = Info(index);
  info->name = s.name;
  info->type = s.kind == Kind::Draft ? F0R_PARAM_BOOL : F0R_PARAM_DOUBLE;
  info->explanation = s.explanation;
}

F0R_EXPORT f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  try {
    return Construct(width, height);
  } catch (const std::bad_alloc&) {
    Say("out of memory for frames of " + std::to_string(width) + "x" + std::to_string(height));
  } catch (const std::exception& e) {
    Say(std::string("cannot create an instance: ") + e.what());
  }
  return nullptr;
}

F0R_EXPORT void f0r_destruct(f0r_instance_t instance) {
  auto* inst = static_cast<Instance*>(instance);
  if (!inst) return;
  {
    std::lock_guard<std::mutex> lock(g_lock);
    if (inst->host) inst->host->GlobalSetdown();
    inst->host.reset();
    --g_instances;
  }
  delete inst;
}

F0R_EXPORT void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int index) {
  auto* inst = static_cast<Instance*>(instance);
  if (!inst || !param || index < 0 || index >= kNumParams) return;
  double v = *static_cast<const double*>(param);
  const double given = v;
  if (!ClampUnit(&v, inst->initial[index]))
    SayOnce(std::string(Info(index).name) + (std::isnan(given) ? " nan" : " range"),
            ValueWarning(Info(index), given, v));
  inst->values[index] = v;
}

F0R_EXPORT void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int index) {
  auto* inst = static_cast<Instance*>(instance);
  if (!inst || !param || index < 0 || index >= kNumParams) return;
  *static_cast<double*>(param) = inst->values[index];
}

namespace {

// Nothing may unwind into the host's C frames: a failure passes the frame through.
void GuardedRender(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
  auto* inst = static_cast<Instance*>(instance);
  try {
    Render(inst, time, inframe, outframe);
  } catch (const std::exception& e) {
    if (!inst || !inframe || !outframe) return;
    inst->ReportOnce(std::string("frame passed through unchanged: ") + e.what());
    if (inframe != outframe) memmove(outframe, inframe, inst->Bytes());
  }
}

}  // namespace

F0R_EXPORT void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
  GuardedRender(instance, time, inframe, outframe);
}

F0R_EXPORT void f0r_update2(f0r_instance_t instance, double time, const uint32_t* inframe1, const uint32_t*,
                            const uint32_t*, uint32_t* outframe) {
  GuardedRender(instance, time, inframe1, outframe);
}
