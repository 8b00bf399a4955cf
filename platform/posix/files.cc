#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

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

DirectoryReader::~DirectoryReader() {
  if (stream_ != nullptr) closedir(static_cast<DIR*>(stream_));
}

DirectoryReader::DirectoryReader(DirectoryReader&& other) noexcept
    : stream_(std::exchange(other.stream_, nullptr)), error_(other.error_) {}

DirectoryReader& DirectoryReader::operator=(DirectoryReader&& other) noexcept {
  std::swap(stream_, other.stream_);
  error_ = other.error_;
  return *this;
}

int DirectoryReader::Open(const std::string& path) {
  if (stream_ != nullptr) closedir(static_cast<DIR*>(stream_));
  stream_ = opendir(path.c_str());
  return stream_ == nullptr ? errno : 0;
}

const char* DirectoryReader::Next() {
  errno = 0;  // the end leaves it alone
  const dirent* const entry = readdir(static_cast<DIR*>(stream_));
  error_ = entry == nullptr ? errno : 0;
  return entry == nullptr ? nullptr : entry->d_name;
}

InputFile::~InputFile() { Close(); }

InputFile::InputFile(InputFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, Descriptor::kNone)) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

int InputFile::Open(const std::string& path) {
  Close();
  do {
    descriptor_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  } while (descriptor_ < 0 && errno == EINTR);
  return descriptor_ < 0 ? errno : 0;
}

int InputFile::Read(char* buffer, std::size_t capacity, std::size_t& count) {
  ssize_t result;
  do {
    result = read(descriptor_, buffer, capacity);
  } while (result < 0 && errno == EINTR);
  // A pipe whose writer has nothing to say yet ends here, like one without a writer.
  if (result < 0 && errno == EAGAIN) result = 0;
  count = result < 0 ? 0 : static_cast<std::size_t>(result);
  return result < 0 ? errno : 0;
}

void InputFile::Close() {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, Descriptor::kNone));
}

AppendedFile::~AppendedFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

int AppendedFile::Open(const std::string& path) {
  do {
    descriptor_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC,
                       S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
  } while (descriptor_ < 0 && errno == EINTR);
  if (descriptor_ < 0) return errno;
  struct stat status;
  if (fstat(descriptor_, &status) == 0 && !S_ISFIFO(status.st_mode)) {
    close(std::exchange(descriptor_, Descriptor::kNone));
  }
  return 0;
}

int CreateFileExclusively(const std::string& path) {
  const Descriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  return file.IsOpen() ? 0 : errno;
}

}  // namespace platform
