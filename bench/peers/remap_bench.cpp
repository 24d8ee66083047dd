// The cost floors of a map-based warp on one thread, on the benchmark's
// test picture: a plain copy of the frame, and OpenCV's cv::remap with a
// precomputed map of the frame's size (a ripple much like the effect's
// default: 30-pixel radial waves 240 pixels apart, full out to 480 pixels
// and fading out at 960). Built and run by scripts/peers.sh, not by the
// project's build.
//
// With EFFECT_MAP (written by tarvo_stage_bench --write-map), also the
// remap along the effect's own source map of the same frame, so that both
// sample the same points. The *_all_cores lines run on OpenCV's default
// thread count (their CPU column is the calling thread's alone).
//
// Usage: remap_bench PICTURE [REPETITIONS [EFFECT_MAP]]
// Prints one line per measurement: name, median wall ms, median CPU ms.
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

double Seconds(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return t.tv_sec + t.tv_nsec * 1e-9;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// Three warm-up runs, then the median of the repetitions.
void Measure(const char* name, int repetitions, const std::function<void()>& run) {
  for (int i = 0; i < 3; ++i) run();
  std::vector<double> wall, cpu;
  for (int i = 0; i < repetitions; ++i) {
    const double w0 = Seconds(CLOCK_MONOTONIC), c0 = Seconds(CLOCK_THREAD_CPUTIME_ID);
    run();
    cpu.push_back(Seconds(CLOCK_THREAD_CPUTIME_ID) - c0);
    wall.push_back(Seconds(CLOCK_MONOTONIC) - w0);
  }
  printf("%s %.3f %.3f\n", name, Median(wall) * 1e3, Median(cpu) * 1e3);
  fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: remap_bench PICTURE [REPETITIONS]\n");
    return 2;
  }
  const int repetitions = argc > 2 ? std::max(1, atoi(argv[2])) : 15;
  cv::setNumThreads(1);
  cv::Mat bgr = cv::imread(argv[1], cv::IMREAD_UNCHANGED);
  if (bgr.empty()) {
    fprintf(stderr, "cannot read %s\n", argv[1]);
    return 1;
  }
  cv::Mat src;
  if (bgr.channels() == 4) {
    src = bgr;
  } else {
    cv::cvtColor(bgr, src, cv::COLOR_BGR2BGRA);
  }
  const int w = src.cols, h = src.rows;

  cv::Mat mapX(h, w, CV_32FC1), mapY(h, w, CV_32FC1);
  const double cx = w * 0.5, cy = h * 0.5, radius = 0.25 * w, outer = 2 * radius;
  const double height = 0.03125 * (w / 2), period = 360.0 / (180.0 / (0.0625 * w));
  for (int y = 0; y < h; ++y) {
    float* mx = mapX.ptr<float>(y);
    float* my = mapY.ptr<float>(y);
    for (int x = 0; x < w; ++x) {
      const double dx = x - cx, dy = y - cy, d = std::sqrt(dx * dx + dy * dy);
      double dr = height * std::sin(2 * M_PI * d / period);
      if (d > radius) dr *= std::max(0.0, (outer - d) / (outer - radius));
      const double k = d > 0 ? (d + dr) / d : 1.0;
      mx[x] = static_cast<float>(cx + dx * k);
      my[x] = static_cast<float>(cy + dy * k);
    }
  }
  cv::Mat fixedXY, fixedFrac;
  cv::convertMaps(mapX, mapY, fixedXY, fixedFrac, CV_16SC2);

  cv::Mat dst(h, w, CV_8UC4), copy(h, w, CV_8UC4);
  const size_t bytes = static_cast<size_t>(w) * h * 4;
  Measure("memcpy", repetitions, [&] { memcpy(copy.data, src.data, bytes); });
  Measure("remap_linear_float_map", repetitions,
          [&] { cv::remap(src, dst, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar()); });
  Measure("remap_linear_fixed_map", repetitions,
          [&] { cv::remap(src, dst, fixedXY, fixedFrac, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar()); });
  Measure("remap_nearest_float_map", repetitions,
          [&] { cv::remap(src, dst, mapX, mapY, cv::INTER_NEAREST, cv::BORDER_CONSTANT, cv::Scalar()); });

  cv::Mat effectXY;
  if (argc > 3) {
    FILE* f = fopen(argv[3], "rb");
    int mw = 0, mh = 0;
    if (!f || fscanf(f, "TARVOMAP %d %d", &mw, &mh) != 2 || fgetc(f) != '\n' || mw != w || mh != h) {
      fprintf(stderr, "%s is not a source map of a %dx%d frame\n", argv[3], w, h);
      return 1;
    }
    effectXY.create(h, w, CV_32FC2);
    const bool read = fread(effectXY.data, sizeof(float), 2 * static_cast<size_t>(w) * h, f) == 2 * size_t(w) * h;
    fclose(f);
    if (!read) {
      fprintf(stderr, "%s is cut short\n", argv[3]);
      return 1;
    }
    Measure("remap_linear_effect_map", repetitions,
            [&] { cv::remap(src, dst, effectXY, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar()); });
  }

  cv::setNumThreads(-1);  // OpenCV's default: every core
  Measure("remap_linear_float_map_all_cores", repetitions,
          [&] { cv::remap(src, dst, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar()); });
  if (!effectXY.empty()) {
    Measure("remap_linear_effect_map_all_cores", repetitions,
            [&] { cv::remap(src, dst, effectXY, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar()); });
  }
  return 0;
}
