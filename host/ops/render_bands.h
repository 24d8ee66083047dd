// A render's work split into bands that may run on several threads.
//
// The module starts no thread of its own accord: a render uses one thread,
// the host's, unless the host asked for more through TarvoRenderThreads
// (thread_request.h). Then the bands of a stage are shared between the
// host's calling thread and a pool of workers that lives until global
// set-down or until the module is unloaded.
//
// Host callbacks stay on the calling thread: it asks the host once for
// every band whether to stop (CheckAbort), as it hands out its own bands
// and catches up with those the workers took; a stop lets every worker
// finish the band it holds and start no other. A band must
// write only what no other band of the same run reads or writes, so that
// the result is the same whichever thread runs it and in whatever order.
#pragma once

#include <stdint.h>

namespace tarvo {

// Threads a render may use: 1 unless the host asked for more.
int32_t RenderThreads();

using BandWork = void (*)(void* context, int32_t band);

// Runs work(context, b) for every band b of 0..count − 1, each exactly once,
// on the calling thread and the pool's workers; bands are handed out in
// increasing order. Without a stop the host is asked count times, whatever
// the thread count. Returns false when the host asked to stop: bands not yet
// handed out are never run, and every band that was has finished.
bool RunBands(int32_t count, BandWork work, void* context);

template <class Work>
bool RunBands(int32_t count, Work& work) {
  return RunBands(
      count, [](void* context, int32_t band) { (*static_cast<Work*>(context))(band); }, &work);
}

// Runs rows(begin, end) over 0..rowCount − 1 in bands of whole rows: about
// eight bands per thread, so that uneven rows even out, and one band per
// row on a single thread (the host is then asked before every row).
template <class Rows>
bool RunRowBands(int32_t rowCount, Rows& rows) {
  const int32_t threads = RenderThreads();
  const int32_t perBand = threads > 1 ? (rowCount + 8 * threads - 1) / (8 * threads) : 1;
  const int32_t size = perBand < 1 ? 1 : perBand;
  auto band = [&](int32_t b) {
    const int32_t begin = b * size;
    rows(begin, rowCount - begin < size ? rowCount : begin + size);
  };
  return RunBands(rowCount <= 0 ? 0 : (rowCount - 1) / size + 1, band);
}

// Joins the pool's workers (the module's global set-down); a later render
// that may use several threads starts them again.
void StopRenderThreads();

}  // namespace tarvo
