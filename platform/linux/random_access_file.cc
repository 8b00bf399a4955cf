#include "platform/linux/random_access_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace platform {
namespace {

template <typename Call>
auto RetryOnSignal(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

const int RandomAccessFile::kOpenFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

int RandomAccessFile::Open(const std::string& path) {
  file_ = OpenAt(AT_FDCWD, path, kOpenFlags);
  return file_.IsOpen() ? 0 : errno;
}

int RandomAccessFile::Size(std::uint64_t& size) const {
  struct stat status {};
  if (fstat(file_.Get(), &status) != 0) return errno;
  size = static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
  return 0;
}

int RandomAccessFile::ReadAt(std::uint64_t offset, void* buffer, std::size_t capacity,
                             std::size_t& count) const {
  constexpr auto kLastOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  count = 0;
  while (count < capacity) {
    // An offset beyond the range of the type is past the end of every file.
    if (offset > kLastOffset || count > kLastOffset - offset) return 0;
    const auto position = static_cast<off_t>(offset + count);
    const ssize_t got = RetryOnSignal([&] {
      return pread(file_.Get(), static_cast<char*>(buffer) + count, capacity - count, position);
    });
    if (got < 0) return errno;
    if (got == 0) return 0;
    count += static_cast<std::size_t>(got);
  }
  return 0;
}

bool RandomAccessFile::ReadExactly(std::uint64_t offset, void* buffer, std::size_t length) const {
  std::size_t count = 0;
  return ReadAt(offset, buffer, length, count) == 0 && count == length;
}

std::optional<std::string> RandomAccessFile::ReadPiece(std::uint64_t offset,
                                                       std::uint64_t length) const {
  std::uint64_t size = 0;
  if (length > kMaxPieceSize || Size(size) != 0) return std::nullopt;
  if (offset > size || length > size - offset) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(length), '\0');
  if (!ReadExactly(offset, bytes.data(), bytes.size())) return std::nullopt;
  return bytes;
}

int RandomAccessFile::ReadAll(std::string& bytes, std::uint64_t limit) const {
  constexpr std::size_t kStep = 64U << 10U;
  bytes.clear();
  // The size may be wrong, but is usually right, so the bytes need not be copied as they grow.
  std::uint64_t size = 0;
  if (const int error = Size(size); error != 0) return error;
  bytes.reserve(static_cast<std::size_t>(std::min(size, limit)) + kStep);
  for (;;) {
    const std::size_t before = bytes.size();
    bytes.resize(before + kStep);
    std::size_t count = 0;
    const int error = ReadAt(before, &bytes[before], kStep, count);
    bytes.resize(before + count);
    if (error != 0) return error;
    if (bytes.size() > limit) return EFBIG;
    if (count < kStep) return 0;
  }
}

}  // namespace platform
