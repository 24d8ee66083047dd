#include "progress.h"

#include <stdio.h>

#include <string>

namespace tarvo::cli {

namespace {
std::string Clock(double seconds) {
  const long s = static_cast<long>(seconds + 0.5);
  char buf[32];
  if (s >= 3600)
    snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  else
    snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
  return buf;
}
}  // namespace

ProgressBar::ProgressBar(int64_t total, bool enabled)
    : total_(total), enabled_(enabled && total > 0), start_(std::chrono::steady_clock::now()), lastDraw_(start_) {}

void ProgressBar::Update(int64_t done) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - lastDraw_ < std::chrono::milliseconds(100) && done < total_) return;
  lastDraw_ = now;
  Draw(done);
}

void ProgressBar::Finish(int64_t done) {
  if (!enabled_) return;
  if (done != drawnDone_) Draw(done);
  fputc('\n', stderr);
  fflush(stderr);
}

void ProgressBar::Draw(int64_t done) {
  constexpr int kCells = 24;
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const int filled = static_cast<int>(done * kCells / total_);
  std::string bar(static_cast<size_t>(filled), '#');
  bar.resize(kCells, '.');
  const std::string left = done > 0 ? Clock(elapsed / static_cast<double>(done) * static_cast<double>(total_ - done)) : "?";
  fprintf(stderr, "\r[%s] frame %lld of %lld  %s elapsed, %s left ", bar.c_str(), static_cast<long long>(done),
          static_cast<long long>(total_), Clock(elapsed).c_str(), left.c_str());
  fflush(stderr);
  drawn_ = true;
  drawnDone_ = done;
}

}  // namespace tarvo::cli
