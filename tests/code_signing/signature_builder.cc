#include "tests/code_signing/signature_builder.h"

#include <utility>

namespace platform::code_signing {
namespace {

constexpr std::uint32_t kArm64 = 0x0100000C;
constexpr std::uint32_t kSignatureRoom = 4096;

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

}  // namespace

std::string BigEndianFields(const std::vector<std::uint32_t>& fields) {
  std::string bytes;
  for (const std::uint32_t field : fields) bytes += BigEndian(field);
  return bytes;
}

std::string MakeCodeDirectory(const TestDirectoryContents& contents) {
  constexpr std::uint32_t kMagic = 0xFADE0C02;
  constexpr std::uint32_t kVersion = 0x20500;
  constexpr std::uint32_t kHeaderSize = 96;
  constexpr std::size_t kTeamOffset = 48;
  const Slot slotCount = contents.sealed.empty() ? 0 : contents.sealed.rbegin()->first;
  std::string hashes;
  for (Slot slot = slotCount; slot >= 1; --slot) {
    const auto found = contents.sealed.find(slot);
    hashes += found != contents.sealed.end() ? DigestOf(contents.hashType, found->second)
                                             : std::string(DigestLength(contents.hashType), '\0');
  }
  const std::uint32_t specialSize = Size(hashes);
  const std::size_t pageSize =
      contents.pageSizeLog2 != 0 ? std::size_t{1} << contents.pageSizeLog2 : contents.code.size();
  std::uint32_t pages = 0;
  for (std::size_t at = 0; at < contents.code.size(); at += pageSize, ++pages) {
    hashes += DigestOf(contents.hashType, contents.code.substr(at, pageSize));
  }
  std::string texts = contents.identifier + '\0';
  const std::uint32_t teamAt = contents.team.empty() ? 0 : kHeaderSize + Size(texts);
  if (!contents.team.empty()) texts += contents.team + '\0';
  const std::uint32_t hashesAt = kHeaderSize + Size(texts);

  std::string bytes =
      BigEndianFields({kMagic, hashesAt + Size(hashes), kVersion, contents.flags,
                       hashesAt + specialSize, kHeaderSize, slotCount, pages, Size(contents.code)});
  bytes += static_cast<char>(DigestLength(contents.hashType));
  bytes += static_cast<char>(contents.hashType);
  bytes += '\0';
  bytes += static_cast<char>(contents.pageSizeLog2);
  bytes.resize(kHeaderSize, '\0');
  return bytes.replace(kTeamOffset, 4, BigEndian(teamAt)) + texts + hashes;
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

std::string MakeWrapper(const std::string& contents) {
  return BigEndianFields({0xFADE0B01, 8 + Size(contents)}) + contents;
}

std::string MakeMachOCode(std::size_t size) {
  constexpr std::uint32_t kMagic = 0xFEEDFACF;
  constexpr std::uint32_t kExecute = 2;
  constexpr std::uint32_t kCodeSignature = 0x1D;
  std::string code;
  for (const std::uint32_t field : {kMagic, kArm64, 0U, kExecute, 1U, 16U, 0U, 0U, kCodeSignature,
                                    16U, static_cast<std::uint32_t>(size), kSignatureRoom}) {
    code += LittleEndian(field);
  }
  code.resize(size, '\0');
  return code;
}

std::string MakeSignedMachO(TestDirectoryContents contents, const DirectorySigner& sign) {
  if (contents.code.empty()) contents.code = MakeMachOCode(64);
  const std::string directory = MakeCodeDirectory(contents);
  std::map<Slot, std::string> components = {{kSlotCodeDirectory, directory}};
  if (sign) components[kSlotCmsSignature] = MakeWrapper(sign(directory));
  std::string file = contents.code + MakeSuperBlob(components);
  file.resize(contents.code.size() + kSignatureRoom, '\0');
  return file;
}

std::string MakeSignedMachO(const std::map<Slot, std::string>& sealed,
                            const std::string& identifier) {
  TestDirectoryContents contents;
  contents.sealed = sealed;
  contents.identifier = identifier;
  return MakeSignedMachO(std::move(contents), nullptr);
}

std::string MakeUniversal(const std::vector<std::string>& slices) {
  constexpr std::uint32_t kMagic = 0xCAFEBABE;
  constexpr std::uint32_t kX86 = 0x01000007;
  constexpr std::uint32_t kAlignment = 4096;
  std::string table = BigEndianFields({kMagic, static_cast<std::uint32_t>(slices.size())});
  std::string file;
  for (const std::string& slice : slices) {
    const std::uint32_t cpu = file.empty() ? kArm64 : kX86;
    file.resize((file.size() + kAlignment - 1) / kAlignment * kAlignment, '\0');
    table += BigEndianFields({cpu, 0, kAlignment + Size(file), Size(slice), 12});
    file += slice;
  }
  table.resize(kAlignment, '\0');
  return table + file;
}

}  // namespace platform::code_signing
