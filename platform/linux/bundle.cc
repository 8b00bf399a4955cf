#include "platform/bundle.h"

#include <memory>
#include <rapidxml/rapidxml.hpp>
#include <string_view>

#include "platform/files.h"
#include "platform/linux/code_signing/bundle_layout.h"

extern "C" {
extern const char kx_info_plist_begin[];
extern const char kx_info_plist_end[];
}

namespace platform {

// The list is the tool's own, so the few lines below are enough for it; a run that only asks for
// the version need not load libplist.
std::optional<std::string> MainBundleText(const std::string& key) {
  std::string text(kx_info_plist_begin, kx_info_plist_end);
  // On the stack, where each page is touched, the document's 64 KiB would cost more than the rest.
  const std::unique_ptr<rapidxml::xml_document<>> document(new rapidxml::xml_document<>);
  try {
    document->parse<0>(text.data());
  } catch (const rapidxml::parse_error&) {
    return std::nullopt;
  }
  const rapidxml::xml_node<>* node = document->first_node("plist");
  if (node != nullptr) node = node->first_node("dict");
  if (node == nullptr) return std::nullopt;
  for (node = node->first_node("key"); node != nullptr; node = node->next_sibling("key")) {
    if (std::string_view(node->value(), node->value_size()) != key) continue;
    node = node->next_sibling();
    if (node == nullptr || std::string_view(node->name(), node->name_size()) != "string") break;
    return std::string(node->value(), node->value_size());
  }
  return std::nullopt;
}

std::optional<std::string> ApplicationExecutable(const std::string& bundlePath) {
  if (!DirectoryExists(bundlePath)) return std::nullopt;
  return code_signing::FindBundleLayout(JoinPath(bundlePath, "")).executable;
}

}  // namespace platform
