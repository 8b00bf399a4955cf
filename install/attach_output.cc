#include "install/attach_output.h"

namespace install {
namespace {

using platform::PropertyListValue;

std::optional<std::string> FindText(const PropertyListValue& dictionary, const char* key) {
  const PropertyListValue* const value = dictionary.Find(key);
  if (value == nullptr || value->kind != PropertyListValue::Kind::kString) return std::nullopt;
  return value->text;
}

}  // namespace

std::optional<std::string> FindMountPoint(const PropertyListValue& output) {
  for (const PropertyListValue::Member& member : output.members) {
    for (const PropertyListValue& entity : member.second.elements) {
      if (std::optional<std::string> mountPoint = FindText(entity, "mount-point")) {
        return mountPoint;
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> FindDevice(const PropertyListValue& output) {
  return FindText(output, "dev-entry");
}

}  // namespace install
