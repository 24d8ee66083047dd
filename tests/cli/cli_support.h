// Running tarvo-ripple from a test, files in and out, and the same render
// made through the in-process host for comparison.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "host.h"

namespace tarvo::clitest {

struct RunResult {
  int exitCode = -1;
  std::string out, err;
};

// Runs the executable with args in dir (no shell involved).
RunResult RunCli(const std::vector<std::string>& args, const std::string& dir);

// A fresh, empty directory for the current test.
std::string TestDir();

// An RGBA picture whose pixels are all different-ish: gradients, a
// checkerboard and alpha from 0 to 255.
struct Rgba {
  int width = 0, height = 0, channels = 4;
  std::vector<uint8_t> pixels;  // width × height × channels
};
Rgba MakePicture(int width, int height, int channels);
// Straight (unassociated) colour in and out; false on failure.
bool WritePicture(const std::string& path, const Rgba& picture);
bool ReadPicture(const std::string& path, Rgba* picture);

// The picture as the effect sees it (gray → R = G = B, no alpha → 255).
host::Image ToArgb(const Rgba& picture);

// The plug-in set up through the in-process host, parameters at their
// declared defaults until changed.
class InProcess {
 public:
  InProcess();
  host::Host& Host() { return *host_; }
  int Index(const std::string& displayName) const;
  host::Image Render(const host::Image& input);

 private:
  std::unique_ptr<host::Module> module_;
  std::unique_ptr<host::Host> host_;
};

std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);
// Files in dir whose name holds text (e.g. temporary files left behind).
std::vector<std::string> FilesContaining(const std::string& dir, const std::string& text);

}  // namespace tarvo::clitest
