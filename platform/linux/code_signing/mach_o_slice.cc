#include "platform/linux/code_signing/mach_o_slice.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace platform::code_signing {
namespace {

constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
constexpr std::uint32_t kUniversalMagic = 0xCAFEBABE;

constexpr std::uint64_t kFileType = 12;
constexpr std::uint64_t kCommandsSize = 20;

// Load commands: a type and a size (this header included), then the fields of the type.
constexpr std::uint64_t kCommandHeaderSize = 8;
constexpr std::uint32_t kSegment = 0x1;
constexpr std::uint32_t kSymbolTable = 0x2;
constexpr std::uint32_t kSegment64 = 0x19;
constexpr std::uint32_t kCodeSignature = 0x1D;
constexpr std::uint64_t kSymbolTableSize = 24;
constexpr std::uint64_t kCodeSignatureSize = 16;

// Names are 16 bytes long and padded with NULs. A segment's name follows the command's header; a
// section starts with its name.
constexpr std::uint64_t kNameSize = 16;
constexpr std::uint64_t kSegmentName = 8;

// How segments and sections differ between 32-bit and 64-bit images.
struct SegmentLayout {
  std::uint64_t size;
  std::uint64_t sectionCount;
  std::uint64_t sectionSize;
  std::uint64_t lengthInSection;
  std::uint64_t offsetInSection;
};

constexpr SegmentLayout kLayout32 = {56, 48, 68, 36, 40};
constexpr SegmentLayout kLayout64 = {72, 64, 80, 40, 48};

// The first slice of a universal file may itself be universal.
constexpr int kMaxNestedHeaders = 3;
constexpr std::uint64_t kFirstSliceOffset = 16;

}  // namespace

std::optional<MachOHeader> ParseMachOHeader(std::string_view bytes) {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const ByteReader reader(bytes, order);
    const std::uint32_t magic = reader.U32(0);
    if (magic != kMagic32 && magic != kMagic64) continue;
    MachOHeader header;
    header.order = order;
    header.is64Bit = magic == kMagic64;
    header.fileType = reader.U32(kFileType);
    header.commandsSize = reader.U32(kCommandsSize);
    return header;
  }
  return std::nullopt;
}

bool IsUniversalHeader(std::string_view bytes) {
  return ByteReader(bytes, ByteOrder::kBig).U32(0) == kUniversalMagic ||
         ByteReader(bytes, ByteOrder::kLittle).U32(0) == kUniversalMagic;
}

OsStatus MachOSlice::Read(const RandomAccessFile& file, std::uint64_t start, MachOSlice& slice) {
  const std::optional<std::string> bytes = file.ReadPiece(start, kMachOHeaderSize);
  const std::optional<MachOHeader> header = bytes ? ParseMachOHeader(*bytes) : std::nullopt;
  if (!header || header->commandsSize < kCommandHeaderSize) return kErrSecCSBadObjectFormat;
  std::optional<std::string> commands =
      file.ReadPiece(start + header->Size(), header->commandsSize);
  if (!commands) return kErrSecCSBadObjectFormat;
  MachOSlice candidate;
  candidate.order_ = header->order;
  candidate.is64Bit_ = header->is64Bit;
  candidate.fileType_ = header->fileType;
  candidate.commandsEnd_ = header->Size() + commands->size();
  candidate.commands_ = std::move(*commands);
  if (const OsStatus status = candidate.CheckSegments(); status != kErrSecSuccess) return status;
  slice = std::move(candidate);
  return kErrSecSuccess;
}

MachOSlice::Command MachOSlice::ReadAt(std::uint64_t offset) const {
  return {Commands().U32(offset), offset, Commands().U32(offset + 4)};
}

MachOSlice::Step MachOSlice::Next(Command& command) const {
  if (command.size == 0) return Step::kMalformed;
  const std::uint64_t offset = command.offset + command.size;
  if (offset >= commands_.size()) return Step::kEnd;
  command = ReadAt(offset);
  const bool isInside = Commands().Contains(offset, std::max(command.size, kCommandHeaderSize));
  return isInside ? Step::kCommand : Step::kMalformed;
}

bool MachOSlice::HasName(std::uint64_t offset, const char* name) const {
  const auto field = Commands().Piece(offset, kNameSize);
  return field && std::strncmp(field->data(), name, kNameSize) == 0;
}

// Checks the segment commands up to __LINKEDIT, the last segment of a valid image. Where that
// segment ends does not matter, but a command that is too small makes the image malformed.
OsStatus MachOSlice::CheckSegments() const {
  Command command = ReadAt(0);
  Step step = Step::kCommand;
  for (; step == Step::kCommand; step = Next(command)) {
    const bool isSegment = command.type == kSegment || command.type == kSegment64;
    const std::uint64_t least = command.type == kSegment     ? kLayout32.size
                                : command.type == kSegment64 ? kLayout64.size
                                                             : kSymbolTableSize;
    if (!isSegment && command.type != kSymbolTable) continue;
    if (command.size < least || !Commands().Contains(command.offset, least)) {
      return kErrSecCSBadObjectFormat;
    }
    if (!isSegment || HasName(command.offset + kSegmentName, "__LINKEDIT")) return kErrSecSuccess;
  }
  return step == Step::kEnd ? kErrSecSuccess : kErrSecCSBadObjectFormat;
}

OsStatus MachOSlice::FindSignature(std::optional<Range>& signature) const {
  signature.reset();
  Command command = ReadAt(0);
  Step step = Step::kCommand;
  while (step == Step::kCommand && command.type != kCodeSignature) step = Next(command);
  if (step == Step::kEnd) return kErrSecSuccess;
  if (step == Step::kMalformed || command.size < kCodeSignatureSize ||
      !Commands().Contains(command.offset, kCodeSignatureSize)) {
    return kErrSecCSBadObjectFormat;
  }
  const ByteReader reader = Commands();
  signature = Range{reader.U32(command.offset + kCommandHeaderSize),
                    reader.U32(command.offset + kCommandHeaderSize + 4)};
  return kErrSecSuccess;
}

std::optional<MachOSlice::Range> MachOSlice::FindInfoPlist() const {
  Command command = ReadAt(0);
  for (Step step = Step::kCommand; step == Step::kCommand; step = Next(command)) {
    if (command.type != kSegment && command.type != kSegment64) continue;
    if (command.size < kLayout32.size) return std::nullopt;
    if (HasName(command.offset + kSegmentName, "__TEXT")) return FindInfoPlistIn(command);
  }
  return std::nullopt;
}

std::optional<MachOSlice::Range> MachOSlice::FindInfoPlistIn(const Command& segment) const {
  const SegmentLayout& layout = is64Bit_ ? kLayout64 : kLayout32;
  const ByteReader reader = Commands();
  if (segment.size < layout.size || !reader.Contains(segment.offset, segment.size)) {
    return std::nullopt;
  }
  const std::uint64_t count = reader.U32(segment.offset + layout.sectionCount);
  if (count > (segment.size - layout.size) / layout.sectionSize) return std::nullopt;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t section = segment.offset + layout.size + i * layout.sectionSize;
    if (!HasName(section, "__info_plist")) continue;
    const std::uint64_t length = section + layout.lengthInSection;
    return Range{reader.U32(section + layout.offsetInSection),
                 is64Bit_ ? reader.U64(length) : reader.U32(length)};
  }
  return std::nullopt;
}

std::uint32_t MachOFileType(const RandomAccessFile& file) {
  std::uint64_t offset = 0;
  for (int i = 0; i < kMaxNestedHeaders; ++i) {
    const std::optional<std::string> bytes = file.ReadPiece(offset, kMachOHeaderSize);
    if (!bytes) return 0;
    if (!IsUniversalHeader(*bytes)) {
      const std::optional<MachOHeader> header = ParseMachOHeader(*bytes);
      return header ? header->fileType : 0;
    }
    offset = ByteReader(*bytes, ByteOrder::kBig).U32(kFirstSliceOffset);
  }
  return 0;
}

}  // namespace platform::code_signing
