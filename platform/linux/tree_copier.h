#ifndef PLATFORM_LINUX_TREE_COPIER_H_
#define PLATFORM_LINUX_TREE_COPIER_H_

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/posix/descriptor.h"

namespace platform {

/// Copies a file, a symbolic link or a directory with everything below it. Every step starts at an
/// open directory and follows no link, so that files replaced meanwhile cannot redirect the copy.
class TreeCopier {
 public:
  /// Copies `source` to the new name `destination`. Neither may end in a slash.
  /// @return false when anything is missing from the copy.
  bool Copy(const std::string& source, const std::string& destination);

  /// Whether Copy() has created something with the name `destination`.
  bool HasCreated() const { return created_; }

 private:
  /// A name in an open directory.
  struct Place {
    int directory;
    const char* name;
  };

  bool CopyEntry(const Place& from, const Place& to);
  bool CopyFile(const Place& from, const Place& to);
  bool CopyLink(const Place& from, const Place& to, const struct stat& status);
  bool CopyDirectory(const Place& from, const Place& to);
  bool Created(bool success);
  bool IsDestination(int directory) const;

  bool created_ = false;
  std::optional<struct stat> destinationDirectory_;  ///< of the copy of a directory
};

}  // namespace platform

#endif  // PLATFORM_LINUX_TREE_COPIER_H_
