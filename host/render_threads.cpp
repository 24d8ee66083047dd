// The render's threads: the count a host asked for and the pool of workers
// that share a stage's bands with the host's calling thread.
//
// Plain std::thread, std::mutex and std::condition_variable rather than
// OpenMP or oneTBB: the pool is small, its workers must be joined at global
// set-down and unload (the libraries keep threads of their own beyond both),
// and the module then needs no further shared library. The Windows module
// runs every band on the calling thread: it never receives a request.
#include "call_ops.h"
#include "render_bands.h"
#include "thread_request.h"

#include <atomic>

#if !defined(_WIN32)
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>
#endif

namespace tarvo {

namespace {

int32_t g_renderThreads = 1;  // set between host calls, read during renders

// The calling thread's share of a run (all of it without workers). The
// host is asked once for every band, always on this thread and always
// before the band is handed out or, for bands taken by workers meanwhile,
// before this thread takes its next one (the questions left are asked at the
// end): as many questions whoever runs the bands. After a stop no band is
// handed out and no question asked. After() waits for the workers.
template <class After>
bool ShareBands(int32_t count, BandWork work, void* context, std::atomic<int32_t>& next, std::atomic<bool>& stop,
                After after) {
  int32_t asked = 0;
  auto askUpTo = [&](int32_t n) {
    for (; asked < n; ++asked) {
      if (CheckAbort()) {
        stop.store(true);
        return false;
      }
    }
    return true;
  };
  bool finished = true;
  for (;;) {
    const int32_t handed = next.load();
    if (!askUpTo(handed < count ? handed + 1 : count)) {
      finished = false;
      break;
    }
    const int32_t band = next.fetch_add(1);
    if (band >= count) break;
    work(context, band);
  }
  after();
  return finished && askUpTo(count);
}

#if !defined(_WIN32)

class BandPool {
 public:
  // Runs the bands on the caller and threads − 1 workers.
  bool Run(int32_t threads, int32_t count, BandWork work, void* context) {
    StartWorkers(threads - 1);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      work_ = work;
      context_ = context;
      count_ = count;
      next_.store(0);
      stop_.store(false);
      ++generation_;
      open_ = true;
    }
    wake_.notify_all();
    return ShareBands(count, work, context, next_, stop_, [&] {
      // Workers that have not joined the run by now never will; those that
      // have finish the band they hold.
      std::unique_lock<std::mutex> lock(mutex_);
      open_ = false;
      idle_.wait(lock, [&] { return active_ == 0; });
    });
  }

  void StopWorkers() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      quit_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : workers_) t.join();
    workers_.clear();
    started_ = 0;
    quit_ = false;
  }

  bool OwnedByThisProcess() const { return owner_ == getpid(); }

 private:
  void StartWorkers(int32_t n) {
    if (started_ == n) return;
    StopWorkers();
    started_ = n;
    owner_ = getpid();
    workers_.reserve(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) {
      try {
        workers_.emplace_back([this] { WorkerLoop(); });
      } catch (const std::system_error&) {
        break;  // fewer workers: the caller and those that started share the bands
      }
    }
  }

  void WorkerLoop() {
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      wake_.wait(lock, [&] { return quit_ || (open_ && generation_ != seen); });
      if (quit_) return;
      seen = generation_;
      ++active_;
      const BandWork work = work_;
      void* const context = context_;
      const int32_t count = count_;
      lock.unlock();
      while (!stop_.load(std::memory_order_relaxed)) {
        const int32_t band = next_.fetch_add(1);
        if (band >= count) break;
        work(context, band);
      }
      lock.lock();
      if (--active_ == 0) idle_.notify_one();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable idle_;
  std::vector<std::thread> workers_;
  int32_t started_ = 0;  // workers asked for (fewer may have started)
  pid_t owner_ = 0;
  uint64_t generation_ = 0;
  bool open_ = false;
  bool quit_ = false;
  int32_t active_ = 0;
  BandWork work_ = nullptr;
  void* context_ = nullptr;
  int32_t count_ = 0;
  std::atomic<int32_t> next_{0};
  std::atomic<bool> stop_{false};
};

BandPool* g_bandPool = nullptr;

// A process forked from one with workers has none of them: its copy of the
// pool is abandoned unjoined (no render runs while a host forks).
BandPool& Pool() {
  if (g_bandPool != nullptr && !g_bandPool->OwnedByThisProcess()) g_bandPool = nullptr;
  if (g_bandPool == nullptr) g_bandPool = new BandPool();
  return *g_bandPool;
}

// Joins the workers when the module is unloaded or the process ends.
struct PoolJoiner {
  ~PoolJoiner() { StopRenderThreads(); }
} g_poolJoiner;

#endif

}  // namespace

int32_t SetRenderThreads(int32_t requested) {
  g_renderThreads = requested < 1 ? 1 : requested > kMaxRenderThreads ? kMaxRenderThreads : requested;
  return g_renderThreads;
}

int32_t RenderThreads() { return g_renderThreads; }

bool RunBands(int32_t count, BandWork work, void* context) {
#if !defined(_WIN32)
  if (g_renderThreads > 1 && count > 1) return Pool().Run(g_renderThreads, count, work, context);
#endif
  std::atomic<int32_t> next{0};
  std::atomic<bool> stop{false};
  return ShareBands(count, work, context, next, stop, [] {});
}

void StopRenderThreads() {
#if !defined(_WIN32)
  if (g_bandPool != nullptr && g_bandPool->OwnedByThisProcess()) {
    g_bandPool->StopWorkers();
    delete g_bandPool;
  }
  g_bandPool = nullptr;
#endif
}

}  // namespace tarvo
