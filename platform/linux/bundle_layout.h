#ifndef PLATFORM_LINUX_BUNDLE_LAYOUT_H_
#define PLATFORM_LINUX_BUNDLE_LAYOUT_H_

#include <optional>
#include <string>

#include "platform/linux/property_list.h"

namespace platform {

/// Where the parts of the bundle in one directory lie, found as Apple's open CoreFoundation
/// (CFBundle) finds them. Every directory has such parts; whether they make a bundle is for the
/// caller to say.
struct BundleLayout {
  /// Whether the directory itself holds everything: no Contents, Resources or Support Files.
  bool isFlat = false;

  /// Directory of the resources and of _CodeSignature.
  std::string resourceRoot;

  /// Path of the Info.plist, when there is one.
  std::optional<std::string> informationPath;

  /// The dictionary in it; without members when it holds none.
  PropertyListValue information;

  /// Path of the main executable, when there is a file (of whatever kind) of its name.
  std::optional<std::string> executable;
};

/// @param directory without slashes at the end, unless it is the root.
/// @param lists is spent on the Info.plist. Once it is exceeded, layouts have no information.
BundleLayout FindBundleLayout(const std::string& directory, PropertyListBudget& lists);

}  // namespace platform

#endif  // PLATFORM_LINUX_BUNDLE_LAYOUT_H_
