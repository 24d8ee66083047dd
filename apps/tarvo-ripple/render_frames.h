// Rendering a still or a sequence of frames through the plug-in, on this
// process or spread over worker processes.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "effect_session.h"
#include "sequence.h"

namespace tarvo::cli {

// Exit statuses of the command.
constexpr int kExitOk = 0;
constexpr int kExitEffectError = 1;  // the plug-in reported a message
constexpr int kExitError = 2;        // usage, input or output problem

struct RenderJob {
  std::string modulePath;
  std::vector<OptionValue> values;  // effect parameters as given
  PF_Quality quality = PF_Quality_HI;
  int32_t time = 0, timeStep = 1;
  uint32_t timeScale = 30;
  int64_t failAllocationAt = 0;  // > 0: the plug-in's Nth allocation of each frame fails

  bool demo = false;
  int32_t demoWidth = 0, demoHeight = 0;
  FramePattern input, output;

  bool sequence = false;  // frames first..last, frame n at time n × timeStep
  int32_t first = 0, last = 0;
  int jobs = 1;     // worker processes (0: not given)
  int threads = 1;  // render threads in each (0: not given)
  bool progress = false;
  bool stats = false;  // print the time of each frame's steps on stdout
};

// Shares cores between --jobs and --threads, so that jobs × threads stays
// within the cores: a single image (or a sequence at --jobs 1) renders on
// every core; a sequence runs one process per core, each on one thread,
// unless --threads says otherwise, and then as many processes as fit. Both
// given and together beyond the cores is refused: returns the error.
std::string ShareCores(RenderJob& job, unsigned cores, int maxJobs);

// Renders every frame of job. session is the caller's (already set up with
// job.values); worker processes open their own. On failure prints one line
// on stderr and returns kExitError or kExitEffectError; frames written
// before the failure stay. With job.stats, a table of the seconds each
// finished frame spent reading, in the plug-in's render and writing, the
// totals and the wall time go to stdout afterwards (format in the README).
int RunRenderJob(const RenderJob& job, EffectSession& session);

}  // namespace tarvo::cli
