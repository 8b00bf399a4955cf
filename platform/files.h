#ifndef PLATFORM_FILES_H_
#define PLATFORM_FILES_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

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

/// An open directory whose entries are read one by one, in the order in which the directory yields
/// them. Memory does not depend on the number of entries. Closes when it goes. Moves only.
class DirectoryReader {
 public:
  DirectoryReader() = default;
  ~DirectoryReader();
  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;
  DirectoryReader(DirectoryReader&& other) noexcept;
  DirectoryReader& operator=(DirectoryReader&& other) noexcept;

  int Open(const std::string& path);

  /// @return the next entry's name (NUL-terminated, valid until the next call), or null at the end
  ///     and on a read fault; Error() tells the two apart. Whether "." and ".." are among the
  ///     entries is the host's choice.
  const char* Next();

  /// The `errno` with which the latest Next() failed; 0 when it did not.
  int Error() const { return error_; }

 private:
  void* stream_ = nullptr;
  int error_ = 0;
};

/// A file open for reading. Neither opening nor reading blocks, whatever kind of file it is: a pipe
/// ends with what it holds at the moment. Closes when it goes. Moves only.
class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  InputFile(InputFile&& other) noexcept;
  InputFile& operator=(InputFile&& other) noexcept;

  int Open(const std::string& path);
  bool IsOpen() const { return descriptor_ >= 0; }

  /// Reads at most `capacity` bytes into `buffer`.
  /// @param count receives the number of bytes read; 0 is the end of the file.
  int Read(char* buffer, std::size_t capacity, std::size_t& count);

  void Close();

 private:
  int descriptor_ = -1;
};

/// Reads a whole file through an InputFile.
/// @param contents is replaced; after a failure it is incomplete.
/// @return 0, or the `errno` of the failure: EFBIG for more than `limit` bytes.
int ReadFile(const std::string& path, std::string& contents,
             std::size_t limit = std::numeric_limits<std::size_t>::max());

/// Makes sure that a file can be opened for appending without waiting for anybody. While it lives,
/// a pipe stays open, so that the reader does not see its end; other files are closed at once.
class AppendedFile {
 public:
  AppendedFile() = default;
  ~AppendedFile();
  AppendedFile(const AppendedFile&) = delete;
  AppendedFile& operator=(const AppendedFile&) = delete;

  /// To be called once. A file that is not there is created, for the user alone to write and for
  /// all to read, less what the process's mask forbids. Links are followed.
  /// @return ENXIO for a FIFO that nobody reads.
  int Open(const std::string& path);

 private:
  int descriptor_ = -1;
};

/// Creates an empty regular file that only the user may read and write. EEXIST when anything, a
/// symbolic link included, has that name already.
int CreateFileExclusively(const std::string& path);

/// Copies a file, a symbolic link (as a link) or a whole directory, with modes and times. A copy
/// that gets another owner or group loses the bit that would run it as that one.
/// @return false when `destination` exists already (a dangling link counts) or the copy is not
///     complete, as with a pipe or a socket inside; what had been copied by then is removed again.
bool CopyTree(const std::string& source, const std::string& destination);

/// Removes a file, a symbolic link (not what it points at) or a whole directory.
/// @return false when anything of it remains, or there was nothing at `path`.
bool RemoveTree(const std::string& path);

/// NSFileManager's guess whether the user may delete `path` (a link itself, not what it points at),
/// from the rights of its directory; false when there is nothing.
bool IsDeletable(const std::string& path);

/// Visits everything below the directory `root`, each directory before its contents and these
/// before its next neighbour. Of symbolic links only `root` itself is followed; what cannot be read
/// is passed over.
/// @param visit is given each path relative to `root`; it returns false to end the walk.
void WalkTree(const std::string& root,
              const std::function<bool(const std::string& relativePath)>& visit);

/// The user's directory for temporary files, ending in "/"; nothing when there is none.
std::optional<std::string> TemporaryDirectory();

/// NSString's path rules: trailing slashes do not count, a path of slashes is "/".
/// "/a/b.pkg/" has the last component "b.pkg", the extension "pkg" and the parent "/a".
std::string LastPathComponent(const std::string& path);

/// What follows the last component's last "."; empty when there is none, or nothing before or
/// after it (".pkg" and "a." have none).
std::string PathExtension(const std::string& path);

/// The path without its last component and the slash before it; "" for a single component, "/" for
/// what lies in the root.
std::string ParentPath(const std::string& path);

/// `component` below `directory`, with one slash between them; one alone when the other is empty.
std::string JoinPath(const std::string& directory, const std::string& component);

}  // namespace platform

#endif  // PLATFORM_FILES_H_
