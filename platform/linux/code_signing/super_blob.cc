#include "platform/linux/code_signing/super_blob.h"

#include <utility>

#include "platform/linux/code_signing/byte_reader.h"

namespace platform::code_signing {
namespace {

constexpr std::uint32_t kEmbeddedSignatureMagic = 0xFADE0CC0;
constexpr std::uint32_t kWrapperMagic = 0xFADE0B01;

// A blob starts with its magic and its length, which includes these eight bytes. In a SuperBlob the
// number of index entries follows, then the entries, each a slot and an offset.
constexpr std::uint64_t kBlobHeaderSize = 8;
constexpr std::uint64_t kLengthOffset = 4;
constexpr std::uint64_t kCountOffset = 8;
constexpr std::uint64_t kIndexOffset = 12;
constexpr std::uint64_t kIndexEntrySize = 8;

// Real signatures have about ten entries. The index is searched once for each component.
constexpr std::uint64_t kMaxCount = 64;

ByteReader Reader(std::string_view bytes) { return {bytes, ByteOrder::kBig}; }

bool IsUsedAsWholeBlob(Slot slot) {
  return slot == kSlotCodeDirectory || slot == kSlotRequirements || slot == kSlotEntitlements ||
         (slot >= kSlotDerEntitlements && slot <= kSlotLibraryConstraint) ||
         (slot >= kSlotAlternateCodeDirectories && slot < kSlotAlternateCodeDirectoryLimit);
}

}  // namespace

OsStatus SuperBlob::Read(const RandomAccessFile& file, std::uint64_t offset, std::uint64_t limit,
                         SuperBlob& blob) {
  const std::optional<std::string> header = file.ReadPiece(offset, kIndexOffset);
  if (!header) return kErrSecCSSignatureInvalid;
  const ByteReader reader = Reader(*header);
  const std::uint64_t length = reader.U32(kLengthOffset);
  if (reader.U32(0) != kEmbeddedSignatureMagic || length < kIndexOffset ||
      (limit != 0 && length > limit)) {
    return kErrSecCSSignatureInvalid;
  }
  std::uint64_t fileSize = 0;
  if (file.Size(fileSize) != 0 || length > fileSize - offset) return kErrSecCSSignatureInvalid;
  if (length > kMaxPieceSize) return kErrSecAllocate;
  std::optional<std::string> bytes = file.ReadPiece(offset, length);
  if (!bytes) return kErrSecCSSignatureInvalid;
  SuperBlob candidate;
  candidate.bytes_ = std::move(*bytes);
  if (!candidate.IsValid()) return kErrSecCSSignatureInvalid;
  blob = std::move(candidate);
  return kErrSecSuccess;
}

bool SuperBlob::IsValid() const {
  const ByteReader reader = Reader(bytes_);
  // The file may have changed since the header was read.
  if (reader.U32(0) != kEmbeddedSignatureMagic || reader.U32(kLengthOffset) != bytes_.size()) {
    return false;
  }
  const std::uint64_t count = reader.U32(kCountOffset);
  const std::uint64_t indexEnd = kIndexOffset + count * kIndexEntrySize;
  if (count > kMaxCount || indexEnd > bytes_.size()) return false;
  // Components of real signatures do not overlap. If they did, a small file could use a lot
  // of memory.
  std::uint64_t unclaimed = bytes_.size() - indexEnd;
  for (std::uint64_t entry = kIndexOffset; entry < indexEnd; entry += kIndexEntrySize) {
    const std::uint64_t offset = reader.U32(entry + 4);
    if (offset == 0) continue;
    if (offset < indexEnd || !reader.Contains(offset, kBlobHeaderSize)) return false;
    const std::uint64_t length = reader.U32(offset + kLengthOffset);
    if (!reader.Contains(offset, length) || length > unclaimed) return false;
    unclaimed -= length;
  }
  return true;
}

std::optional<std::string_view> SuperBlob::Find(Slot slot) const {
  const ByteReader reader = Reader(bytes_);
  const std::uint64_t indexEnd =
      kIndexOffset + std::uint64_t{reader.U32(kCountOffset)} * kIndexEntrySize;
  for (std::uint64_t entry = kIndexOffset; entry < indexEnd; entry += kIndexEntrySize) {
    if (reader.U32(entry) != slot) continue;
    const std::uint64_t offset = reader.U32(entry + 4);
    if (offset == 0) return std::nullopt;
    return reader.Piece(offset, reader.U32(offset + kLengthOffset));
  }
  return std::nullopt;
}

OsStatus SuperBlob::ReadComponent(Slot slot, std::optional<std::string>& bytes) const {
  bytes.reset();
  std::optional<std::string_view> blob = Find(slot);
  if (!blob) return kErrSecSuccess;
  if (!IsUsedAsWholeBlob(slot)) {
    if (blob->size() < kBlobHeaderSize || Reader(*blob).U32(0) != kWrapperMagic) {
      return kErrSecCSSignatureInvalid;
    }
    blob->remove_prefix(kBlobHeaderSize);
  }
  bytes.emplace(*blob);
  return kErrSecSuccess;
}

}  // namespace platform::code_signing
