#ifndef PLATFORM_LINUX_CODE_SIGNING_MACH_O_HEADER_H_
#define PLATFORM_LINUX_CODE_SIGNING_MACH_O_HEADER_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/linux/code_signing/byte_reader.h"

namespace platform::code_signing {

/// The bytes of a header that both the 32-bit and the 64-bit kind have (mach-o/loader.h of Apple's
/// open xnu).
constexpr std::uint64_t kMachOHeaderSize = 28;

/// What of a header matters here, from any processor.
struct MachOHeader {
  ByteOrder order = ByteOrder::kLittle;
  bool is64Bit = false;
  std::uint32_t fileType = 0;
  std::uint32_t commandsSize = 0;

  /// Where the load commands start.
  std::uint64_t Size() const { return is64Bit ? kMachOHeaderSize + 4 : kMachOHeaderSize; }
};

/// @param bytes at least kMachOHeaderSize of them.
/// @return nothing when they are no header.
std::optional<MachOHeader> ParseMachOHeader(std::string_view bytes);

/// Whether the bytes start with the magic number of a universal file (mach-o/fat.h), in either byte
/// order. All other numbers of its table are big-endian.
bool IsUniversalHeader(std::string_view bytes);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_MACH_O_HEADER_H_
