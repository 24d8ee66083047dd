// Every way a command can fail: one line on stderr naming the problem, exit
// status 2 (1 for a message from the effect), no output file and no
// temporary file left, earlier outputs untouched.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cli_support.h"

namespace tarvo::clitest {
namespace {

struct ErrorCase {
  std::vector<std::string> args;
  int exitCode;
  std::string message;  // the whole stderr line, without "tarvo-ripple: " and the newline
};

void ExpectFailure(const ErrorCase& c, const std::string& dir, const std::string& output) {
  std::string shown;
  for (const auto& a : c.args) shown += a + " ";
  SCOPED_TRACE(shown);
  const RunResult r = RunCli(c.args, dir);
  EXPECT_EQ(r.exitCode, c.exitCode);
  EXPECT_EQ(r.err, "tarvo-ripple: " + c.message + "\n");
  EXPECT_EQ(r.out, "");
  if (!output.empty()) {
    EXPECT_FALSE(Exists(dir + "/" + output)) << output;
  }
  EXPECT_TRUE(FilesContaining(dir, ".tmp").empty());
}

class CliErrors : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = TestDir();
    ASSERT_TRUE(WritePicture(dir + "/in.png", MakePicture(32, 24, 4)));
  }
  std::string dir;
};

TEST_F(CliErrors, OptionsAndValues) {
  const ErrorCase cases[] = {
      {{"in.png", "out.png", "--bogus", "1"}, 2, "unknown option --bogus (see --help)"},
      {{"in.png", "out.png", "--radius", "abc"}, 2, "--radius abc is not a number"},
      {{"in.png", "out.png", "--radius", "25x"}, 2, "--radius 25x is not a number"},
      {{"in.png", "out.png", "--radius", "nan"}, 2, "--radius nan is not a number"},
      {{"in.png", "out.png", "--radius", "100.01"}, 2, "--radius 100.01 is outside the range 0 to 100"},
      {{"in.png", "out.png", "--wave-height", "-1"}, 2, "--wave-height -1 is outside the range 0 to 25"},
      {{"in.png", "out.png", "--chaos", "5"}, 2, "--chaos 5 is outside the range 10 to 140"},
      {{"in.png", "out.png", "--phase", "40000"}, 2, "--phase 40000 is too large for the host's fixed-point numbers"},
      {{"in.png", "out.png", "--waveform", "25"}, 2, "--waveform 25 is outside the menu: choose 1 to 24 or a name"},
      {{"in.png", "out.png", "--waveform", "0"}, 2, "--waveform 0 is outside the menu: choose 1 to 24 or a name"},
      {{"in.png", "out.png", "--intensity", "(-"}, 2,
       "--intensity (- is not in the menu: choose 1 to 3 or one of low, normal, super"},
      {{"in.png", "out.png", "--pin-mode", "(-"}, 2,
       "--pin-mode (- is not in the menu: choose 1 to 11 or one of no-pin, pin-edges, pin-center, pin-left, pin-top, "
       "pin-right, pin-bottom, pin-horiz, pin-vertical"},
      {{"in.png", "out.png", "--center", "10"}, 2, "--center 10 is not a point: give X,Y in pixels of the layer"},
      {{"in.png", "out.png", "--center", "33,5"}, 2, "--center 33,5 is outside the 32x24 layer"},
      {{"in.png", "out.png", "--quality", "best"}, 2, "--quality \"best\" is not high or low"},
      {{"in.png", "out.png", "--time", "1.5"}, 2, "--time \"1.5\" is not a whole number"},
      {{"in.png", "out.png", "--time-scale", "0"}, 2, "--time-scale 0 is outside 1 to 4294967295"},
      {{"in.png", "out.png", "--jobs", "0"}, 2, "--jobs 0 is outside 1 to 64"},
      {{"in.png", "out.png", "--radius"}, 2, "--radius: 1 required VALUE missing (see --help)"},
      {{"in.png"}, 2, "give INPUT and OUTPUT, --demo OUTPUT or --list-params (see --help)"},
      {{"in.png", "out.png", "--json"}, 2, "--json goes with --list-params"},
      {{"in.png", "out.png", "--size", "10x10"}, 2, "--size goes with --demo"},
      {{"--demo", "out.png", "--size", "5000x10"}, 2, "--size width 5000 is outside 1 to 4095"},
      {{"--demo", "out.png", "--size", "64"}, 2, "--size \"64\" is not WxH, e.g. 640x480"},
      {{"in.png", "out.png", "--module", "/nonexistent.so"}, 2,
       "cannot load module /nonexistent.so: /nonexistent.so: cannot open shared object file: No such file or directory"},
  };
  for (const ErrorCase& c : cases) ExpectFailure(c, dir, "out.png");
}

// CRC-32 of PNG chunks.
uint32_t Crc32(const std::string& bytes) {
  uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return c ^ 0xFFFFFFFFu;
}

// The PNG with its header saying 0 × 0 pixels (and a valid checksum).
std::string ZeroSizedPng(std::string png) {
  for (int i = 16; i < 24; ++i) png[static_cast<size_t>(i)] = 0;  // IHDR width and height
  const uint32_t crc = Crc32(png.substr(12, 17));
  for (int i = 0; i < 4; ++i) png[static_cast<size_t>(29 + i)] = static_cast<char>(crc >> (24 - 8 * i));
  return png;
}

TEST_F(CliErrors, InputsThatCannotBeRendered) {
  std::ofstream(dir + "/empty.png").close();
  std::ofstream(dir + "/zero.png", std::ios::binary) << ZeroSizedPng(ReadFile(dir + "/in.png"));
  std::ofstream(dir + "/text.png") << "not an image\n";
  std::ofstream(dir + "/notes.txt") << "not an image either\n";
  const std::string png = ReadFile(dir + "/in.png");
  std::ofstream(dir + "/cut.png", std::ios::binary) << png.substr(0, png.size() / 2);
  ASSERT_TRUE(WritePicture(dir + "/wide.png", MakePicture(4096, 2, 3)));
  ASSERT_TRUE(WritePicture(dir + "/widest.png", MakePicture(4095, 2, 3)));
  std::filesystem::create_directory(dir + "/folder.png");
  const ErrorCase cases[] = {
      {{"missing.png", "out.png"}, 2, "cannot read missing.png: no such file"},
      {{"folder.png", "out.png"}, 2, "cannot read folder.png: it is a directory"},
      {{"empty.png", "out.png"}, 2, "cannot read empty.png: Not a PNG file"},
      {{"zero.png", "out.png"}, 2, "cannot read zero.png: PNG read error: Invalid IHDR data"},
      {{"text.png", "out.png"}, 2, "cannot read text.png: Not a PNG file"},
      {{"notes.txt", "out.png"}, 2,
       "cannot read notes.txt: OpenImageIO could not find a format reader for \"notes.txt\". Is it a file format that "
       "OpenImageIO doesn't know about?"},
      {{"cut.png", "out.png"}, 2, "cannot read cut.png: Read error: hit end of file"},
      {{"wide.png", "out.png"}, 2, "wide.png is 4096x2, larger than the effect allows (4095x32767 at most)"},
  };
  for (const ErrorCase& c : cases) ExpectFailure(c, dir, "out.png");
  EXPECT_EQ(RunCli({"widest.png", "out.png"}, dir).exitCode, 0);  // the largest width is fine
}

TEST_F(CliErrors, OutputsThatCannotBeWritten) {
  std::filesystem::create_directory(dir + "/taken.png");
  const ErrorCase cases[] = {
      {{"in.png", "nodir/out.png"}, 2, "cannot write nodir/out.png: directory nodir does not exist"},
      {{"in.png", "out.xyz"}, 2, "cannot write out.xyz: no image format for \".xyz\""},
      {{"in.png", "out"}, 2, "cannot write out: no file extension to choose a format by"},
      {{"in.png", "taken.png"}, 2, "cannot write taken.png: Is a directory"},
  };
  for (const ErrorCase& c : cases) ExpectFailure(c, dir, "");
  EXPECT_TRUE(std::filesystem::is_directory(dir + "/taken.png"));
}

TEST_F(CliErrors, SequencesNeedFramesAndEveryInputFrame) {
  ASSERT_TRUE(WritePicture(dir + "/s_0.png", MakePicture(20, 10, 4)));
  ASSERT_TRUE(WritePicture(dir + "/s_2.png", MakePicture(20, 10, 4)));
  std::ofstream(dir + "/o_0.png") << "earlier output";
  const ErrorCase cases[] = {
      {{"in.png", "o_%d.png"}, 2, "\"o_%d.png\" holds a frame number: give --frames A-B"},
      {{"s_%d.png", "x.png"}, 2, "\"s_%d.png\" holds a frame number: give --frames A-B"},
      {{"in.png", "x.png", "--frames", "0-2"}, 2, "OUTPUT \"x.png\" needs a frame number such as %04d to render --frames"},
      {{"in.png", "o_%d_%d.png", "--frames", "0-2"}, 2, "\"o_%d_%d.png\" has more than one frame number"},
      {{"s_%d.png", "o_%d.png", "--frames", "0-2"}, 2, "input frame 1 is missing: s_1.png"},
      {{"in.png", "o_%d.png", "--frames", "2-0"}, 2, "--frames 2-0 runs backwards"},
      {{"in.png", "o_%d.png", "--frames", "0-1", "--time", "3"}, 2,
       "--time goes with a single frame; with --frames frame n renders at n x time-step"},
      {{"in.png", "o_%d.png", "--frames", "0-3", "--time-step", "1000000000"}, 2,
       "--frames 0-3 with --time-step 1000000000 runs past the host's time range"},
  };
  for (const ErrorCase& c : cases) ExpectFailure(c, dir, "o_1.png");
  EXPECT_EQ(ReadFile(dir + "/o_0.png"), "earlier output");
}

TEST_F(CliErrors, ACorruptFrameStopsTheSequenceAndKeepsTheFramesBefore) {
  for (int n : {0, 1, 3}) ASSERT_TRUE(WritePicture(dir + "/s_" + std::to_string(n) + ".png", MakePicture(20, 10, 4)));
  std::ofstream(dir + "/s_2.png") << "broken";
  ExpectFailure({{"s_%d.png", "o_%d.png", "--frames", "0-3", "--jobs", "1"}, 2, "cannot read s_2.png: Not a PNG file"},
                dir, "o_2.png");
  EXPECT_TRUE(Exists(dir + "/o_0.png"));
  EXPECT_TRUE(Exists(dir + "/o_1.png"));
  EXPECT_FALSE(Exists(dir + "/o_3.png"));
  Rgba kept;
  EXPECT_TRUE(ReadPicture(dir + "/o_1.png", &kept));

  // Spread over processes the failure is reported once, the same way.
  const RunResult r = RunCli({"s_%d.png", "p_%d.png", "--frames", "0-3", "--jobs", "2"}, dir);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "tarvo-ripple: cannot read s_2.png: Not a PNG file\n");
  EXPECT_FALSE(Exists(dir + "/p_2.png"));
  EXPECT_TRUE(FilesContaining(dir, ".tmp").empty());
}

TEST_F(CliErrors, AMessageFromTheEffectExitsWithOneAndWritesNothing) {
  // The first allocation whose failure the effect reports (failures of some,
  // such as wrapping the host's images, are silent by design).
  InProcess p;
  ASSERT_NE(p.Module().AllocStats(), nullptr) << "module built without its test interface";
  host::ModuleAllocStats& stats = *p.Module().AllocStats();
  const host::Image input = ToArgb(MakePicture(32, 24, 4));
  stats.allocCount = 0;
  p.Render(input);
  const int64_t allocations = stats.allocCount;
  int64_t reported = 0;
  for (int64_t n = 1; n <= allocations && !reported; ++n) {
    host::Image out(input.width, input.height);
    stats.failAt = n;
    p.Host().Render(input, out);
    if (p.Host().ErrorMessage() == "Memory Allocation Failure!") reported = n;
  }
  stats.failAt = 0;
  if (!reported) GTEST_SKIP() << "no allocation of the render reports its failure";

  std::ofstream(dir + "/out.png") << "earlier output";
  const std::string n = std::to_string(reported);
  const RunResult r = RunCli({"in.png", "out.png", "--fail-allocation", n}, dir);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "tarvo-ripple: Tarvo FX Ripple: Memory Allocation Failure!\n");
  EXPECT_EQ(ReadFile(dir + "/out.png"), "earlier output");
  std::filesystem::copy_file(dir + "/in.png", dir + "/s_4.png");
  std::filesystem::copy_file(dir + "/in.png", dir + "/s_5.png");
  ExpectFailure({{"s_%d.png", "f_%d.png", "--frames", "4-5", "--fail-allocation", n, "--jobs", "1"}, 1,
                 "frame 4: Tarvo FX Ripple: Memory Allocation Failure!"},
                dir, "f_4.png");
}

}  // namespace
}  // namespace tarvo::clitest
