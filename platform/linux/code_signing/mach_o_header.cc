#include "platform/linux/code_signing/mach_o_header.h"

namespace platform::code_signing {
namespace {

constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
constexpr std::uint32_t kUniversalMagic = 0xCAFEBABE;

constexpr std::uint64_t kFileType = 12;
constexpr std::uint64_t kCommandsSize = 20;

}  // namespace

std::optional<MachOHeader> ParseMachOHeader(std::string_view bytes) {
  if (bytes.size() < kMachOHeaderSize) return std::nullopt;
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

}  // namespace platform::code_signing
