// tarvo-ripple: the command-line host. Loads the plug-in module, sets the
// effect up through its own entry point and renders image files, sequences
// or the built-in test picture.
//
//   tarvo-ripple INPUT OUTPUT [options]
//   tarvo-ripple --demo OUTPUT [options]
//   tarvo-ripple --list-params [--json]
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "demo_image.h"
#include "effect_session.h"
#include "image_io.h"
#include "param_options.h"
#include "render_frames.h"
#include "sequence.h"

namespace tarvo::cli {
namespace {

constexpr int kMaxJobs = 64;

struct UsageError {
  std::string message;
};

// The module named by --module, found before the options are parsed: the
// effect's own options exist only once its parameters are declared. The
// last one given wins, like every option. A bare file name is a file in
// the current directory, not a name for the dynamic loader's search.
std::string ModuleArgument(int argc, char** argv) {
  std::string path = host::Module::BuiltModulePath();
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--") break;
    if (a == "--module" && i + 1 < argc) path = argv[++i];
    if (a.rfind("--module=", 0) == 0) path = a.substr(9);
  }
  if (!path.empty() && path.find('/') == std::string::npos) path = "./" + path;
  return path;
}

bool WantsVersion(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--") break;
    if (a == "--version" || a == "-V") return true;
  }
  return false;
}

bool StartsNumber(const std::string& a) {
  return a.size() > 1 && a[0] == '-' && ((a[1] >= '0' && a[1] <= '9') || a[1] == '.');
}

// The command line with every long option spelled as declared: option
// names match by MatchKey ("--Wave-Height", "--waveheight"). Unknown
// options are refused here, with the nearest known name, so that the
// parser never mistakes one for a value.
std::vector<std::string> CanonicalArgs(int argc, char** argv, const CLI::App& app) {
  std::vector<std::pair<std::string, const CLI::Option*>> longNames;
  std::vector<std::string> visible;
  for (const CLI::Option* o : app.get_options()) {
    for (const std::string& n : o->get_lnames()) {
      longNames.emplace_back(n, o);
      if (!o->get_group().empty()) visible.push_back("--" + n);
    }
  }
  auto find = [&](const std::string& name) -> std::pair<std::string, const CLI::Option*> {
    const std::string key = MatchKey(name);
    for (const auto& entry : longNames)
      if (MatchKey(entry.first) == key) return entry;
    return {"", nullptr};
  };
  auto unknown = [&](const std::string& shown, const std::string& name) {
    const std::string near = ClosestName(name, visible);
    return UsageError{"unknown option " + shown + (near.empty() ? " (see --help)" : "; did you mean " + near + "?")};
  };
  std::vector<std::string> args{argv[0]};
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--") {
      args.insert(args.end(), argv + i, argv + argc);
      break;
    }
    if (a.rfind("--", 0) == 0) {
      const size_t eq = a.find('=');
      const std::string name = a.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
      const auto [canonical, option] = find(name);
      if (!option) throw unknown(a.substr(0, eq), name);
      if (eq + 1 == a.size()) throw UsageError{"--" + canonical + " \"\" is empty"};
      args.push_back("--" + canonical + (eq == std::string::npos ? "" : a.substr(eq)));
      if (eq == std::string::npos && option->get_items_expected_max() > 0 && i + 1 < argc) args.push_back(argv[++i]);
    } else if (a.size() > 1 && a[0] == '-' && !StartsNumber(a) && a != "-h" && a != "-V") {
      if (const auto [canonical, option] = find(a.substr(1)); option)
        throw UsageError{a + ": long options take two dashes: --" + canonical};
      throw unknown(a, a.substr(1));
    } else {
      args.push_back(a);
    }
  }
  return args;
}

template <class T>
T ParseWhole(const std::string& option, const std::string& text, T min, T max) {
  const char* b = text.data();
  const char* e = b + text.size();
  if (b != e && *b == '+') ++b;
  long long v = 0;
  auto [ptr, ec] = std::from_chars(b, e, v);
  if (b == e || ec != std::errc() || ptr != e) throw UsageError{option + " \"" + text + "\" is not a whole number"};
  if (v < static_cast<long long>(min) || v > static_cast<long long>(max))
    throw UsageError{option + " " + text + " is outside " + std::to_string(min) + " to " + std::to_string(max)};
  return static_cast<T>(v);
}

void ParseSize(const std::string& text, int32_t* w, int32_t* h) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string::npos) throw UsageError{"--size \"" + text + "\" is not WxH, e.g. 640x480"};
  *w = ParseWhole<int32_t>("--size width", text.substr(0, x), 1, kMaxImageWidth);
  *h = ParseWhole<int32_t>("--size height", text.substr(x + 1), 1, kMaxImageHeight);
}

FramePattern Pattern(const std::string& path) {
  FramePattern p;
  std::string error;
  if (!ParseFramePattern(path, &p, &error)) throw UsageError{error};
  return p;
}

int Run(int argc, char** argv) {
  const std::string modulePath = ModuleArgument(argc, argv);
  bool version = WantsVersion(argc, argv);
  if (version) printf("tarvo-ripple %s\n", TARVO_PROGRAM_VERSION);
  std::string error;
  auto session = EffectSession::Open(modulePath, &error);
  if (!session) {
    fprintf(stderr, "tarvo-ripple: %s\n", error.c_str());
    return kExitError;
  }
  if (version) {
    printf("%s %s (plug-in module %s)\n", session->Info().name.c_str(), VersionText(session->Info().version).c_str(),
           modulePath.c_str());
    return kExitOk;
  }

  CLI::App app{"Renders image files, sequences or a built-in test picture through " + session->Info().name +
                   ", loaded from its plug-in module and driven as a video host drives it.",
               "tarvo-ripple"};
  app.footer(
      "Usage: tarvo-ripple INPUT OUTPUT [options]\n"
      "       tarvo-ripple --demo OUTPUT [options]\n"
      "       tarvo-ripple --list-params [--json]\n\n"
      "INPUT and OUTPUT may hold a frame number (%d, %04d) with --frames A-B; frame n renders at time n x "
      "time-step.\nOption and menu names match ignoring case, blanks, dashes and underscores. An option given twice "
      "takes its last value.\nExit status: 0 done, 1 the effect reported an error, 2 a usage, input or output "
      "problem.");
  // Like most command-line tools: the last of a repeated option wins.
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);

  std::string input, output, demo, size, frames, quality = "high", timeText, timeStepText = "1", timeScaleText = "30",
                                                 jobsText, threadsText, pngText, failAlloc, moduleIgnored;
  bool listParams = false, json = false, quiet = false, overwriteInput = false, stats = false;
  app.add_option("INPUT", input, "image to render (PNG, JPEG, TIFF, OpenEXR, ...)")->type_name("");
  app.add_option("OUTPUT", output, "image to write; the format follows its extension")->type_name("");
  app.add_option("--demo", demo, "render the built-in test picture into OUTPUT")->type_name("OUTPUT");
  app.add_option("--size", size, "size of the test picture (default 640x480)")->type_name("WxH");
  app.add_flag("--list-params", listParams, "list the effect's parameters as it declares them");
  app.add_flag("--json", json, "with --list-params: as JSON");
  app.add_option("--frames", frames, "render frames A to B of a sequence")->type_name("A-B");
  app.add_option("--quality", quality, "the host's render quality: high or low (default high)")->type_name("Q");
  app.add_option("--time", timeText, "current_time of a single frame (default 0)")->type_name("N");
  app.add_option("--time-step", timeStepText, "time_step (default 1)")->type_name("N");
  app.add_option("--time-scale", timeScaleText, "time_scale, units per second (default 30)")->type_name("N");
  app.add_option("--jobs", jobsText, "worker processes for a sequence (default: one per core)")->type_name("N");
  app.add_option("--threads", threadsText, "render threads in each (default: the cores left to each job)")
      ->type_name("N");
  app.add_option("--png-compression", pngText, "zlib level of PNG output, 0 to 9 (default 1: fast; 9: smallest files)")
      ->type_name("N");
  app.add_flag("--quiet", quiet, "no progress bar");
  app.add_flag("--overwrite-input", overwriteInput, "let OUTPUT replace INPUT (refused otherwise)");
  app.add_flag("--stats", stats,
               "afterwards, print per frame the milliseconds spent reading, in the effect's render and writing, "
               "and the totals");
  app.add_flag("-V,--version", version, "print the program's and the plug-in's versions");
  app.add_option("--module", moduleIgnored, "the plug-in module to load (default: the one built with this program)")
      ->type_name("PATH");
  app.add_option("--fail-allocation", failAlloc)->group("");  // testing: the effect's Nth allocation fails

  std::vector<std::string> paramText(session->Options().size());
  for (size_t i = 0; i < session->Options().size(); ++i) {
    const ParamOption& o = session->Options()[i];
    if (app.get_option_no_throw("--" + o.name)) {
      fprintf(stderr, "tarvo-ripple: the effect's parameter \"%s\" clashes with the host option --%s\n",
              o.displayName.c_str(), o.name.c_str());
      return kExitError;
    }
    const PF_ParamType t = o.declared.def.param_type;
    app.add_option("--" + o.name, paramText[i], OptionHelp(o))
        ->type_name(t == PF_Param_POINT   ? "X,Y"
                    : t == PF_Param_POPUP ? "N|NAME"
                    : t == PF_Param_ANGLE ? "DEGREES"
                                          : "VALUE")
        ->group("Effect parameters");
  }

  try {
    std::vector<std::string> args = CanonicalArgs(argc, argv, app);
    std::vector<char*> argp;
    for (std::string& a : args) argp.push_back(a.data());
    try {
      app.parse(static_cast<int>(argp.size()), argp.data());
    } catch (const CLI::CallForHelp&) {
      printf("%s", app.help().c_str());
      return kExitOk;
    } catch (const CLI::ParseError& e) {
      throw UsageError{std::string(e.what()) + " (see --help)"};
    }
    for (const CLI::Option* o : app.get_options())
      for (const std::string& r : o->results())
        if (r.empty()) throw UsageError{o->get_name() + " \"\" is empty"};

    if (json && !listParams) throw UsageError{"--json goes with --list-params"};
    if (listParams) {
      if (!input.empty() || !demo.empty()) throw UsageError{"--list-params takes no INPUT, OUTPUT or --demo"};
      const std::string text = json ? DescribeJson(session->Info(), session->Options())
                                    : DescribeText(session->Info(), session->Options());
      fwrite(text.data(), 1, text.size(), stdout);
      return kExitOk;
    }

    RenderJob job;
    job.modulePath = modulePath;
    if (!demo.empty()) {
      if (!input.empty()) throw UsageError{"--demo takes only OUTPUT, not INPUT and OUTPUT"};
      job.demo = true;
      job.demoWidth = kDemoWidth;
      job.demoHeight = kDemoHeight;
      if (!size.empty()) ParseSize(size, &job.demoWidth, &job.demoHeight);
      output = demo;
    } else {
      if (!size.empty()) throw UsageError{"--size goes with --demo"};
      if (input.empty() || output.empty())
        throw UsageError{"give INPUT and OUTPUT, --demo OUTPUT or --list-params (see --help)"};
    }

    if (MatchKey(quality) == "high") {
      job.quality = PF_Quality_HI;
    } else if (MatchKey(quality) == "low") {
      job.quality = PF_Quality_LO;
    } else {
      throw UsageError{"--quality \"" + quality + "\" is not high or low"};
    }
    job.timeStep = ParseWhole<int32_t>("--time-step", timeStepText, INT32_MIN, INT32_MAX);
    job.timeScale = ParseWhole<uint32_t>("--time-scale", timeScaleText, 1, UINT32_MAX);
    if (!timeText.empty()) job.time = ParseWhole<int32_t>("--time", timeText, INT32_MIN, INT32_MAX);
    if (!failAlloc.empty()) {
      job.failAllocationAt = ParseWhole<int64_t>("--fail-allocation", failAlloc, 1, INT64_MAX);
      if (!session->Module().AllocStats()) throw UsageError{"--fail-allocation needs a module with its test interface"};
    }
    job.jobs = jobsText.empty() ? 0 : ParseWhole<int>("--jobs", jobsText, 1, kMaxJobs);
    job.threads = threadsText.empty() ? 0 : ParseWhole<int>("--threads", threadsText, 1, kMaxRenderThreads);
    if (!pngText.empty()) SetPngCompression(ParseWhole<int>("--png-compression", pngText, 0, 9));
    job.progress = !quiet && isatty(STDERR_FILENO);
    job.stats = stats;

    if (!frames.empty()) {
      job.output = Pattern(output);
      if (!job.demo) job.input = Pattern(input);
      if (!timeText.empty())
        throw UsageError{"--time goes with a single frame; with --frames frame n renders at n x time-step"};
      if (!ParseFrameRange(frames, &job.first, &job.last, &error)) throw UsageError{error};
      if (!job.output.hasFrame)
        throw UsageError{"OUTPUT \"" + output + "\" needs a frame number such as %04d to render --frames"};
      const int64_t lastTime = int64_t{job.last} * job.timeStep, firstTime = int64_t{job.first} * job.timeStep;
      if (lastTime > INT32_MAX || lastTime < INT32_MIN || firstTime > INT32_MAX || firstTime < INT32_MIN)
        throw UsageError{"--frames " + frames + " with --time-step " + timeStepText +
                         " runs past the host's time range"};
      job.sequence = true;
      if (job.input.hasFrame) {
        for (int64_t n = job.first; n <= job.last; ++n) {
          const std::string path = FramePath(job.input, n);
          std::error_code ec;
          if (!std::filesystem::exists(path, ec))
            throw UsageError{"input frame " + std::to_string(n) + " is missing: " + path};
        }
      }
    } else {
      for (const std::string* path : {&output, &input})
        if (HasFrameNumber(*path)) throw UsageError{"\"" + *path + "\" holds a frame number: give --frames A-B"};
      job.output.prefix = output;  // a single file's name is taken literally
      job.input.prefix = input;
    }
    if (!CanWriteFormat(FramePath(job.output, job.first), &error)) throw UsageError{error};
    for (int64_t n = job.first; !job.demo && !overwriteInput && n <= job.last; ++n) {
      if (SameFile(FramePath(job.input, n), FramePath(job.output, n)))
        throw UsageError{"OUTPUT " + FramePath(job.output, n) +
                         " is the INPUT file; give --overwrite-input to replace it"};
    }
    if (std::string bad = ShareCores(job, std::thread::hardware_concurrency(), kMaxJobs); !bad.empty())
      throw UsageError{bad};

    for (size_t i = 0; i < paramText.size(); ++i) {
      if (app.count("--" + session->Options()[i].name))
        job.values.emplace_back(session->Options()[i].name, paramText[i]);
    }
    if (!session->Apply(job.values, &error)) throw UsageError{error};

    return RunRenderJob(job, *session);
  } catch (const UsageError& e) {
    fprintf(stderr, "tarvo-ripple: %s\n", e.message.c_str());
    return kExitError;
  }
}

}  // namespace
}  // namespace tarvo::cli

int main(int argc, char** argv) {
  tarvo::cli::UseSingleThreadedImageLibrary();
  tarvo::cli::InstallInterruptCleanup();
  try {
    return tarvo::cli::Run(argc, argv);
  } catch (const std::bad_alloc&) {
    fprintf(stderr, "tarvo-ripple: out of memory\n");
    return tarvo::cli::kExitError;
  } catch (const std::exception& e) {
    fprintf(stderr, "tarvo-ripple: %s\n", e.what());
    return tarvo::cli::kExitError;
  }
}
