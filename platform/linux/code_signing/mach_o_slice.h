#ifndef PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_
#define PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/code_signing/byte_reader.h"
#include "platform/linux/code_signing/status.h"
#include "platform/linux/random_access_file.h"

namespace platform::code_signing {

/// The number of bytes that the 32-bit and the 64-bit header have in common (mach-o/loader.h of
/// Apple's open xnu).
constexpr std::uint64_t kMachOHeaderSize = 28;

/// The fields of a header that matter here, for any processor.
struct MachOHeader {
  ByteOrder order = ByteOrder::kLittle;
  bool is64Bit = false;
  std::uint32_t fileType = 0;
  std::uint32_t commandsSize = 0;

  /// Where the load commands start.
  std::uint64_t Size() const { return is64Bit ? kMachOHeaderSize + 4 : kMachOHeaderSize; }
};

/// @param bytes at least kMachOHeaderSize of them.
/// @return nothing when they are not a header.
std::optional<MachOHeader> ParseMachOHeader(std::string_view bytes);

/// Whether the bytes start with the magic number of a universal file (mach-o/fat.h), in either byte
/// order. All other numbers of its table are big-endian.
bool IsUniversalHeader(std::string_view bytes);

/// One Mach-O image, of 32 or 64 bits, in either byte order. Its load commands locate the signature
/// and the Info.plist (mach-o/loader.h of Apple's xnu; macho++.cpp of Apple's Security).
class MachOSlice {
 public:
  /// A range of bytes, relative to the slice's start.
  struct Range {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
  };

  /// Reads the header and the load commands of the image that starts at offset `start` in a file.
  /// @param slice is filled on success.
  /// @return kErrSecCSBadObjectFormat for an image that is malformed.
  static OsStatus Read(const RandomAccessFile& file, std::uint64_t start, MachOSlice& slice);

  std::uint32_t FileType() const { return fileType_; }

  /// Where the load commands end, from the start of the image.
  std::uint64_t CommandsEnd() const { return commandsEnd_; }

  /// Finds the first signature command.
  /// @param signature is reset when there is none.
  OsStatus FindSignature(std::optional<Range>& signature) const;

  /// @return the section with an embedded Info.plist; nothing when there is none, or the commands
  ///     are malformed.
  std::optional<Range> FindInfoPlist() const;

 private:
  struct Command {
    std::uint32_t type = 0;
    std::uint64_t offset = 0;  // in the load commands
    std::uint64_t size = 0;
  };

  enum class Step { kCommand, kEnd, kMalformed };

  Command ReadAt(std::uint64_t offset) const;
  Step Next(Command& command) const;
  OsStatus CheckSegments() const;
  bool HasName(std::uint64_t offset, const char* name) const;
  std::optional<Range> FindInfoPlistIn(const Command& segment) const;

  ByteReader Commands() const { return {commands_, order_}; }

  ByteOrder order_ = ByteOrder::kLittle;
  bool is64Bit_ = false;
  std::uint32_t fileType_ = 0;
  std::uint64_t commandsEnd_ = 0;
  std::string commands_;
};

/// Returns the file type of the Mach-O image at the start of a file, or of the first image of a
/// universal file; 0 when there is none.
std::uint32_t MachOFileType(const RandomAccessFile& file);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_
