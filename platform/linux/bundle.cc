#include "platform/bundle.h"

#include "platform/files.h"
#include "platform/linux/bundle_layout.h"
#include "platform/linux/property_list.h"

extern "C" {
extern const char kx_info_plist_begin[];
extern const char kx_info_plist_end[];
}

namespace platform {

std::optional<std::string> MainBundleText(const std::string& key) {
  const auto list = ParsePropertyList(std::string(kx_info_plist_begin, kx_info_plist_end));
  const PropertyListValue* const value = list ? list->Find(key) : nullptr;
  if (value == nullptr || value->kind != PropertyListValue::Kind::kString) return std::nullopt;
  return value->text;
}

std::optional<std::string> ApplicationExecutable(const std::string& bundlePath) {
  if (!DirectoryExists(bundlePath)) return std::nullopt;
  PropertyListBudget lists;
  return FindBundleLayout(JoinPath(bundlePath, ""), lists).executable;
}

}  // namespace platform
