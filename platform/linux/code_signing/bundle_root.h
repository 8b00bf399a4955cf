#ifndef PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_
#define PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/posix/descriptor.h"

namespace platform::code_signing {

/// Whether both describe the same file.
bool HasSameIdentity(const struct stat& a, const struct stat& b);

/// Returns a path of an open file, which is valid until it is closed.
std::string PathOf(const Descriptor& file);

/// The directory of a bundle, held open while the bundle is checked. Files can be replaced and
/// links can lead anywhere, so the location that the kernel reports for an open file decides
/// whether it belongs to the bundle.
class BundleRoot {
 public:
  /// Opens the directory `path`, following symbolic links. @return 0 or the `errno`.
  int Open(const std::string& path);

  /// A path of the open directory that stays valid when the directory is renamed.
  std::string Path() const { return PathOf(directory_); }

  /// Returns where an open file or directory lies, relative to the directory: empty for the
  /// directory itself, nothing for what lies elsewhere.
  std::optional<std::string> Locate(int descriptor) const;

  bool Contains(int descriptor) const { return Locate(descriptor).has_value(); }

 private:
  Descriptor directory_;
  std::string location_;  ///< of the directory when it was opened
};

/// Opens a file for its location only.
/// @param parent an open directory, or AT_FDCWD, to which `path` is relative.
/// @param resolve what the path must not lead through: RESOLVE_ constants of openat2(2). Sets
///     `errno` to ELOOP if it does.
Descriptor OpenRestricted(int parent, const std::string& path, std::uint64_t resolve);

/// Whether a path, relative to a resource root, is never sealed, whatever the rules: the signature
/// itself, and the App Store receipt.
bool IsNeverSealed(const std::string& path);

/// Calls `visit` with the name of each entry of a directory except "." and "..". Does not follow a
/// symbolic link.
/// @param parent an open directory, or AT_FDCWD, to which `path` is relative.
/// @return 0 or the `errno`.
int VisitDirectory(int parent, const std::string& path,
                   const std::function<void(const std::string& name)>& visit);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_
