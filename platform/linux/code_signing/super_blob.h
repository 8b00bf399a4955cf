#ifndef PLATFORM_LINUX_CODE_SIGNING_SUPER_BLOB_H_
#define PLATFORM_LINUX_CODE_SIGNING_SUPER_BLOB_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// An embedded signature: an index of components, each in its own blob, all big-endian (cs_blobs.h
/// of Apple's xnu; superblob.h and sigblob.cpp of Apple's Security).
class SuperBlob {
 public:
  /// Reads and checks the SuperBlob at `offset` in a file. Ignores what follows it.
  /// @param limit its maximum size in bytes; 0 for no limit.
  /// @param blob is filled on success.
  /// @return kErrSecCSSignatureInvalid when there is no valid one, kErrSecAllocate when it exceeds
  ///     kMaxPieceSize.
  static OsStatus Read(const RandomAccessFile& file, std::uint64_t offset, std::uint64_t limit,
                       SuperBlob& blob);

  /// Copies the first component that the index lists under `slot`.
  /// @param bytes is reset when there is none.
  /// @return kErrSecCSSignatureInvalid for a component without its mandatory wrapper.
  OsStatus ReadComponent(Slot slot, std::optional<std::string>& bytes) const;

  /// In bytes; 0 before Read() has succeeded.
  std::uint64_t Size() const { return bytes_.size(); }

 private:
  bool IsValid() const;
  std::optional<std::string_view> Find(Slot slot) const;

  std::string bytes_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SUPER_BLOB_H_
