#include "platform/property_list.h"

namespace platform {

const PropertyListValue* PropertyListValue::Find(const std::string& key) const {
  if (kind != Kind::kDictionary) return nullptr;
  for (const Member& member : members) {
    if (member.first == key) return &member.second;
  }
  return nullptr;
}

}  // namespace platform
