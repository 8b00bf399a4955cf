#ifndef PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_H_
#define PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// The signed list of hashes: of the code's pages and, in its special slots, of everything else
/// that is sealed (cs_blobs.h of Apple's xnu; codedirectory.cpp of Apple's Security).
class CodeDirectory {
 public:
  static constexpr std::uint32_t kFlagAdhoc = 0x2;
  static constexpr std::uint32_t kFlagForceExpiration = 0x400;

  /// Takes over a whole CodeDirectory blob and checks every offset in it.
  /// @param directory is filled on success.
  static OsStatus Parse(std::string blob, CodeDirectory& directory);

  const std::string& Blob() const { return blob_; }
  std::uint32_t Flags() const;

  /// The number of the directory's hash type, which may be unknown.
  std::uint8_t HashTypeNumber() const;
  std::optional<HashType> KnownHashType() const { return HashTypeFromNumber(HashTypeNumber()); }

  std::string_view Identifier() const;
  std::optional<std::string_view> TeamIdentifier() const;

  std::uint64_t CodeLimit() const;
  std::uint32_t CodeSlotCount() const;
  std::uint32_t SpecialSlotCount() const;

  /// Bytes per page; 0 when all the code is one page.
  std::uint64_t PageSize() const;

  /// Whether a special slot seals something: it exists and is not all zero.
  bool IsSpecialSlotPresent(Slot slot) const;

  /// Returns the stored hash of a code page, cut to the digest's length; nothing when there is no
  /// such slot or the hash type is unknown.
  std::optional<std::string_view> CodeHash(std::uint32_t index) const;

  /// As above, for a special slot.
  std::optional<std::string_view> SpecialHash(Slot slot) const;

  /// Returns the digest of the whole directory by its own hash type; nothing for an unknown type.
  std::optional<std::string> Hash() const;

 private:
  std::uint32_t Version() const;
  OsStatus CheckIntegrity() const;
  bool StringsAreInside() const;
  bool HashesAreInside() const;
  bool ScatterListIsInside() const;
  bool SlotsCoverCode() const;
  std::optional<std::string_view> HashAt(std::int64_t slot, std::size_t length) const;

  std::string blob_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_H_
