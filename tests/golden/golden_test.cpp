// Golden images: every case of the table renders the 128 × 96 test pattern
// and must match its PNG in tests/golden/data byte for byte. The pixel
// arithmetic is defined to the bit, so there is no tolerance.
//
// Rewriting the files is deliberate: TARVO_UPDATE_GOLDEN=1 in the
// environment, or --update on the command line. A missing file is a
// failure. On a mismatch the actual render is written to the build
// directory and its path printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "golden_support.h"

namespace tarvo::golden {
namespace {

namespace fs = std::filesystem;
bool g_update = false;

class Golden : public ::testing::TestWithParam<Case> {};

TEST_P(Golden, MatchesItsImageByteForByte) {
  const Case& c = GetParam();
  host::Image render;
  std::string error;
  ASSERT_TRUE(Render(c, TestPattern(128, 96), &render, &error)) << error;
  const RgbaImage got = ToRgba(render);
  const std::string path = (fs::path(TARVO_GOLDEN_DIR) / (c.name + ".png")).string();
  RgbaImage want;
  const bool exists = fs::exists(path);
  if (exists) {
    ASSERT_TRUE(ReadPng(path, &want, &error)) << error;
  }
  if (g_update) {
    if (want != got) {
      ASSERT_TRUE(WritePng(path, got, &error)) << error;
      std::printf("golden: wrote %s\n", path.c_str());
    }
    return;
  }
  ASSERT_TRUE(exists) << path << " is missing; render it on purpose with TARVO_UPDATE_GOLDEN=1 (see "
                      << "docs/golden-images.md)";
  ASSERT_TRUE(want.width == got.width && want.height == got.height)
      << path << " is " << want.width << "x" << want.height << ", the render " << got.width << "x" << got.height;
  if (want == got) return;

  size_t differing = 0;
  int largest = 0;
  for (size_t i = 0; i < got.bytes.size(); ++i) {
    const int d = std::abs(got.bytes[i] - want.bytes[i]);
    differing += d != 0;
    largest = std::max(largest, d);
  }
  const fs::path dir(TARVO_GOLDEN_MISMATCH_DIR);
  fs::create_directories(dir);
  const std::string actual = (dir / (c.name + ".actual.png")).string();
  const bool written = WritePng(actual, got, &error);
  ADD_FAILURE() << c.name << ": " << differing << " of " << got.bytes.size() << " bytes differ, by up to " << largest
                << "\n  golden: " << path << "\n  actual: " << actual
                << (written ? "\n  difference: idiff -abs -scale 8 -o diff.png " + path + " " + actual
                            : "\n  (could not write: " + error + ")");
}

INSTANTIATE_TEST_SUITE_P(Families, Golden, ::testing::ValuesIn(Cases()), [](const auto& info) {
  std::string s = info.param.name;
  std::replace(s.begin(), s.end(), '-', '_');
  return s;
});

// The folder holds one image per case and nothing else, so a renamed or
// dropped case cannot leave a stale golden that nobody checks.
TEST(GoldenFolder, HoldsExactlyOneImagePerCase) {
  std::set<std::string> names, files;
  for (const Case& c : Cases()) EXPECT_TRUE(names.insert(c.name + ".png").second) << "duplicate " << c.name;
  for (const auto& entry : fs::directory_iterator(TARVO_GOLDEN_DIR)) files.insert(entry.path().filename().string());
  for (const std::string& f : files) EXPECT_TRUE(names.count(f)) << "no case renders " << f;
  for (const std::string& n : names) EXPECT_TRUE(g_update || files.count(n)) << n << " is missing";
}

}  // namespace
}  // namespace tarvo::golden

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const char* env = std::getenv("TARVO_UPDATE_GOLDEN");
  tarvo::golden::g_update = env && *env && std::string(env) != "0";
  for (int i = 1; i < argc; ++i) tarvo::golden::g_update |= std::string(argv[i]) == "--update";
  return RUN_ALL_TESTS();
}
