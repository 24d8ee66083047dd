// Golden images: every case of the table renders the 128 × 96 test pattern
// and must match its PNG in tests/golden/data byte for byte. The pixel
// arithmetic is defined to the bit, so there is no tolerance.
//
// Rewriting the files is deliberate: TARVO_UPDATE_GOLDEN=1 in the
// environment, or --update on the command line. A missing file is a
// failure. On a mismatch the actual render and a difference image are
// written to the build directory and their paths printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "golden_support.h"

namespace tarvo::golden {
namespace {

namespace fs = std::filesystem;

constexpr int32_t kWidth = 128, kHeight = 96;
bool g_update = false;

fs::path GoldenPath(const Case& c) { return fs::path(TARVO_GOLDEN_DIR) / (c.name + ".png"); }

// Gray where the images differ, brighter for larger differences (the
// largest over the four channels: 64 + 8 per level); black where equal.
host::Image DifferenceImage(const host::Image& a, const host::Image& b) {
  host::Image d(a.width, a.height);
  for (int32_t y = 0; y < a.height; ++y)
    for (int32_t x = 0; x < a.width; ++x) {
      const PF_Pixel &p = a.At(y, x), &q = b.At(y, x);
      const int v = std::max({std::abs(p.alpha - q.alpha), std::abs(p.red - q.red), std::abs(p.green - q.green),
                              std::abs(p.blue - q.blue)});
      const uint8_t g = v ? static_cast<uint8_t>(std::min(255, 64 + 8 * v)) : 0;
      d.At(y, x) = PF_Pixel{255, g, g, g};
    }
  return d;
}

class Golden : public ::testing::TestWithParam<Case> {
 protected:
  static void SetUpTestSuite() {
    std::string error;
    renderer_ = Renderer::Create(&error).release();
    if (!renderer_) setupError_ = error;
  }
  static void TearDownTestSuite() {
    delete renderer_;
    renderer_ = nullptr;
  }
  static Renderer* renderer_;
  static std::string setupError_;
};
Renderer* Golden::renderer_ = nullptr;
std::string Golden::setupError_;

TEST_P(Golden, MatchesItsImageByteForByte) {
  const Case& c = GetParam();
  ASSERT_NE(renderer_, nullptr) << setupError_;
  host::Image actual;
  std::string error;
  ASSERT_TRUE(renderer_->Render(c, TestPattern(kWidth, kHeight), &actual, &error)) << error;

  const fs::path path = GoldenPath(c);
  host::Image expected;
  const bool exists = fs::exists(path);
  if (exists) {
    ASSERT_TRUE(ReadPng(path.string(), &expected, &error)) << error;
  }
  const bool sameSize = exists && expected.width == actual.width && expected.height == actual.height;
  const std::vector<uint8_t> want = sameSize ? RgbaBytes(expected) : std::vector<uint8_t>();
  const std::vector<uint8_t> got = RgbaBytes(actual);

  if (g_update) {
    if (want != got) {
      ASSERT_TRUE(WritePng(path.string(), actual, &error)) << error;
      std::printf("golden: wrote %s\n", path.c_str());
    }
    return;
  }
  ASSERT_TRUE(exists) << path << " is missing; render it on purpose with TARVO_UPDATE_GOLDEN=1 (see "
                      << "docs/golden-images.md)";
  ASSERT_TRUE(sameSize) << path << " is " << expected.width << "x" << expected.height << ", the render "
                        << actual.width << "x" << actual.height;
  if (want == got) return;

  size_t differing = 0;
  int largest = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    const int d = std::abs(got[i] - want[i]);
    differing += d != 0;
    largest = std::max(largest, d);
  }
  const fs::path dir(TARVO_GOLDEN_MISMATCH_DIR);
  fs::create_directories(dir);
  const fs::path actualPath = dir / (c.name + ".actual.png"), diffPath = dir / (c.name + ".diff.png");
  const bool written = WritePng(actualPath.string(), actual, &error) &&
                       WritePng(diffPath.string(), DifferenceImage(actual, expected), &error);
  ADD_FAILURE() << c.name << ": " << differing << " of " << got.size() << " bytes differ, by up to " << largest
                << "\n  golden: " << path.string() << "\n  actual: " << actualPath.string()
                << "\n  diff:   " << diffPath.string() << (written ? "" : "\n  (could not write: " + error + ")");
}

std::string TestName(const ::testing::TestParamInfo<Case>& info) {
  std::string s = info.param.name;
  std::replace(s.begin(), s.end(), '-', '_');
  return s;
}

INSTANTIATE_TEST_SUITE_P(Families, Golden, ::testing::ValuesIn(Cases()), TestName);

// The folder holds one image per case and nothing else, so a renamed or
// dropped case cannot leave a stale golden that nobody checks.
TEST(GoldenFolder, HoldsExactlyOneImagePerCase) {
  std::set<std::string> names;
  for (const Case& c : Cases()) EXPECT_TRUE(names.insert(c.name + ".png").second) << "duplicate " << c.name;
  std::set<std::string> files;
  ASSERT_TRUE(fs::is_directory(TARVO_GOLDEN_DIR)) << TARVO_GOLDEN_DIR;
  for (const auto& entry : fs::directory_iterator(TARVO_GOLDEN_DIR)) files.insert(entry.path().filename().string());
  for (const std::string& f : files) EXPECT_TRUE(names.count(f)) << "no case renders " << f;
  if (!g_update) {
    for (const std::string& n : names) EXPECT_TRUE(files.count(n)) << n << " is missing";
  }
}

}  // namespace
}  // namespace tarvo::golden

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]) == "--update") tarvo::golden::g_update = true;
  const char* env = std::getenv("TARVO_UPDATE_GOLDEN");
  if (env && *env && std::string(env) != "0") tarvo::golden::g_update = true;
  return RUN_ALL_TESTS();
}
