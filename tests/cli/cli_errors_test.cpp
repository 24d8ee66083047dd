// Every way a command can fail: one line on stderr naming the problem, exit
// status 2 (1 for a message from the effect), nothing on stdout, no output
// file and no temporary file left, earlier outputs untouched.
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
  std::string absent;   // a file the run must not leave ("" for none)
};

void ExpectFailure(const ErrorCase& c, const std::string& dir) {
  std::string shown;
  for (const auto& a : c.args) shown += a + " ";
  SCOPED_TRACE(shown);
  const RunResult r = RunCli(c.args, dir);
  EXPECT_EQ(r.exitCode, c.exitCode);
  EXPECT_EQ(r.err, "tarvo-ripple: " + c.message + "\n");
  EXPECT_EQ(r.out, "");
  EXPECT_TRUE(c.absent.empty() || !Exists(dir + "/" + c.absent)) << c.absent;
  EXPECT_TRUE(FilesContaining(dir, ".tmp").empty());
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

// A little-endian TIFF of 8-bit samples whose header is all there is.
std::string TiffHeader(uint16_t width, uint16_t height, uint16_t channels) {
  std::string t("II*\0\x08\0\0\0", 8);
  auto u16 = [&](uint16_t v) { t += static_cast<char>(v & 255), t += static_cast<char>(v >> 8); };
  auto u32 = [&](uint32_t v) { u16(static_cast<uint16_t>(v)), u16(static_cast<uint16_t>(v >> 16)); };
  const uint16_t entries[][2] = {{256, width}, {257, height},   {258, 8},      {259, 1},  {262, 1},
                                 {273, 0},     {277, channels}, {278, height}, {279, 64}, {284, 1}};
  u16(10);
  for (const auto& e : entries) u16(e[0]), u16(3), u32(1), u32(e[1]);
  u32(0);
  return t;
}

TEST(CliErrors, OneLineExitTwoAndNoFileForEachBadCommand) {
  const std::string dir = TestDir();
  auto write = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
  };
  ASSERT_TRUE(WritePicture(dir + "/in.png", MakePicture(32, 24, 4)));
  const std::string png = ReadFile(dir + "/in.png");
  write("empty.png", "");
  write("zero.png", ZeroSizedPng(png));
  write("text.png", "not an image\n");
  write("notes.txt", "not an image either\n");
  write("cut.png", png.substr(0, png.size() / 2));
  write("many.tif", TiffHeader(4095, 8000, 1024));
  ASSERT_TRUE(WritePicture(dir + "/wide.png", MakePicture(4096, 2, 3)));
  ASSERT_TRUE(WritePicture(dir + "/s_0.png", MakePicture(20, 10, 4)));
  ASSERT_TRUE(WritePicture(dir + "/s_2.png", MakePicture(20, 10, 4)));
  write("o_0.png", "earlier output");
  std::filesystem::create_directory(dir + "/folder.png");
  std::filesystem::create_directory(dir + "/taken.png");
  const ErrorCase cases[] = {
      // Options and values.
      {{"in.png", "out.png", "--radius", "abc"}, 2, "--radius abc is not a number", "out.png"},
      {{"in.png", "out.png", "--radius", "25x"}, 2, "--radius 25x is not a number", "out.png"},
      {{"in.png", "out.png", "--radius", "100.01"}, 2, "--radius 100.01 is outside the range 0 to 100", "out.png"},
      {{"in.png", "out.png", "--wave-height", "-1"}, 2, "--wave-height -1 is outside the range 0 to 25", "out.png"},
      {{"in.png", "out.png", "--chaos", "5"}, 2, "--chaos 5 is outside the range 10 to 140", "out.png"},
      {{"in.png", "out.png", "--phase", "40000"},
       2,
       "--phase 40000 is outside the range -32768 to 32768, what the host's fixed-point numbers hold",
       "out.png"},
      {{"in.png", "out.png", "--intensity", "(-"},
       2,
       "--intensity (- is not in the menu: choose one of 1 low, 2 normal, 3 super",
       "out.png"},
      {{"in.png", "out.png", "--center", "10"},
       2,
       "--center 10 is not a point: give X,Y in pixels of the layer",
       "out.png"},
      {{"in.png", "out.png", "--center", "33,5"}, 2, "--center 33,5 is outside the 32x24 layer", "out.png"},
      {{"in.png", "out.png", "--quality", "best"}, 2, "--quality \"best\" is not high or low", "out.png"},
      {{"in.png", "out.png", "--time", "1.5"}, 2, "--time \"1.5\" is not a whole number", "out.png"},
      {{"in.png", "out.png", "--time-scale", "0"}, 2, "--time-scale 0 is outside 1 to 4294967295", "out.png"},
      {{"in.png", "out.png", "--jobs", "0"}, 2, "--jobs 0 is outside 1 to 64", "out.png"},
      {{"in.png", "out.png", "--threads", "65"}, 2, "--threads 65 is outside 1 to 64", "out.png"},
      {{"--demo", "j_%d.png", "--frames", "0-63", "--jobs", "64", "--threads", "64"},
       2,
       "--jobs 64 with --threads 64 needs 4096 cores, more than this machine has",
       "j_0.png"},
      {{"in.png", "out.png", "--png-compression", "10"}, 2, "--png-compression 10 is outside 0 to 9", "out.png"},
      {{"in.png", "out.png", "--radius"}, 2, "--radius: 1 required VALUE missing (see --help)", "out.png"},
      {{"in.png"}, 2, "give INPUT and OUTPUT, --demo OUTPUT or --list-params (see --help)", ""},
      {{"in.png", "out.png", "--json"}, 2, "--json goes with --list-params", "out.png"},
      {{"in.png", "out.png", "--size", "10x10"}, 2, "--size goes with --demo", "out.png"},
      {{"--demo", "out.png", "--size", "5000x10"}, 2, "--size width 5000 is outside 1 to 4095", "out.png"},
      {{"--demo", "out.png", "--size", "64"}, 2, "--size \"64\" is not WxH, e.g. 640x480", "out.png"},
      {{"in.png", "out.png", "--module", "/nonexistent.so"},
       2,
       "cannot load module /nonexistent.so: /nonexistent.so: cannot open shared object file: No such file or directory",
       "out.png"},
      // Inputs that cannot be rendered.
      {{"missing.png", "out.png"}, 2, "cannot read missing.png: no such file", "out.png"},
      {{"folder.png", "out.png"}, 2, "cannot read folder.png: it is a directory", "out.png"},
      {{"empty.png", "out.png"}, 2, "cannot read empty.png: Not a PNG file", "out.png"},
      {{"zero.png", "out.png"}, 2, "cannot read zero.png: PNG read error: Invalid IHDR data", "out.png"},
      {{"text.png", "out.png"}, 2, "cannot read text.png: Not a PNG file", "out.png"},
      {{"notes.txt", "out.png"},
       2,
       "cannot read notes.txt: OpenImageIO could not find a format reader for \"notes.txt\". Is it a file format that "
       "OpenImageIO doesn't know about?",
       "out.png"},
      {{"cut.png", "out.png"}, 2, "cannot read cut.png: Read error: hit end of file", "out.png"},
      {{"wide.png", "out.png"}, 2, "wide.png is 4096x2, larger than the effect allows (4095x32767 at most)", "out.png"},
      // A header promising more data than a frame holds: refused before anything is allocated for it.
      {{"many.tif", "out.png"},
       2,
       "many.tif is 4095x8000 with 1024 channels, more than the effect allows (4 channels of 4095x32767 at most)",
       "out.png"},
      // Outputs that cannot be written.
      {{"in.png", "nodir/out.png"}, 2, "cannot write nodir/out.png: directory nodir does not exist", ""},
      {{"in.png", "out.xyz"}, 2, "cannot write out.xyz: no image format for \".xyz\"", "out.xyz"},
      {{"in.png", "out"}, 2, "cannot write out: no file extension to choose a format by", "out"},
      {{"in.png", "taken.png"}, 2, "cannot write taken.png: Is a directory", ""},
      // Sequences need frames and every input frame.
      {{"in.png", "o_%d.png"}, 2, "\"o_%d.png\" holds a frame number: give --frames A-B", "o_1.png"},
      {{"s_%d.png", "x.png"}, 2, "\"s_%d.png\" holds a frame number: give --frames A-B", "x.png"},
      {{"in.png", "x.png", "--frames", "0-2"},
       2,
       "OUTPUT \"x.png\" needs a frame number such as %04d to render --frames",
       "x.png"},
      {{"in.png", "o_%d_%d.png", "--frames", "0-2"}, 2, "\"o_%d_%d.png\" has more than one frame number", ""},
      {{"s_%d.png", "o_%d.png", "--frames", "0-2"}, 2, "input frame 1 is missing: s_1.png", "o_2.png"},
      {{"in.png", "o_%d.png", "--frames", "2-0"}, 2, "--frames 2-0 runs backwards", "o_1.png"},
      {{"in.png", "o_%d.png", "--frames", "0-1", "--time", "3"},
       2,
       "--time goes with a single frame; with --frames frame n renders at n x time-step",
       "o_1.png"},
      {{"in.png", "o_%d.png", "--frames", "0-3", "--time-step", "1000000000"},
       2,
       "--frames 0-3 with --time-step 1000000000 runs past the host's time range",
       "o_1.png"},
  };
  for (const ErrorCase& c : cases) ExpectFailure(c, dir);
  EXPECT_TRUE(std::filesystem::is_directory(dir + "/taken.png"));
  EXPECT_EQ(ReadFile(dir + "/o_0.png"), "earlier output");
  ASSERT_TRUE(WritePicture(dir + "/widest.png", MakePicture(4095, 2, 3)));
  EXPECT_EQ(RunCli({"widest.png", "out.png"}, dir).exitCode, 0) << "the largest width is fine";
}

TEST(CliErrors, ACorruptFrameStopsTheSequenceAndKeepsTheFramesBefore) {
  const std::string dir = TestDir();
  for (int n : {0, 1, 3}) ASSERT_TRUE(WritePicture(dir + "/s_" + std::to_string(n) + ".png", MakePicture(20, 10, 4)));
  std::ofstream(dir + "/s_2.png") << "broken";
  ExpectFailure(
      {{"s_%d.png", "o_%d.png", "--frames", "0-3", "--jobs", "1"}, 2, "cannot read s_2.png: Not a PNG file", "o_2.png"},
      dir);
  Rgba kept;
  EXPECT_TRUE(ReadPicture(dir + "/o_0.png", &kept));
  EXPECT_TRUE(ReadPicture(dir + "/o_1.png", &kept));
  EXPECT_FALSE(Exists(dir + "/o_3.png"));
  // Spread over processes the failure is reported once, the same way.
  ExpectFailure(
      {{"s_%d.png", "p_%d.png", "--frames", "0-3", "--jobs", "2"}, 2, "cannot read s_2.png: Not a PNG file", "p_2.png"},
      dir);
}

// Allocation 3 is the first whose failure the effect reports (the first
// two wrap the host's images and fail silently; tests/faults pins this).
TEST(CliErrors, AMessageFromTheEffectExitsWithOneAndWritesNothing) {
  const std::string dir = TestDir();
  ASSERT_TRUE(WritePicture(dir + "/in.png", MakePicture(32, 24, 4)));
  std::ofstream(dir + "/out.png") << "earlier output";
  ExpectFailure({{"in.png", "out.png", "--fail-allocation", "3"}, 1, "Tarvo FX Ripple: Memory Allocation Failure!", ""},
                dir);
  EXPECT_EQ(ReadFile(dir + "/out.png"), "earlier output");
  std::filesystem::copy_file(dir + "/in.png", dir + "/s_4.png");
  std::filesystem::copy_file(dir + "/in.png", dir + "/s_5.png");
  ExpectFailure({{"s_%d.png", "f_%d.png", "--frames", "4-5", "--fail-allocation", "3", "--jobs", "1"},
                 1,
                 "frame 4: Tarvo FX Ripple: Memory Allocation Failure!",
                 "f_4.png"},
                dir);
}

}  // namespace
}  // namespace tarvo::clitest
