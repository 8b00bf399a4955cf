#include "tests/code_signing/test_signature.h"

#include <vector>

namespace platform::code_signing {
namespace {

std::string BigEndian(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

std::string LittleEndian(std::uint32_t number) {
  const std::string bytes = BigEndian(number);
  return {bytes.rbegin(), bytes.rend()};
}

std::uint32_t Size(const std::string& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

std::string BigEndianFields(const std::vector<std::uint32_t>& fields) {
  std::string bytes;
  for (const std::uint32_t field : fields) bytes += BigEndian(field);
  return bytes;
}

}  // namespace

std::string MakeCodeDirectory(const TestDirectoryContents& contents) {
  constexpr std::uint32_t kMagic = 0xFADE0C02;
  constexpr std::uint32_t kVersion = 0x20500;
  constexpr std::uint32_t kHeaderSize = 96;
  const Slot slotCount = contents.sealed.empty() ? 0 : contents.sealed.rbegin()->first;
  std::string hashes;
  for (Slot slot = slotCount; slot >= 1; --slot) {
    const auto found = contents.sealed.find(slot);
    hashes += found != contents.sealed.end() ? DigestOf(contents.hashType, found->second)
                                             : std::string(DigestLength(contents.hashType), '\0');
  }
  const std::uint32_t specialSize = Size(hashes);
  hashes += DigestOf(contents.hashType, contents.code);
  const std::string identifier = contents.identifier + '\0';
  const std::uint32_t hashesAt = kHeaderSize + Size(identifier);

  std::string bytes =
      BigEndianFields({kMagic, hashesAt + Size(hashes), kVersion, contents.flags,
                       hashesAt + specialSize, kHeaderSize, slotCount, 1, Size(contents.code)});
  bytes += static_cast<char>(DigestLength(contents.hashType));
  bytes += static_cast<char>(contents.hashType);
  bytes.resize(kHeaderSize, '\0');
  return bytes + identifier + hashes;
}

std::string MakeSuperBlob(const std::map<Slot, std::string>& components) {
  constexpr std::uint32_t kMagic = 0xFADE0CC0;
  const auto count = static_cast<std::uint32_t>(components.size());
  const std::uint32_t indexEnd = 12 + 8 * count;
  std::string index;
  std::string blobs;
  for (const auto& [slot, blob] : components) {
    index += BigEndianFields({slot, indexEnd + Size(blobs)});
    blobs += blob;
  }
  return BigEndianFields({kMagic, indexEnd + Size(blobs), count}) + index + blobs;
}

std::string MakeSignedMachO(const std::map<Slot, std::string>& sealed,
                            const std::string& identifier) {
  constexpr std::uint32_t kMagic = 0xFEEDFACF;
  constexpr std::uint32_t kArm64 = 0x0100000C;
  constexpr std::uint32_t kExecute = 2;
  constexpr std::uint32_t kCodeSignature = 0x1D;
  constexpr std::uint32_t kSignatureAt = 64;
  constexpr std::uint32_t kSignatureRoom = 4096;
  TestDirectoryContents contents;
  for (const std::uint32_t field : {kMagic, kArm64, 0U, kExecute, 1U, 16U, 0U, 0U, kCodeSignature,
                                    16U, kSignatureAt, kSignatureRoom}) {
    contents.code += LittleEndian(field);
  }
  contents.code.resize(kSignatureAt, '\0');
  contents.sealed = sealed;
  contents.identifier = identifier;
  std::string file =
      contents.code + MakeSuperBlob({{kSlotCodeDirectory, MakeCodeDirectory(contents)}});
  file.resize(kSignatureAt + kSignatureRoom, '\0');
  return file;
}

}  // namespace platform::code_signing
