#ifndef PLATFORM_BUNDLE_H_
#define PLATFORM_BUNDLE_H_

#include <optional>
#include <string>

namespace platform {

/// UTF-8 text of `key` in the information dictionary of the running executable (macOS: NSBundle's
/// main bundle; Linux: the same property list in the ELF section `__info_plist`).
///
/// @return nothing when there is no dictionary, no such key, or its value is not a string.
std::optional<std::string> MainBundleText(const std::string& key);

/// Path of the main executable of the application bundle at `bundlePath` (a directory).
///
/// @return nothing when `bundlePath` is not a bundle or its information dictionary names no
///     existing executable file.
std::optional<std::string> ApplicationExecutable(const std::string& bundlePath);

}  // namespace platform

#endif  // PLATFORM_BUNDLE_H_
