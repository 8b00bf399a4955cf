#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/descriptor.h"

namespace platform {

bool FileExists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

bool DirectoryExists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int FileMode(const std::string& path, std::uint32_t& mode) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return errno;
  mode = status.st_mode;
  return 0;
}

int CheckAccess(const std::string& path, AccessTest test) {
  return access(path.c_str(), test == AccessTest::kReadable ? R_OK : F_OK) == 0 ? 0 : errno;
}

void DirectoryTraits::Close(Handle stream) { closedir(static_cast<DIR*>(stream)); }

int DirectoryReader::Open(const std::string& path) {
  stream_.Reset(opendir(path.c_str()));
  return stream_.IsOpen() ? 0 : errno;
}

const char* DirectoryReader::Next() {
  errno = 0;  // readdir() leaves it unchanged at the end
  const dirent* const entry = readdir(static_cast<DIR*>(stream_.Get()));
  error_ = entry == nullptr ? errno : 0;
  return entry == nullptr ? nullptr : entry->d_name;
}

void FileTraits::Close(Handle descriptor) { close(descriptor); }

int InputFile::Open(const std::string& path) {
  file_.Reset(OpenAt(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_CLOEXEC).Release());
  return file_.IsOpen() ? 0 : errno;
}

int InputFile::Read(char* buffer, std::size_t capacity, std::size_t& count) {
  ssize_t result;
  do {
    result = read(file_.Get(), buffer, capacity);
  } while (result < 0 && errno == EINTR);
  // A pipe whose writer has not written anything yet ends here, like one without a writer.
  if (result < 0 && errno == EAGAIN) result = 0;
  count = result < 0 ? 0 : static_cast<std::size_t>(result);
  return result < 0 ? errno : 0;
}

int AppendedFile::Open(const std::string& path) {
  file_.Reset(OpenAt(AT_FDCWD, path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC,
                     S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH)
                  .Release());
  if (!file_.IsOpen()) return errno;
  struct stat status;
  if (fstat(file_.Get(), &status) == 0 && !S_ISFIFO(status.st_mode)) file_.Reset();
  return 0;
}

int CreateFileExclusively(const std::string& path) {
  const Descriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  return file.IsOpen() ? 0 : errno;
}

}  // namespace platform
