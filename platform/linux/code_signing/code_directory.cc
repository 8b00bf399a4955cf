#include "platform/linux/code_signing/code_directory.h"

#include <utility>

#include "platform/linux/code_signing/byte_reader.h"

namespace platform::code_signing {
namespace {

constexpr std::uint32_t kMagic = 0xFADE0C02;

// The minimum size of a directory of any version: the fields up to that of the pre-encryption
// hashes.
constexpr std::size_t kSmallestSize = 96;

constexpr std::uint32_t kEarliestVersion = 0x20001;
constexpr std::uint32_t kLatestVersion = 0x2F000;
constexpr std::uint32_t kVersionWithScatter = 0x20100;
constexpr std::uint32_t kVersionWithTeam = 0x20200;
constexpr std::uint32_t kVersionWithCodeLimit64 = 0x20300;
constexpr std::uint32_t kVersionWithPreEncryption = 0x20500;

// Offsets of the fields.
enum : std::uint64_t {
  kLength = 4,
  kVersion = 8,
  kFlags = 12,
  kHashOffset = 16,
  kIdentifierOffset = 20,
  kSpecialSlotCount = 24,
  kCodeSlotCount = 28,
  kCodeLimit = 32,
  kHashSize = 36,
  kHashType = 37,
  kPageSizeLog2 = 39,
  kScatterOffset = 44,
  kTeamOffset = 48,
  kCodeLimit64 = 56,
  kPreEncryptionOffset = 92,
};

// Entries of a scatter list are this size. The last one counts no pages.
constexpr std::uint64_t kScatterEntrySize = 24;

// Page sizes are powers of two, or 0 for a single page. The platform accepts smaller ones, but no
// tool writes them, and they only slow hashing down.
constexpr std::uint32_t kMinPageSizeLog2 = 12;
constexpr std::uint32_t kMaxPageSizeLog2 = 31;

ByteReader Reader(const std::string& bytes) { return {bytes, ByteOrder::kBig}; }

}  // namespace

OsStatus CodeDirectory::Parse(std::string blob, CodeDirectory& directory) {
  const ByteReader reader = Reader(blob);
  if (blob.size() < kSmallestSize || reader.U32(0) != kMagic ||
      reader.U32(kLength) != blob.size()) {
    return kErrSecCSSignatureFailed;
  }
  CodeDirectory candidate;
  candidate.blob_ = std::move(blob);
  if (const OsStatus status = candidate.CheckIntegrity(); status != kErrSecSuccess) return status;
  directory = std::move(candidate);
  return kErrSecSuccess;
}

OsStatus CodeDirectory::CheckIntegrity() const {
  if (Version() < kEarliestVersion || Version() > kLatestVersion) {
    return kErrSecCSSignatureUnsupported;
  }
  const bool sound =
      StringsAreInside() && HashesAreInside() && ScatterListIsInside() && SlotsCoverCode();
  return sound ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

bool CodeDirectory::StringsAreInside() const {
  const ByteReader reader = Reader(blob_);
  if (!reader.TextAt(reader.U32(kIdentifierOffset))) return false;
  const std::uint32_t teamOffset = reader.U32(kTeamOffset);
  return Version() < kVersionWithTeam || teamOffset == 0 || reader.TextAt(teamOffset);
}

bool CodeDirectory::HashesAreInside() const {
  const ByteReader reader = Reader(blob_);
  const std::uint64_t hashSize = reader.U8(kHashSize);
  if (hashSize == 0) return false;
  const std::uint64_t hashOffset = reader.U32(kHashOffset);
  const std::uint64_t specialSize = hashSize * SpecialSlotCount();
  const std::uint64_t codeSize = hashSize * CodeSlotCount();
  if (specialSize > hashOffset || !reader.Contains(hashOffset, codeSize)) return false;
  const std::uint32_t preEncryptionOffset = reader.U32(kPreEncryptionOffset);
  return Version() < kVersionWithPreEncryption || preEncryptionOffset == 0 ||
         reader.Contains(preEncryptionOffset, codeSize);
}

bool CodeDirectory::ScatterListIsInside() const {
  const ByteReader reader = Reader(blob_);
  std::uint64_t entry = reader.U32(kScatterOffset);
  if (Version() < kVersionWithScatter || entry == 0) return true;
  std::uint64_t pages = 0;
  for (;; entry += kScatterEntrySize) {
    if (!reader.Contains(entry, kScatterEntrySize)) return false;
    const std::uint32_t count = reader.U32(entry);
    if (count == 0) break;
    pages += count;
  }
  return HashAt(static_cast<std::int64_t>(pages) - 1, reader.U8(kHashSize)).has_value();
}

bool CodeDirectory::SlotsCoverCode() const {
  const std::uint64_t limit = CodeLimit();
  const std::uint32_t pageSizeLog2 = Reader(blob_).U8(kPageSizeLog2);
  if (pageSizeLog2 == 0) return CodeSlotCount() == (limit > 0 ? 1 : 0);
  if (pageSizeLog2 < kMinPageSizeLog2 || pageSizeLog2 > kMaxPageSizeLog2) return false;
  if (limit == 0) return false;
  return ((limit - 1) >> pageSizeLog2) + 1 == CodeSlotCount();
}

std::uint32_t CodeDirectory::Version() const { return Reader(blob_).U32(kVersion); }

std::uint32_t CodeDirectory::Flags() const { return Reader(blob_).U32(kFlags); }

std::uint8_t CodeDirectory::HashTypeNumber() const { return Reader(blob_).U8(kHashType); }

std::string_view CodeDirectory::Identifier() const {
  const ByteReader reader = Reader(blob_);
  return reader.TextAt(reader.U32(kIdentifierOffset)).value_or(std::string_view());
}

std::optional<std::string_view> CodeDirectory::TeamIdentifier() const {
  const ByteReader reader = Reader(blob_);
  const std::uint32_t offset = reader.U32(kTeamOffset);
  if (Version() < kVersionWithTeam || offset == 0) return std::nullopt;
  return reader.TextAt(offset);
}

std::uint64_t CodeDirectory::CodeLimit() const {
  const ByteReader reader = Reader(blob_);
  const std::uint64_t limit64 = reader.U64(kCodeLimit64);
  if (Version() >= kVersionWithCodeLimit64 && limit64 != 0) return limit64;
  return reader.U32(kCodeLimit);
}

std::uint32_t CodeDirectory::CodeSlotCount() const { return Reader(blob_).U32(kCodeSlotCount); }

std::uint32_t CodeDirectory::SpecialSlotCount() const {
  return Reader(blob_).U32(kSpecialSlotCount);
}

std::uint64_t CodeDirectory::PageSize() const {
  const std::uint8_t log2 = Reader(blob_).U8(kPageSizeLog2);
  return log2 == 0 ? 0 : std::uint64_t{1} << log2;
}

std::optional<std::string_view> CodeDirectory::HashAt(std::int64_t slot, std::size_t length) const {
  const ByteReader reader = Reader(blob_);
  const std::int64_t offset =
      std::int64_t{reader.U32(kHashOffset)} + slot * std::int64_t{reader.U8(kHashSize)};
  if (offset < 0) return std::nullopt;
  return reader.Piece(static_cast<std::uint64_t>(offset), length);
}

bool CodeDirectory::IsSpecialSlotPresent(Slot slot) const {
  if (slot > SpecialSlotCount()) return false;
  const auto hash = HashAt(-std::int64_t{slot}, Reader(blob_).U8(kHashSize));
  return hash && hash->find_first_not_of('\0') != std::string_view::npos;
}

std::optional<std::string_view> CodeDirectory::CodeHash(std::uint32_t index) const {
  const std::optional<HashType> type = KnownHashType();
  if (!type || index >= CodeSlotCount()) return std::nullopt;
  return HashAt(index, DigestLength(*type));
}

std::optional<std::string_view> CodeDirectory::SpecialHash(Slot slot) const {
  const std::optional<HashType> type = KnownHashType();
  if (!type || slot > SpecialSlotCount()) return std::nullopt;
  return HashAt(-std::int64_t{slot}, DigestLength(*type));
}

std::optional<std::string> CodeDirectory::Hash() const {
  const std::optional<HashType> type = KnownHashType();
  if (!type) return std::nullopt;
  return DigestOf(*type, blob_);
}

}  // namespace platform::code_signing
