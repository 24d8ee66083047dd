// Runs the fuzz target once on each file given (or each file in each folder
// given), without libFuzzer: the corpus becomes a regression test for every
// compiler, and a crash file found by the fuzzer can be replayed under a
// debugger.
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path p = argv[i];
    if (std::filesystem::is_directory(p)) {
      for (const auto& e : std::filesystem::directory_iterator(p))
        if (e.is_regular_file()) files.push_back(e.path());
    } else {
      files.push_back(p);
    }
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    fprintf(stderr, "usage: %s FILE|FOLDER...\n", argv[0]);
    return 2;
  }
  for (const auto& f : files) {
    std::ifstream s(f, std::ios::binary);
    if (!s) {
      fprintf(stderr, "cannot read %s\n", f.c_str());
      return 2;
    }
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(s)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  printf("%zu inputs replayed\n", files.size());
  return 0;
}
