// Property lists: the module's own byte for byte against a list assembled
// here key by key, its decoding, and every way the bytes can be short or
// wrong.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host.h"

namespace tarvo::host {
namespace {

class ListBuilder {
 public:
  ListBuilder& Header(uint16_t first, uint32_t version, uint32_t count) {
    U16(first);
    U32(version);
    U32(count);
    return *this;
  }
  // One property: vendor and key given in reading order, stored reversed.
  ListBuilder& Prop(const char* vendor, const char* key, const std::vector<uint8_t>& data, int32_t length = -1) {
    Code(vendor);
    Code(key);
    U32(0);
    U32(length < 0 ? static_cast<uint32_t>(data.size()) : static_cast<uint32_t>(length));
    bytes.insert(bytes.end(), data.begin(), data.end());
    while (bytes.size() % 4 != 2) bytes.push_back(0);  // the 2-byte head keeps data at offset 2 mod 4
    return *this;
  }
  ListBuilder& Prop(const char* key, const std::vector<uint8_t>& data) { return Prop("8BIM", key, data); }

  static std::vector<uint8_t> Pascal(const std::string& s) {
    std::vector<uint8_t> d{static_cast<uint8_t>(s.size())};
    d.insert(d.end(), s.begin(), s.end());
    return d;
  }
  static std::vector<uint8_t> Le32(uint32_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
  }
  static std::vector<uint8_t> Two16(uint16_t a, uint16_t b) {
    return {static_cast<uint8_t>(a), static_cast<uint8_t>(a >> 8), static_cast<uint8_t>(b),
            static_cast<uint8_t>(b >> 8)};
  }

  std::vector<uint8_t> bytes;

 private:
  void U16(uint16_t v) {
    bytes.push_back(static_cast<uint8_t>(v));
    bytes.push_back(static_cast<uint8_t>(v >> 8));
  }
  void U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  void Code(const char* c) {
    for (int i = 3; i >= 0; --i) bytes.push_back(static_cast<uint8_t>(c[i]));
  }
};

// The effect's list as the module carries it: 282 bytes, 12 properties.
std::vector<uint8_t> EffectList() {
  using B = ListBuilder;
  B b;
  b.Header(1, 0, 12)
      .Prop("kind", {'T', 'K', 'F', 'e'})
      .Prop("name", B::Pascal("Tarvo FX Ripple"))
      .Prop("catg", B::Pascal("Distort"))
      .Prop("wx86", {'m', 'a', 'i', 'n', 0, 0, 0, 0})
      .Prop("ePVR", B::Two16(2, 0))
      .Prop("eSVR", B::Two16(11, 0))
      .Prop("eVER", B::Le32(0x00180600))
      .Prop("8BIM", "eINF", {0, 0}, 2)
      .Prop("eGLO", B::Le32(5))
      .Prop("eMNA", B::Pascal("Tarvo FX Ripple"))
      .Prop("aeFL", B::Le32(0))
      .Prop("aeRD", B::Le32(0));
  return b.bytes;
}

// The module carries exactly this list; it decodes to what global set-up
// reports.
TEST(PropertyList, TheModuleCarriesTheEffectListAndItDecodes) {
  std::string error;
  const std::unique_ptr<Module> module = Module::LoadBuilt(&error);
  ASSERT_NE(module, nullptr) << error;
  const std::vector<uint8_t> bytes = EffectList();
  ASSERT_EQ(bytes.size(), 282u);
  EXPECT_EQ((std::vector<uint8_t>(bytes.begin(), bytes.begin() + 14)),
            (std::vector<uint8_t>{1, 0, 0, 0, 0, 0, 12, 0, 0, 0, 'M', 'I', 'B', '8'}));
  EXPECT_EQ(module->PropertyList(), bytes);

  const PropertyInfo info = ParsePropertyList(module->PropertyList());
  ASSERT_TRUE(info.ok) << info.error;
  EXPECT_EQ(info.keys, (std::vector<std::string>{"kind", "name", "catg", "wx86", "ePVR", "eSVR", "eVER", "eINF", "eGLO",
                                                 "eMNA", "aeFL", "aeRD"}));
  EXPECT_EQ(info.name + "|" + info.category + "|" + info.matchName, "Tarvo FX Ripple|Distort|Tarvo FX Ripple");
  EXPECT_EQ(CheckEffectProperties(info), "");

  Host host(module->Entry());
  ASSERT_EQ(host.GlobalSetup(), PF_Err_NONE);
  EXPECT_EQ(host.OutData().my_version, info.version);
  EXPECT_EQ(host.OutData().out_flags, info.globalFlags);
}

TEST(PropertyList, EveryTruncationFailsCleanly) {
  const std::vector<uint8_t> bytes = EffectList();
  // Cutting the final property's data still leaves all 12 headers complete
  // only at full length; every shorter prefix must be refused.
  for (size_t n = 0; n < bytes.size(); ++n) {
    const PropertyInfo info = ParsePropertyList(std::vector<uint8_t>(bytes.begin(), bytes.begin() + n));
    EXPECT_FALSE(info.ok) << "prefix of " << n << " bytes";
    EXPECT_FALSE(info.error.empty()) << n;
  }
  EXPECT_EQ(ParsePropertyList({}).error, "property list is missing");
}

TEST(PropertyList, RefusesMalformedLists) {
  using B = ListBuilder;
  struct Case {
    const char* what;
    std::vector<uint8_t> bytes;
    const char* error;
  };
  const Case cases[] = {
      {"bad vendor", B().Header(1, 0, 1).Prop("8BIX", "kind", {'T', 'K', 'F', 'e'}).bytes,
       "property 1 has vendor code \"8BIX\", not \"8BIM\""},
      {"bad head", B().Header(2, 0, 1).Prop("kind", {'T', 'K', 'F', 'e'}).bytes,
       "property list does not start with 1 (found 2)"},
      {"bad version", B().Header(1, 3, 1).Prop("kind", {'T', 'K', 'F', 'e'}).bytes,
       "unsupported property list version 3"},
      {"huge count", B().Header(1, 0, 0xFFFFFFFF).Prop("kind", {'T', 'K', 'F', 'e'}).bytes,
       "property list claims 4294967295 properties, more than fit"},
      {"length past end", B().Header(1, 0, 1).Prop("8BIM", "name", {3, 'a', 'b', 'c'}, 40).bytes,
       "property 1 (\"name\") claims 40 bytes, only 4 left"},
      {"pascal longer than data", B().Header(1, 0, 1).Prop("name", {9, 'a', 'b', 'c'}).bytes,
       "property 1 (\"name\") has malformed data of 4 bytes"},
      {"short version word", B().Header(1, 0, 1).Prop("8BIM", "eVER", {1, 2, 0, 0}, 2).bytes,
       "property 1 (\"eVER\") has malformed data of 2 bytes"},
  };
  for (const Case& c : cases) {
    const PropertyInfo info = ParsePropertyList(c.bytes);
    EXPECT_FALSE(info.ok) << c.what;
    EXPECT_EQ(info.error, c.error) << c.what;
  }
}

TEST(PropertyList, UnknownKeysAreSkippedAndChecksNameWhatIsWrong) {
  using B = ListBuilder;
  const PropertyInfo skipped = ParsePropertyList(
      B().Header(1, 0, 2).Prop("zzzz", {1, 2, 3, 4, 5}).Prop("eGLO", B::Le32(0x45)).bytes);
  ASSERT_TRUE(skipped.ok) << skipped.error;
  EXPECT_EQ(skipped.globalFlags, 0x45);
  EXPECT_EQ(CheckEffectProperties(skipped), "property list has no \"kind\" property");

  std::vector<uint8_t> bytes = EffectList();
  bytes[26] = 'X';  // kind "eFKT" stored as "TKFe": byte 26 is its 'T'
  PropertyInfo info = ParsePropertyList(bytes);
  ASSERT_TRUE(info.ok);
  EXPECT_EQ(CheckEffectProperties(info), "module is not an effect (kind \"eFKX\")");

  info = ParsePropertyList(EffectList());
  info.entryPoint = "EntryPointFunc";
  EXPECT_EQ(CheckEffectProperties(info), "property list names entry point \"EntryPointFunc\", not \"main\"");
  info = ParsePropertyList(EffectList());
  info.eSVRMajor = 13;
  EXPECT_EQ(CheckEffectProperties(info), "module speaks effect interface version 13.0, not 11.x");
}

}  // namespace
}  // namespace tarvo::host
