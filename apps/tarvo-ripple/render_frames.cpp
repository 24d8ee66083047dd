#include "render_frames.h"

#include <stdio.h>
#include <string.h>

#include <atomic>
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
  bool Render(int64_t k, int* code, std::string* message) {
    const int64_t frame = job_.sequence ? job_.first + k : 0;
    host::Host& h = session_.Host();
    *code = kExitError;

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
    return WriteImage(FramePath(job_.output, frame), output, message);
  }

 private:
  const RenderJob& job_;
  EffectSession& session_;
  std::optional<host::Image> still_;
  host::Image perFrame_;
};

// Renders the job's frames as claimed from shared until none are left or
// any process has failed; afterFrame runs after each finished frame.
template <class AfterFrame>
void RenderFrames(const RenderJob& job, EffectSession& session, SharedState* shared, AfterFrame afterFrame) {
  const int64_t count = job.sequence ? int64_t{job.last} - job.first + 1 : 1;
  FrameRenderer renderer(job, session);
  for (;;) {
    if (shared->failed.load()) return;
    const int64_t k = shared->next.fetch_add(1);
    if (k >= count) return;
    int code;
    std::string message;
    if (!renderer.Render(k, &code, &message)) return Fail(shared, code, message);
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
int RunWorkers(const RenderJob& job, int jobs, SharedState* shared, TempFileSlot* slots, ProgressBar& bar) {
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
        RenderFrames(job, *session, shared, [] {});
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

int RunRenderJob(const RenderJob& job, EffectSession& session) {
  const int64_t count = job.sequence ? int64_t{job.last} - job.first + 1 : 1;
  int jobs = job.jobs < 1 ? 1 : job.jobs;
  if (jobs > count) jobs = static_cast<int>(count);
#if defined(_WIN32)
  jobs = 1;
#endif
  ProgressBar bar(count, job.progress && job.sequence);
  int code = kExitOk;
  SharedState* shared = nullptr;
  SharedState local;
#if !defined(_WIN32)
  // The shared state, then one temporary-file slot per worker.
  const size_t mappedSize = sizeof(SharedState) + sizeof(TempFileSlot) * static_cast<size_t>(jobs);
  void* mapped = MAP_FAILED;
  if (jobs > 1) {
    mapped = mmap(nullptr, mappedSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) jobs = 1;  // render here instead
  }
  if (jobs > 1) {
    shared = new (mapped) SharedState();
    auto* slots = reinterpret_cast<TempFileSlot*>(static_cast<char*>(mapped) + sizeof(SharedState));
    for (int i = 0; i < jobs; ++i) new (&slots[i]) TempFileSlot();
    code = RunWorkers(job, jobs, shared, slots, bar);
  }
#endif
  if (!shared) {
    shared = &local;
    RenderFrames(job, session, shared, [&] { bar.Update(shared->done.load()); });
    code = shared->failed.load() ? shared->exitCode : kExitOk;
  }
  const int64_t done = shared->done.load();
  if (code == kExitOk || done > 0) bar.Finish(done);
  if (code != kExitOk) fprintf(stderr, "tarvo-ripple: %s\n", shared->message);
#if !defined(_WIN32)
  if (shared != &local) {
    shared->~SharedState();
    munmap(mapped, mappedSize);
  }
#endif
  return code;
}

}  // namespace tarvo::cli
