#ifndef PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_
#define PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/descriptor.h"

namespace platform {

/// The most that is ever read into memory in one piece. What claims to be larger counts as more
/// than the memory there is.
constexpr std::uint64_t kLargestPiece = 64U << 20U;

/// A file that is opened once and read at explicit offsets. A file that becomes shorter meanwhile
/// gives short reads. Reading is safe from several threads at once. Moves only.
class RandomAccessFile {
 public:
  RandomAccessFile() = default;

  /// Takes over a file that was opened with kOpenFlags.
  explicit RandomAccessFile(Descriptor file) : file_(std::move(file)) {}

  /// For reading: no terminal is adopted, no writer of a pipe is waited for, and no child inherits
  /// the descriptor.
  static const int kOpenFlags;

  /// Opens for reading, never blocking, whatever kind of file it is. @return 0 or the `errno`.
  int Open(const std::string& path);

  int Number() const { return file_.Get(); }

  /// @param size receives the file's size at this moment. @return 0 or the `errno`.
  int Size(std::uint64_t& size) const;

  /// Reads up to `capacity` bytes at `offset`.
  /// @param count receives how many there were: fewer only at the end of the file.
  /// @return 0 or the `errno`.
  int ReadAt(std::uint64_t offset, void* buffer, std::size_t capacity, std::size_t& count) const;

  /// Reads exactly `length` bytes at `offset`. @return whether they were all there.
  bool ReadExactly(std::uint64_t offset, void* buffer, std::size_t length) const;

  /// @return the `length` bytes at `offset`; nothing when they are not all there, or there are more
  ///     than kLargestPiece.
  std::optional<std::string> ReadPiece(std::uint64_t offset, std::uint64_t length) const;

  /// Reads the whole file, with memory only for what there really is.
  /// @return 0 or the `errno`; EFBIG for more than `limit` bytes.
  int ReadAll(std::string& bytes, std::uint64_t limit = kLargestPiece) const;

 private:
  Descriptor file_;
};

}  // namespace platform

#endif  // PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_
