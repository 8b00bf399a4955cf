#ifndef PLATFORM_LINUX_BUNDLE_LAYOUT_H_
#define PLATFORM_LINUX_BUNDLE_LAYOUT_H_

#include <optional>
#include <string>

#include "platform/linux/property_list.h"

namespace platform {

/// The locations of a bundle's parts, by the rules of Apple's open CoreFoundation (CFBundle). Every
/// directory yields a layout; the caller decides whether the directory is a bundle.
struct BundleLayout {
  /// Whether the directory itself holds everything: no Contents, Resources or Support Files.
  bool isFlat = false;

  /// Directory of the resources and of _CodeSignature.
  std::string resourceRoot;

  /// Path of the Info.plist, when there is one.
  std::optional<std::string> informationPath;

  /// Its bytes; empty when they cannot be read.
  std::string informationBytes;

  /// The dictionary in the Info.plist; empty when there is none.
  PropertyListValue information;

  /// Path of the main executable, when a file of any kind has its name.
  std::optional<std::string> executable;
};

/// @param directory without slashes at the end, unless it is the root.
/// @param lists the budget for the Info.plist. Once it is exceeded, layouts have no information.
BundleLayout FindBundleLayout(const std::string& directory, PropertyListBudget& lists);

}  // namespace platform

#endif  // PLATFORM_LINUX_BUNDLE_LAYOUT_H_
