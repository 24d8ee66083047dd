// Times the studio's render natively: the built-in demo picture at WxH
// (default 640x480) with the default settings, one thread: the median and
// the fastest of N renders (default 15) in milliseconds on stdout.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "studio.h"

int main(int argc, char** argv) {
  int width = 640, height = 480, runs = 15;
  if (argc > 1 && sscanf(argv[1], "%dx%d", &width, &height) != 2) {
    fprintf(stderr, "usage: tarvo-studio-time [WxH [N]]\n");
    return 2;
  }
  if (argc > 2) runs = std::max(1, atoi(argv[2]));
  const char* opened = StudioOpen();
  if (opened[0] != '{') {
    fprintf(stderr, "tarvo-studio-time: %s\n", opened);
    return 1;
  }
  if (const char* bad = StudioUseDemo(width, height); *bad) {
    fprintf(stderr, "tarvo-studio-time: %s\n", bad);
    return 2;
  }
  std::vector<double> ms;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (const char* bad = StudioRender(""); *bad) {
      fprintf(stderr, "tarvo-studio-time: %s\n", bad);
      return 1;
    }
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(ms.begin(), ms.end());
  printf("%.2f %.2f\n", ms[ms.size() / 2], ms.front());
  return 0;
}
