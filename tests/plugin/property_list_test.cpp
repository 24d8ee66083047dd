// The property list the module carries: byte for byte against a list built
// here key by key, and in agreement with what global set-up reports.
#include <stdint.h>

#include <string>
#include <vector>

#include "plugin_fixture.h"

namespace tarvo::host {
namespace {

class PropertyListBuilder {
 public:
  explicit PropertyListBuilder(uint32_t count) {
    U16(bytes_, 1);
    U32(bytes_, 0);
    U32(bytes_, count);
  }
  // vendor "8BIM", key, id 0, length, data padded to 4 bytes.
  void Add(const char* key, std::vector<uint8_t> data) {
    Code(bytes_, "8BIM");
    Code(bytes_, key);
    U32(bytes_, 0);
    U32(bytes_, static_cast<uint32_t>(data.size()));
    while (data.size() % 4) data.push_back(0);
    bytes_.insert(bytes_.end(), data.begin(), data.end());
  }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  static void U16(std::vector<uint8_t>& b, uint16_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
  }
  static void U32(std::vector<uint8_t>& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  // A four-character code as a little-endian number: bytes reversed.
  static void Code(std::vector<uint8_t>& b, const char* c) {
    for (int i = 3; i >= 0; --i) b.push_back(static_cast<uint8_t>(c[i]));
  }
  static std::vector<uint8_t> Pascal(const std::string& s) {
    std::vector<uint8_t> b{static_cast<uint8_t>(s.size())};
    b.insert(b.end(), s.begin(), s.end());
    return b;
  }
  static std::vector<uint8_t> Words(uint16_t a, uint16_t c) {
    std::vector<uint8_t> b;
    U16(b, a);
    U16(b, c);
    return b;
  }
  static std::vector<uint8_t> Long(uint32_t v) {
    std::vector<uint8_t> b;
    U32(b, v);
    return b;
  }

 private:
  std::vector<uint8_t> bytes_;
};

std::vector<uint8_t> ExpectedPropertyList() {
  using B = PropertyListBuilder;
  B list(12);
  std::vector<uint8_t> kind;
  B::Code(kind, "eFKT");
  list.Add("kind", kind);
  list.Add("name", B::Pascal("Tarvo FX Ripple"));
  list.Add("catg", B::Pascal("Distort"));
  list.Add("wx86", {'m', 'a', 'i', 'n', 0, 0, 0, 0});
  list.Add("ePVR", B::Words(2, 0));
  list.Add("eSVR", B::Words(11, 0));
  list.Add("eVER", B::Long(0x00180600));
  list.Add("eINF", {0, 0});
  list.Add("eGLO", B::Long(5));
  list.Add("eMNA", B::Pascal("Tarvo FX Ripple"));
  list.Add("aeFL", B::Long(0));
  list.Add("aeRD", B::Long(0));
  return list.bytes();
}

class PropertyList : public PluginTest {};

TEST_F(PropertyList, BytesAreExactlyThePublishedList) {
  const std::vector<uint8_t> expected = ExpectedPropertyList();
  ASSERT_EQ(expected.size(), 282u);
  const std::vector<uint8_t>& actual = module().PropertyList();
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i)
    ASSERT_EQ(static_cast<int>(actual[i]), static_cast<int>(expected[i])) << "byte " << i;
  // The opening bytes and the first vendor code, spelt out.
  const std::vector<uint8_t> head{0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0c, 0x00, 0x00, 0x00, 0x4d, 0x49, 0x42, 0x38};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), actual.begin()));
}

TEST_F(PropertyList, AgreesWithWhatGlobalSetupReports) {
  const PropertyInfo info = ParsePropertyList(module().PropertyList());
  ASSERT_TRUE(info.ok) << info.error;
  EXPECT_EQ(CheckEffectProperties(info), "");
  EXPECT_EQ(info.name, "Tarvo FX Ripple");
  EXPECT_EQ(info.matchName, info.name);
  EXPECT_EQ(info.category, "Distort");

  host->SetOutFlagsOnEntry(0);
  Run(PF_Cmd_GLOBAL_SETUP);
  EXPECT_EQ(info.version, host->OutData().my_version);
  EXPECT_EQ(info.globalFlags, host->OutData().out_flags);
}

}  // namespace
}  // namespace tarvo::host
