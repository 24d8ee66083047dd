// Input files whose header promises more than can be read: refused with one
// line before anything is allocated for them.
#include <gtest/gtest.h>
#include <stdint.h>

#include <fstream>
#include <string>

#include "cli_support.h"

namespace tarvo::clitest {
namespace {

// A little-endian TIFF of 8-bit samples whose header is all there is.
std::string TiffHeader(uint16_t width, uint16_t height, uint16_t channels) {
  std::string t("II*\0\x08\0\0\0", 8);
  auto u16 = [&](uint16_t v) { t += static_cast<char>(v & 255), t += static_cast<char>(v >> 8); };
  auto u32 = [&](uint32_t v) { u16(static_cast<uint16_t>(v)), u16(static_cast<uint16_t>(v >> 16)); };
  const struct {
    uint16_t tag, value;
  } entries[] = {{256, width}, {257, height}, {258, 8},  {259, 1},      {262, 1},
                 {273, 0},     {277, channels}, {278, height}, {279, 64}, {284, 1}};
  u16(10);
  for (const auto& e : entries) u16(e.tag), u16(3), u32(1), u32(e.value);
  u32(0);
  return t;
}

TEST(CliRobustness, AHeaderPromisingMoreDataThanAFrameHoldsIsRefused) {
  const std::string dir = TestDir();
  std::ofstream(dir + "/many.tif", std::ios::binary) << TiffHeader(4095, 8000, 1024);
  const RunResult r = RunCli({"many.tif", "out.png"}, dir);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err,
            "tarvo-ripple: many.tif is 4095x8000 with 1024 channels, more than the effect allows (4 channels of "
            "4095x32767 at most)\n");
  EXPECT_FALSE(Exists(dir + "/out.png"));
  EXPECT_TRUE(FilesContaining(dir, ".tmp").empty());
}

}  // namespace
}  // namespace tarvo::clitest
