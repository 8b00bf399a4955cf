#ifndef PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_
#define PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_

#include <string>
#include <vector>

#include "platform/posix/descriptor.h"

namespace platform::code_signing {

/// A path of what is open, for as long as it is.
std::string PathOf(const Descriptor& file);

/// The directory of a bundle, held open while the bundle is checked. Names can be exchanged and
/// links can lead anywhere, so what belongs to the bundle is decided by where the kernel says that
/// an open file lies.
class BundleRoot {
 public:
  /// Opens the directory `path`; symbolic links are followed. @return 0 or the `errno`.
  int Open(const std::string& path);

  /// A path of the open directory, whatever becomes of the name by which it was opened.
  std::string Path() const { return PathOf(directory_); }

  /// Whether an open file or directory lies below the directory, or is the directory.
  bool Contains(int descriptor) const;

 private:
  Descriptor directory_;
  std::string location_;  ///< of the directory when it was opened
};

/// Lists a directory, sorted, without "." and "..". A symbolic link is not followed.
/// @param parent an open directory, or AT_FDCWD, where the relative `path` starts.
/// @return 0 or the `errno`.
int ListDirectory(int parent, const std::string& path, std::vector<std::string>& names);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_BUNDLE_ROOT_H_
