#ifndef PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_
#define PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/descriptor.h"

namespace platform {

/// The maximum that is read into memory in one piece. A larger claimed size is treated as a lack of
/// memory.
constexpr std::uint64_t kMaxPieceSize = 64U << 20U;

/// A file that is opened once and read at explicit offsets. A file that shrinks meanwhile gives
/// short reads. Reading is thread-safe. Move-only.
class RandomAccessFile {
 public:
  RandomAccessFile() = default;

  /// Takes over a file that was opened with kOpenFlags.
  explicit RandomAccessFile(Descriptor file) : file_(std::move(file)) {}

  /// For reading, without acquiring a controlling terminal, waiting for a pipe's writer, or passing
  /// the descriptor to a child.
  static const int kOpenFlags;

  /// Opens any kind of file for reading without blocking. @return 0 or the `errno`.
  int Open(const std::string& path);

  int Number() const { return file_.Get(); }

  /// @param size receives the file's size at this moment. @return 0 or the `errno`.
  int Size(std::uint64_t& size) const;

  /// Reads up to `capacity` bytes at `offset`.
  /// @param count receives the number of bytes read; fewer only at the end of the file.
  /// @return 0 or the `errno`.
  int ReadAt(std::uint64_t offset, void* buffer, std::size_t capacity, std::size_t& count) const;

  /// Reads exactly `length` bytes at `offset`. @return whether they were all there.
  bool ReadExactly(std::uint64_t offset, void* buffer, std::size_t length) const;

  /// @return the `length` bytes at `offset`; nothing when some are missing, or for more than
  ///     kMaxPieceSize.
  std::optional<std::string> ReadPiece(std::uint64_t offset, std::uint64_t length) const;

  /// Reads the whole file. Memory grows with the actual contents, not with a claimed size.
  /// @return 0, or the `errno` of the failure: EFBIG for more than `limit` bytes.
  int ReadAll(std::string& bytes, std::uint64_t limit = kMaxPieceSize) const;

 private:
  Descriptor file_;
};

}  // namespace platform

#endif  // PLATFORM_LINUX_RANDOM_ACCESS_FILE_H_
