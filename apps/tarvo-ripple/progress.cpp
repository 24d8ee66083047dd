#include "progress.h"

#include <stdio.h>

#include <algorithm>
#include <string>

#if !defined(_WIN32)
#include <sys/ioctl.h>
#include <unistd.h>
#endif

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

// Columns of the terminal on stderr, asked at every redraw so that the bar
// follows a resize; 80 when it cannot say.
int TerminalColumns() {
#if !defined(_WIN32)
  winsize ws{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
#endif
  return 80;
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
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const std::string left = done > 0 ? Clock(elapsed / static_cast<double>(done) * static_cast<double>(total_ - done))
                                    : "?";
  const std::string n = std::to_string(done), all = std::to_string(total_);
  // The line stays one column short of the width, so the terminal never
  // wraps it: the long text, else a short one, else as much as fits.
  const size_t width = static_cast<size_t>(std::max(TerminalColumns() - 1, 1));
  std::string text = " frame " + n + " of " + all + "  " + Clock(elapsed) + " elapsed, " + left + " left";
  if (text.size() + 8 > width) text = " " + n + "/" + all + " " + left + " left";
  std::string line;
  if (text.size() + 8 <= width) {
    const size_t cells = std::min<size_t>(width - text.size() - 2, 40);
    std::string bar(static_cast<size_t>(done * static_cast<int64_t>(cells) / total_), '#');
    bar.resize(cells, '.');
    line = "[" + bar + "]" + text;
  } else {
    line = text.substr(1, width);
  }
  fprintf(stderr, "\r%s\033[K", line.c_str());
  fflush(stderr);
  drawn_ = true;
  drawnDone_ = done;
}

}  // namespace tarvo::cli
