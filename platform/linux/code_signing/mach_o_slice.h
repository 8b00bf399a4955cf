#ifndef PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_
#define PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/code_signing/byte_reader.h"
#include "platform/linux/code_signing/status.h"
#include "platform/linux/random_access_file.h"

namespace platform::code_signing {

/// One Mach-O image, of 32 or 64 bits, in either byte order: where its header says that signature
/// and Info.plist are (mach-o/loader.h of Apple's open xnu; macho++.cpp of its Security).
class MachOSlice {
 public:
  /// A range of bytes, relative to the slice's start.
  struct Range {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
  };

  /// Reads the header and the load commands of the image that starts at `start` of a file.
  /// @param size the image's size, if known, else 0; only then its segments are looked at here.
  /// @param slice is filled on success.
  /// @return kErrSecCSBadObjectFormat for an image that is malformed.
  static OsStatus Read(const RandomAccessFile& file, std::uint64_t start, std::uint64_t size,
                       MachOSlice& slice);

  std::uint32_t FileType() const { return fileType_; }

  /// Finds the first signature command.
  /// @param signature is reset when there is none.
  OsStatus FindSignature(std::optional<Range>& signature) const;

  /// The section with an embedded Info.plist; nothing when there is none, or it cannot be found
  /// because the commands are malformed.
  std::optional<Range> FindInfoPlist() const;

 private:
  struct Command {
    std::uint32_t type = 0;
    std::uint64_t offset = 0;  // in the load commands
    std::uint64_t size = 0;
  };

  enum class Step { kCommand, kEnd, kMalformed };

  Step First(Command& command) const;
  Step Next(Command& command) const;
  bool ReadAt(std::uint64_t offset, Command& command) const;
  OsStatus CheckSegments() const;
  bool HasName(std::uint64_t offset, const char* name) const;
  std::optional<Range> FindInfoPlistIn(const Command& segment) const;

  ByteReader Commands() const { return {commands_, order_}; }

  ByteOrder order_ = ByteOrder::kLittle;
  bool is64Bit_ = false;
  std::uint32_t fileType_ = 0;
  std::string commands_;
};

/// The file type of the Mach-O image at the start of a file, or of the first image of a universal
/// file; 0 when there is none.
std::uint32_t MachOFileType(const RandomAccessFile& file);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_MACH_O_SLICE_H_
