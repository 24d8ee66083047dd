// The property list: a 16-bit 1, a list version, a count, then properties of
// vendor code, key, id, length and data padded to four bytes, little-endian.
#include "property_list.h"

#include <string.h>

namespace tarvo::host {

namespace {

class ByteReader {
 public:
  ByteReader(const std::vector<uint8_t>& b) : b_(b) {}
  size_t Pos() const { return pos_; }
  size_t Left() const { return b_.size() - pos_; }
  bool U16(uint16_t* v) {
    if (Left() < 2) return false;
    *v = static_cast<uint16_t>(b_[pos_] | b_[pos_ + 1] << 8);
    pos_ += 2;
    return true;
  }
  bool U32(uint32_t* v) {
    if (Left() < 4) return false;
    *v = static_cast<uint32_t>(b_[pos_]) | static_cast<uint32_t>(b_[pos_ + 1]) << 8 |
         static_cast<uint32_t>(b_[pos_ + 2]) << 16 | static_cast<uint32_t>(b_[pos_ + 3]) << 24;
    pos_ += 4;
    return true;
  }
  // A four-character code stored as a little-endian 32-bit value: its
  // bytes appear reversed in the file.
  bool Code(std::string* s) {
    if (Left() < 4) return false;
    s->assign({static_cast<char>(b_[pos_ + 3]), static_cast<char>(b_[pos_ + 2]), static_cast<char>(b_[pos_ + 1]),
               static_cast<char>(b_[pos_])});
    pos_ += 4;
    return true;
  }
  void Skip(size_t n) { pos_ += n < Left() ? n : Left(); }

 private:
  const std::vector<uint8_t>& b_;
  size_t pos_ = 0;
};

uint32_t LE32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
uint16_t LE16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

}  // namespace

PropertyInfo ParsePropertyList(const std::vector<uint8_t>& bytes) {
  PropertyInfo info;
  auto fail = [&](const std::string& why) {
    info.ok = false;
    info.error = why;
    return info;
  };
  if (bytes.empty()) return fail("property list is missing");
  ByteReader r(bytes);
  uint16_t head = 0;
  uint32_t listVersion = 0, count = 0;
  if (!r.U16(&head) || !r.U32(&listVersion) || !r.U32(&count)) return fail("property list is truncated in its header");
  if (head != 1) return fail("property list does not start with 1 (found " + std::to_string(head) + ")");
  if (listVersion != 0) return fail("unsupported property list version " + std::to_string(listVersion));
  // Each property takes at least 16 bytes, which bounds any sane count.
  if (count > r.Left() / 16)
    return fail("property list claims " + std::to_string(count) + " properties, more than fit");

  for (uint32_t i = 0; i < count; ++i) {
    std::string vendor, key;
    uint32_t id = 0, length = 0;
    const std::string where = "property " + std::to_string(i + 1);
    if (!r.Code(&vendor) || !r.Code(&key) || !r.U32(&id) || !r.U32(&length)) return fail(where + " is truncated");
    if (vendor != "8BIM") return fail(where + " has vendor code \"" + vendor + "\", not \"8BIM\"");
    if (length > r.Left())
      return fail(where + " (\"" + key + "\") claims " + std::to_string(length) + " bytes, only " +
                  std::to_string(r.Left()) + " left");
    const uint8_t* d = bytes.data() + r.Pos();
    auto lengthPrefixed = [&](std::string* out) -> bool {
      if (length < 1 || d[0] > length - 1) return false;
      out->assign(reinterpret_cast<const char*>(d + 1), d[0]);
      return true;
    };
    auto needs = [&](uint32_t n) { return length >= n; };
    bool good = true;
    if (key == "kind") {
      if ((good = needs(4)))
        info.kind = {static_cast<char>(d[3]), static_cast<char>(d[2]), static_cast<char>(d[1]),
                     static_cast<char>(d[0])};
    } else if (key == "name") {
      good = lengthPrefixed(&info.name);
    } else if (key == "catg") {
      good = lengthPrefixed(&info.category);
    } else if (key == "eMNA") {
      good = lengthPrefixed(&info.matchName);
    } else if (key == "wx86") {
      info.entryPoint.assign(reinterpret_cast<const char*>(d), strnlen(reinterpret_cast<const char*>(d), length));
    } else if (key == "ePVR") {
      if ((good = needs(4)))
        info.ePVRMajor = static_cast<int16_t>(LE16(d)), info.ePVRMinor = static_cast<int16_t>(LE16(d + 2));
    } else if (key == "eSVR") {
      if ((good = needs(4)))
        info.eSVRMajor = static_cast<int16_t>(LE16(d)), info.eSVRMinor = static_cast<int16_t>(LE16(d + 2));
    } else if (key == "eVER") {
      if ((good = needs(4))) info.version = LE32(d);
    } else if (key == "eINF") {
      if ((good = needs(2))) info.infoFlags = LE16(d);
    } else if (key == "eGLO") {
      if ((good = needs(4))) info.globalFlags = static_cast<int32_t>(LE32(d));
    } else if (key == "aeFL") {
      if ((good = needs(4))) info.reservedInfo = LE32(d);
    } else if (key == "aeRD") {
      if ((good = needs(4))) info.reserved = LE32(d);
    }
    if (!good) return fail(where + " (\"" + key + "\") has malformed data of " + std::to_string(length) + " bytes");
    info.keys.push_back(key);
    // Data is zero-padded to a multiple of 4; a missing final pad is tolerated.
    r.Skip((static_cast<size_t>(length) + 3) & ~size_t{3});
  }
  info.ok = true;
  return info;
}

std::string CheckEffectProperties(const PropertyInfo& info) {
  if (!info.ok) return info.error;
  auto has = [&](const char* k) {
    for (const auto& key : info.keys)
      if (key == k) return true;
    return false;
  };
  for (const char* k : {"kind", "name", "wx86", "eSVR", "eVER", "eGLO"})
    if (!has(k)) return std::string("property list has no \"") + k + "\" property";
  if (info.kind != "eFKT") return "module is not an effect (kind \"" + info.kind + "\")";
  if (info.entryPoint != "main") return "property list names entry point \"" + info.entryPoint + "\", not \"main\"";
  if (info.eSVRMajor != 11)
    return "module speaks effect interface version " + std::to_string(info.eSVRMajor) + "." +
           std::to_string(info.eSVRMinor) + ", not 11.x";
  return "";
}

}  // namespace tarvo::host
