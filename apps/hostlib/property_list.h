// Decoding and checking the property list a host reads from the module
// before it calls the entry point.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace tarvo::host {

// What the property list says, decoded.
struct PropertyInfo {
  std::string kind, name, category, entryPoint, matchName;
  int ePVRMajor = 0, ePVRMinor = 0, eSVRMajor = 0, eSVRMinor = 0;
  uint32_t version = 0;
  int32_t globalFlags = 0;
  uint16_t infoFlags = 0;
  uint32_t reservedInfo = 0, reserved = 0;  // aeFL, aeRD
  std::vector<std::string> keys;            // every key, in list order
  bool ok = false;
  std::string error;
};
// Decodes the list; ok = false with a one-line error for truncated or
// malformed bytes. Unknown keys are listed in keys and otherwise skipped.
PropertyInfo ParsePropertyList(const std::vector<uint8_t>& bytes);
// "" when info describes an effect this host can drive (kind eFKT, entry
// point "main", interface version 11.x); otherwise what is wrong.
std::string CheckEffectProperties(const PropertyInfo& info);

}  // namespace tarvo::host
