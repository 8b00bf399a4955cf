#include "platform/linux/tree_copier.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <string_view>

namespace platform {
namespace {

constexpr int kReadFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr std::size_t kChunkSize = std::size_t{128} * 1024;

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

/// Reads all names in `directory` at once, because the copy may lie in the directory that is
/// copied.
bool ReadNames(int directory, std::vector<std::string>& names) {
  Descriptor own(fcntl(directory, F_DUPFD_CLOEXEC, 0));
  const std::unique_ptr<DIR, CloseStream> stream(own.IsOpen() ? fdopendir(own.Get()) : nullptr);
  if (!stream) return false;
  own.Release();
  errno = 0;
  while (const dirent* const entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return errno == 0;
}

bool WriteAll(int file, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(file, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool CopyContents(int from, int to) {
  std::vector<char> chunk(kChunkSize);
  for (;;) {
    const ssize_t count = read(from, chunk.data(), chunk.size());
    if (count == 0) return true;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 || !WriteAll(to, chunk.data(), static_cast<std::size_t>(count))) return false;
  }
}

/// Gives the mode and times of `status` to an open file. Drops the set-id bits where the copy has
/// another owner or group: the program would run with rights that nobody granted.
bool CopyAttributes(int to, const struct stat& status) {
  struct stat copy;
  if (fstat(to, &copy) != 0) return false;
  mode_t mode = status.st_mode & ~mode_t{S_IFMT};
  if (copy.st_uid != status.st_uid) mode &= ~mode_t{S_ISUID};
  if (copy.st_gid != status.st_gid) mode &= ~mode_t{S_ISGID};
  const timespec times[] = {status.st_atim, status.st_mtim};
  return fchmod(to, mode) == 0 && futimens(to, times) == 0;
}

}  // namespace

bool TreeCopier::Copy(const std::string& source, const std::string& destination) {
  return CopyEntry({AT_FDCWD, source.c_str()}, {AT_FDCWD, destination.c_str()});
}

bool TreeCopier::CopyEntry(const Place& from, const Place& to) {
  struct stat status;
  if (fstatat(from.directory, from.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (S_ISREG(status.st_mode)) return CopyFile(from, to);
  if (S_ISLNK(status.st_mode)) return CopyLink(from, to, status);
  return S_ISDIR(status.st_mode) && CopyDirectory(from, to);
}

bool TreeCopier::CopyFile(const Place& from, const Place& to) {
  const Descriptor source(openat(from.directory, from.name, kReadFlags));
  struct stat status;
  if (!source.IsOpen() || fstat(source.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  const Descriptor copy(openat(to.directory, to.name,
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               S_IRUSR | S_IWUSR));
  return Created(copy.IsOpen()) && CopyContents(source.Get(), copy.Get()) &&
         CopyAttributes(copy.Get(), status);
}

bool TreeCopier::CopyLink(const Place& from, const Place& to, const struct stat& status) {
  char target[PATH_MAX];
  const ssize_t length = readlinkat(from.directory, from.name, target, sizeof(target) - 1);
  if (length < 0) return false;
  target[length] = '\0';
  const timespec times[] = {status.st_atim, status.st_mtim};
  return Created(symlinkat(target, to.directory, to.name) == 0) &&
         utimensat(to.directory, to.name, times, AT_SYMLINK_NOFOLLOW) == 0;
}

bool TreeCopier::CopyDirectory(const Place& from, const Place& to) {
  const Descriptor source(openat(from.directory, from.name, kReadFlags | O_DIRECTORY));
  struct stat status;
  std::vector<std::string> names;
  if (!source.IsOpen() || fstat(source.Get(), &status) != 0 || IsDestination(source.Get()) ||
      !ReadNames(source.Get(), names) || !Created(mkdirat(to.directory, to.name, S_IRWXU) == 0)) {
    return false;
  }
  const Descriptor copy(openat(to.directory, to.name, kReadFlags | O_DIRECTORY));
  if (!copy.IsOpen()) return false;
  if (!destinationDirectory_) {
    destinationDirectory_.emplace();
    if (fstat(copy.Get(), &*destinationDirectory_) != 0) return false;
  }
  for (const std::string& name : names) {
    if (!CopyEntry({source.Get(), name.c_str()}, {copy.Get(), name.c_str()})) return false;
  }
  return CopyAttributes(copy.Get(), status);
}

/// Notes that something was created; the first thing has the destination's name. @return `success`.
bool TreeCopier::Created(bool success) {
  created_ = created_ || success;
  return success;
}

/// Whether the open `directory` is the copy itself. A copy into the copied directory would
/// otherwise reach itself and never end.
bool TreeCopier::IsDestination(int directory) const {
  struct stat status;
  return destinationDirectory_ && fstat(directory, &status) == 0 &&
         status.st_dev == destinationDirectory_->st_dev &&
         status.st_ino == destinationDirectory_->st_ino;
}

}  // namespace platform
