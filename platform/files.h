#ifndef PLATFORM_FILES_H_
#define PLATFORM_FILES_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

#include "platform/scoped_handle.h"

/// Files and directories. Paths are UTF-8 bytes; a relative path starts at the working directory.
/// Functions that return an int return 0 or the `errno` of the failure.

namespace platform {

/// NSFileManager's existence test; follows symbolic links, so a dangling one does not exist.
bool FileExists(const std::string& path);

/// Whether `path` is an existing directory; follows symbolic links.
bool DirectoryExists(const std::string& path);

/// stat(), following symbolic links. @param mode receives `st_mode`, type bits included.
int FileMode(const std::string& path, std::uint32_t& mode);

enum class AccessTest {
  kExists,    ///< F_OK
  kReadable,  ///< R_OK
};

/// access(), following symbolic links.
int CheckAccess(const std::string& path, AccessTest test);

/// A point in time since the Unix epoch.
struct FileTime {
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;  ///< 0 to 999,999,999
};

/// Time of the last change of the contents; follows symbolic links.
int ModificationTime(const std::string& path, FileTime& time);

struct DirectoryTraits {
  using Handle = void*;
  static constexpr Handle kNone = nullptr;
  static void Close(Handle stream);
};

/// An open directory whose entries are read one by one, in the order in which the directory yields
/// them. Memory does not depend on the number of entries.
class DirectoryReader {
 public:
  int Open(const std::string& path);

  /// @return the next entry's name (NUL-terminated, valid until the next call), or null at the end
  ///     and on a read error; Error() tells the two apart. Whether "." and ".." are among the
  ///     entries depends on the host.
  const char* Next();

  /// The `errno` with which the latest Next() failed; 0 when it did not.
  int Error() const { return error_; }

 private:
  ScopedHandle<DirectoryTraits> stream_;
  int error_ = 0;
};

struct FileTraits {
  using Handle = int;
  static constexpr Handle kNone = -1;
  static void Close(Handle descriptor);
};

/// A file open for reading. Neither opening nor reading blocks, whatever kind of file it is:
/// reading a pipe returns what it contains at that moment and then reports the end of the file.
class InputFile {
 public:
  int Open(const std::string& path);

  /// Reads at most `capacity` bytes into `buffer`.
  /// @param count receives the number of bytes read; 0 is the end of the file.
  int Read(char* buffer, std::size_t capacity, std::size_t& count);

  void Close() { file_.Reset(); }

 private:
  ScopedHandle<FileTraits> file_;
};

/// Reads a whole file through an InputFile.
/// @param contents is replaced; after a failure it is incomplete.
/// @return 0, or the `errno` of the failure: EFBIG for more than `limit` bytes.
int ReadFile(const std::string& path, std::string& contents,
             std::size_t limit = std::numeric_limits<std::size_t>::max());

/// Makes sure that a file can be opened for appending without blocking. A pipe stays open until the
/// object is destroyed, so that the reader does not see its end; other files are closed at once.
class AppendedFile {
 public:
  /// Creates the file if it does not exist, writable by the user only and readable by all, minus
  /// what the process's mask forbids. Follows links.
  /// @return ENXIO for a FIFO that nobody reads.
  int Open(const std::string& path);

 private:
  ScopedHandle<FileTraits> file_;
};

/// Creates an empty regular file that only the user may read and write. EEXIST when the name is
/// taken, even by a symbolic link.
int CreateFileExclusively(const std::string& path);

/// Copies a file, a symbolic link (as a link) or a whole directory, with modes and times. A copy
/// that gets another owner or group loses its set-user-ID or set-group-ID bit.
/// @return false when `destination` exists already (a dangling link counts) or the copy is not
///     complete, for example because of a pipe or a socket; what was copied until then is removed.
bool CopyTree(const std::string& source, const std::string& destination);

/// Removes a file, a symbolic link (not what it points at) or a whole directory.
/// @return false when part of it remains, or when nothing was there.
bool RemoveTree(const std::string& path);

/// NSFileManager's estimate of whether the user may delete `path` (a link itself, not what it
/// points at), from the permissions of its directory; false when nothing is there.
bool IsDeletable(const std::string& path);

/// Visits everything below the directory `root`, each directory before its contents, and
/// those before its next sibling. Does not follow symbolic links, except `root` itself; skips what
/// cannot be read.
/// @param visit receives each path relative to `root`; it returns false to stop.
void WalkTree(const std::string& root,
              const std::function<bool(const std::string& relativePath)>& visit);

/// The user's directory for temporary files, ending in "/"; nothing when there is none.
std::optional<std::string> TemporaryDirectory();

/// NSString's path rules: trailing slashes do not count, a path of slashes is "/".
/// "/a/b.pkg/" has the last component "b.pkg", the extension "pkg" and the parent "/a".
std::string LastPathComponent(const std::string& path);

/// Returns the extension: the text after the last "." of the last component. Empty if there is no
/// ".", or if nothing precedes or follows it (".pkg" and "a." have no extension).
std::string PathExtension(const std::string& path);

/// The path without its last component and the slash before it; "" for a single component, "/" for
/// what lies in the root.
std::string ParentPath(const std::string& path);

/// `component` below `directory`, with one slash between them; if either is empty, just the other.
std::string JoinPath(const std::string& directory, const std::string& component);

}  // namespace platform

#endif  // PLATFORM_FILES_H_
