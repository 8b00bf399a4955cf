#ifndef TESTS_SUPPORT_PROPERTY_LIST_BUILDER_H_
#define TESTS_SUPPORT_PROPERTY_LIST_BUILDER_H_

#include <string>
#include <utility>
#include <vector>

#include "platform/property_list.h"

namespace fake {

inline platform::PropertyListValue Text(const std::string& text) {
  platform::PropertyListValue value;
  value.kind = platform::PropertyListValue::Kind::kString;
  value.text = text;
  return value;
}

inline platform::PropertyListValue Array(std::vector<platform::PropertyListValue> elements) {
  platform::PropertyListValue value;
  value.kind = platform::PropertyListValue::Kind::kArray;
  value.elements = std::move(elements);
  return value;
}

inline platform::PropertyListValue Dictionary(
    std::vector<platform::PropertyListValue::Member> members) {
  platform::PropertyListValue value;
  value.kind = platform::PropertyListValue::Kind::kDictionary;
  value.members = std::move(members);
  return value;
}

/// The entity of a mounted volume in the attach output of the disk-image tool.
inline platform::PropertyListValue Mounted(const std::string& mountPoint) {
  return Dictionary({{"content-hint", Text("Apple_HFS")},
                     {"dev-entry", Text("/dev/disk9s9")},
                     {"mount-point", Text(mountPoint)}});
}

}  // namespace fake

#endif  // TESTS_SUPPORT_PROPERTY_LIST_BUILDER_H_
