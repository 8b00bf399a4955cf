#ifndef PLATFORM_LINUX_CODE_SIGNING_BUNDLE_REPRESENTATION_H_
#define PLATFORM_LINUX_CODE_SIGNING_BUNDLE_REPRESENTATION_H_

#include <optional>
#include <string>

#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// The path by which a bundle is used.
enum class BundleName {
  kDirectory,   ///< the bundle's own path, which must not be a symbolic link
  kExecutable,  ///< the path of its main executable
};

/// Opens the bundle in the directory `path`: finds its layout, its Info.plist and its main
/// executable, by the rules of Apple's open CoreFoundation (CFBundle) and Security
/// (bundlediskrep.cpp).
/// @param lists the budget for the Info.plist.
OsStatus OpenBundleRepresentation(const std::string& path, BundleName name,
                                  PropertyListBudget& lists, DiskRepresentationPtr& representation);

/// @return the directory of the bundle whose main executable is the file `path`; nothing when there
///     is none.
/// @param lists the budget for the Info.plist.
std::optional<std::string> FindBundleOfExecutable(const std::string& path,
                                                  PropertyListBudget& lists);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_BUNDLE_REPRESENTATION_H_
