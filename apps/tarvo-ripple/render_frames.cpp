#include "render_frames.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <optional>

#include "demo_image.h"
#include "image_io.h"
#include "progress.h"

#if !defined(_WIN32)
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace tarvo::cli {

namespace {

// Work shared by the processes rendering one job: the next frame to claim,
// the frames finished and the first failure. Lives in shared memory when
// the job is spread over processes; its atomics are lock-free, so they work
// across processes.
struct SharedState {
  std::atomic<int64_t> next{0};
  std::atomic<int64_t> done{0};
  std::atomic<int32_t> failed{0};
  int32_t exitCode = kExitOk;
  char message[1024] = {};
};
static_assert(std::atomic<int64_t>::is_always_lock_free && std::atomic<int32_t>::is_always_lock_free);

// Seconds one frame spent in each step; frames not finished stay at -1.
struct FrameTimes {
  double read = -1, render = -1, write = -1;
};

double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The --stats table: one row per finished frame, then the totals.
void PrintStats(const RenderJob& job, const FrameTimes* times, int64_t count, int jobs, double wall) {
  std::string out = "frame\tread_ms\trender_ms\twrite_ms\n";
  double sum[3] = {0, 0, 0};
  int64_t finished = 0;
  char line[128];
  for (int64_t k = 0; k < count; ++k) {
    const FrameTimes& t = times[k];
    if (t.write < 0) continue;
    ++finished;
    sum[0] += t.read, sum[1] += t.render, sum[2] += t.write;
    snprintf(line, sizeof line, "%lld\t%.3f\t%.3f\t%.3f\n", static_cast<long long>(job.sequence ? job.first + k : 0),
             t.read * 1e3, t.render * 1e3, t.write * 1e3);
    out += line;
  }
  snprintf(line, sizeof line, "total\t%.3f\t%.3f\t%.3f\n", sum[0] * 1e3, sum[1] * 1e3, sum[2] * 1e3);
  out += line;
  snprintf(line, sizeof line, "wall_ms\t%.3f\tframes\t%lld\tjobs\t%d\n", wall * 1e3, static_cast<long long>(finished),
           jobs);
  out += line;
  fwrite(out.data(), 1, out.size(), stdout);
  fflush(stdout);
}

void Fail(SharedState* shared, int code, const std::string& message) {
  if (shared->failed.exchange(1) != 0) return;  // the first failure is the one reported
  shared->exitCode = code;
  snprintf(shared->message, sizeof shared->message, "%s", message.c_str());
}

std::string OneLine(std::string s) {
  for (char& c : s)
    if (c == '\r' || c == '\n') c = ' ';
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// Renders single frames of one job; a still input is read (or made) once.
class FrameRenderer {
 public:
  FrameRenderer(const RenderJob& job, EffectSession& session) : job_(job), session_(session) {
    session_.Host().SetQuality(job.quality);
  }

  // Renders frame k of the job (0-based); false with *code and *message.
  // *times gets the seconds of each step.
  bool Render(int64_t k, int* code, std::string* message, FrameTimes* times) {
    const int64_t frame = job_.sequence ? job_.first + k : 0;
    host::Host& h = session_.Host();
    *code = kExitError;
    auto start = std::chrono::steady_clock::now();

    const host::Image* input = &perFrame_;
    if (job_.demo || !job_.input.hasFrame) {
      if (!still_) {
        if (job_.demo) {
          still_ = MakeDemoImage(job_.demoWidth, job_.demoHeight);
        } else {
          still_.emplace();
          if (!ReadImage(FramePath(job_.input, 0), &*still_, message)) {
            still_.reset();
            return false;
          }
        }
      }
      input = &*still_;
    } else if (!ReadImage(FramePath(job_.input, frame), &perFrame_, message)) {
      return false;
    }
    times->read = Since(start);
    for (const ParamOption& o : session_.Options()) {
      if (std::string bad = CheckPointInLayer(o, h, input->width, input->height); !bad.empty()) {
        *message = std::move(bad);
        return false;
      }
    }

    if (job_.sequence)
      h.SetTime(static_cast<int32_t>(frame * job_.timeStep), job_.timeStep, job_.timeScale);
    else
      h.SetTime(job_.time, job_.timeStep, job_.timeScale);
    if (job_.failAllocationAt > 0 && session_.Module().AllocStats())
      session_.Module().AllocStats()->failAt = job_.failAllocationAt;

    host::Image output;
    std::string shown;
    switch (session_.Render(*input, &output, &shown)) {
      case EffectSession::Outcome::kOk: break;
      case EffectSession::Outcome::kEffectError:
        *code = kExitEffectError;
        *message = (job_.sequence ? "frame " + std::to_string(frame) + ": " : std::string()) + session_.Info().name +
                   ": " + OneLine(shown);
        return false;
      case EffectSession::Outcome::kHostError: *message = shown; return false;
    }
    times->render = session_.LastRenderSeconds();
    start = std::chrono::steady_clock::now();
    if (!WriteImage(FramePath(job_.output, frame), output, message)) return false;
    times->write = Since(start);
    return true;
  }

 private:
  const RenderJob& job_;
  EffectSession& session_;
  std::optional<host::Image> still_;
  host::Image perFrame_;
};

// Renders the job's frames as claimed from shared until none are left or
// any process has failed; afterFrame runs after each finished frame.
// times has one entry per frame of the job.
template <class AfterFrame>
void RenderFrames(const RenderJob& job, EffectSession& session, SharedState* shared, FrameTimes* times,
                  AfterFrame afterFrame) {
  const int64_t count = job.sequence ? int64_t{job.last} - job.first + 1 : 1;
  FrameRenderer renderer(job, session);
  for (;;) {
    if (shared->failed.load()) return;
    const int64_t k = shared->next.fetch_add(1);
    if (k >= count) return;
    int code = kExitError;
    std::string message;
    FrameTimes t;
    bool rendered;
    try {
      rendered = renderer.Render(k, &code, &message, &t);
    } catch (const std::bad_alloc&) {
      rendered = false;
      message = "out of memory rendering frame " + std::to_string(job.sequence ? job.first + k : 0);
    }
    if (!rendered) return Fail(shared, code, message);
    if (times) times[k] = t;
    shared->done.fetch_add(1);
    afterFrame();
  }
}

#if !defined(_WIN32)
// Renders in jobs worker processes. Each worker opens the module and sets
// the effect up itself, exactly as this process did. A worker ends with
// its parent (SIGTERM, whose handler removes its temporary file) and keeps
// its temporary file's name in memory shared with the parent, which
// removes it when the worker is killed.
int RunWorkers(const RenderJob& job, int jobs, SharedState* shared, TempFileSlot* slots, FrameTimes* times,
               ProgressBar& bar) {
  fflush(nullptr);
  const pid_t parent = getpid();
  std::vector<pid_t> workers;
  for (int i = 0; i < jobs; ++i) {
    const pid_t pid = fork();
    if (pid < 0) {
      Fail(shared, kExitError, std::string("cannot start a worker process: ") + strerror(errno));
      break;
    }
    if (pid == 0) {
      // The parent may have died before the death signal was asked for.
      if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) _exit(0);
      UseTempFileSlot(&slots[i]);
      std::string error;
      auto session = EffectSession::Open(job.modulePath, &error);
      if (!session) {
        Fail(shared, kExitError, error);
      } else if (!session->Apply(job.values, &error)) {
        Fail(shared, kExitError, error);
      } else {
        session->Module().RequestThreads(job.threads);
        RenderFrames(job, *session, shared, times, [] {});
      }
      session.reset();
      fflush(nullptr);
      _exit(0);  // the parent reports; no exit handlers of the parent's libraries
    }
    workers.push_back(pid);
  }
  size_t running = workers.size();
  while (running > 0) {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid == 0) {
      bar.Update(shared->done.load());
      usleep(50 * 1000);
      continue;
    }
    if (pid < 0) {
      if (errno == EINTR) continue;
      break;
    }
    --running;
    for (size_t i = 0; i < workers.size(); ++i)
      if (workers[i] == pid) RemoveTempFile(&slots[i]);  // left only by a worker that did not finish its write
    if (WIFSIGNALED(status))
      Fail(shared, kExitError,
           "a worker process was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
               strsignal(WTERMSIG(status)) + ")");
    else if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
      Fail(shared, kExitError, "a worker process failed with status " + std::to_string(WEXITSTATUS(status)));
  }
  return shared->failed.load() ? shared->exitCode : kExitOk;
}
#endif

}  // namespace

std::string ShareCores(RenderJob& job, unsigned cores, int maxJobs) {
  const int64_t count = job.sequence ? int64_t{job.last} - job.first + 1 : 1;
  const int all = cores < 1 ? 1 : static_cast<int>(std::min(cores, 1024u));
  if (job.jobs > 0 && job.threads > 0 && std::min<int64_t>(job.jobs, count) * job.threads > all) {
    return "--jobs " + std::to_string(job.jobs) + " with --threads " + std::to_string(job.threads) + " needs " +
           std::to_string(std::min<int64_t>(job.jobs, count) * job.threads) + " cores, more than this machine has";
  }
  if (job.jobs == 0) job.jobs = std::min(job.threads > 0 ? std::max(1, all / job.threads) : all, maxJobs);
  if (job.threads == 0) job.threads = std::max<int>(1, all / static_cast<int>(std::min<int64_t>(job.jobs, count)));
  return "";
}

int RunRenderJob(const RenderJob& job, EffectSession& session) {
  const int64_t count = job.sequence ? int64_t{job.last} - job.first + 1 : 1;
  int jobs = job.jobs < 1 ? 1 : job.jobs;
  if (jobs > count) jobs = static_cast<int>(count);
#if defined(_WIN32)
  jobs = 1;
#endif
  const auto start = std::chrono::steady_clock::now();
  ProgressBar bar(count, job.progress && job.sequence);
  int code = kExitOk;
  SharedState* shared = nullptr;
  SharedState local;
  FrameTimes* times = nullptr;
  std::vector<FrameTimes> localTimes;
#if !defined(_WIN32)
  // The shared state, then one temporary-file slot per worker.
  const size_t mappedSize = sizeof(SharedState) + sizeof(TempFileSlot) * static_cast<size_t>(jobs);
  void* mapped = MAP_FAILED;
  void* mappedTimes = MAP_FAILED;
  const size_t timesBytes = static_cast<size_t>(count) * sizeof(FrameTimes);
  if (jobs > 1) {
    mapped = mmap(nullptr, mappedSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (job.stats && mapped != MAP_FAILED) {
      mappedTimes = mmap(nullptr, timesBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                         0);
      if (mappedTimes == MAP_FAILED) munmap(mapped, mappedSize), mapped = MAP_FAILED;
    }
    if (mapped == MAP_FAILED) jobs = 1;  // render here instead
  }
  if (jobs > 1) {
    shared = new (mapped) SharedState();
    auto* slots = reinterpret_cast<TempFileSlot*>(static_cast<char*>(mapped) + sizeof(SharedState));
    for (int i = 0; i < jobs; ++i) new (&slots[i]) TempFileSlot();
    if (mappedTimes != MAP_FAILED) {
      times = static_cast<FrameTimes*>(mappedTimes);
      std::uninitialized_fill_n(times, count, FrameTimes());
    }
    code = RunWorkers(job, jobs, shared, slots, times, bar);
  }
#endif
  if (!shared) {
    shared = &local;
    if (job.stats) {
      localTimes.resize(static_cast<size_t>(count));
      times = localTimes.data();
    }
    session.Module().RequestThreads(job.threads);
    RenderFrames(job, session, shared, times, [&] { bar.Update(shared->done.load()); });
    code = shared->failed.load() ? shared->exitCode : kExitOk;
  }
  const int64_t done = shared->done.load();
  if (code == kExitOk || done > 0) bar.Finish(done);
  if (code != kExitOk) fprintf(stderr, "tarvo-ripple: %s\n", shared->message);
  if (times) PrintStats(job, times, count, jobs, Since(start));
#if !defined(_WIN32)
  if (shared != &local) {
    shared->~SharedState();
    munmap(mapped, mappedSize);
    if (mappedTimes != MAP_FAILED) munmap(mappedTimes, timesBytes);
  }
#endif
  return code;
}

}  // namespace tarvo::cli
