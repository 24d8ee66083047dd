// A one-line progress bar on stderr for sequences: frame n of N, elapsed
// and remaining time, fitted to the terminal's width at every redraw.
// Silent unless enabled (stderr a terminal, no --quiet).
#pragma once

#include <stdint.h>

#include <chrono>

namespace tarvo::cli {

class ProgressBar {
 public:
  ProgressBar(int64_t total, bool enabled);
  // Redraws for done frames finished (at most a few times a second).
  void Update(int64_t done);
  // Draws the final state and ends the line.
  void Finish(int64_t done);

 private:
  void Draw(int64_t done);
  int64_t total_;
  bool enabled_;
  bool drawn_ = false;
  int64_t drawnDone_ = -1;
  std::chrono::steady_clock::time_point start_, lastDraw_;
};

}  // namespace tarvo::cli
