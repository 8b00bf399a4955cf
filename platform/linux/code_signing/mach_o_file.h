#ifndef PLATFORM_LINUX_CODE_SIGNING_MACH_O_FILE_H_
#define PLATFORM_LINUX_CODE_SIGNING_MACH_O_FILE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/mach_o_slice.h"
#include "platform/linux/code_signing/super_blob.h"

namespace platform::code_signing {

/// A Mach-O file, thin or universal (mach-o/fat.h of Apple's xnu; machorep.cpp and macho++.cpp
/// of Apple's Security). Treats arm64 as the native architecture. Not thread-safe.
class MachOFile : public DiskRepresentation {
 public:
  /// Whether a file is executable Mach-O code: a program, a library, a bundle or the like.
  static bool IsCandidate(const RandomAccessFile& file);

  /// Reads the table of slices. Slices are read on demand.
  static OsStatus Open(std::string path, RandomAccessFile file,
                       DiskRepresentationPtr& representation);

  std::size_t SliceCount() const override { return slices_.size(); }
  OsStatus ReadComponent(std::size_t slice, Slot slot,
                         std::optional<std::string>& bytes) const override;
  const RandomAccessFile& Code() const override { return file_; }
  OsStatus FindCode(std::size_t slice, CodeRange& range) const override;
  std::string MainExecutablePath() const override { return path_; }

 private:
  struct SliceEntry {
    std::int32_t cpuType = 0;
    std::int32_t cpuSubtype = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
  };

  // The most recently used slice. Only one is kept, so that many slices with large signatures do
  // not fill the memory.
  struct LoadedSlice {
    std::size_t index = 0;
    OsStatus status = kErrSecSuccess;  // of the load commands and the signature
    std::optional<std::uint64_t> signatureOffset;
    std::optional<SuperBlob> signature;
    std::uint64_t end = 0;  // of what was read, from the start of the slice
    std::optional<MachOSlice::Range> infoPlist;
  };

  MachOFile(std::string path, RandomAccessFile file);

  OsStatus ReadTable();
  OsStatus ReadEntries(std::uint64_t count);
  void OrderSlices();
  const LoadedSlice& Load(std::size_t slice) const;
  OsStatus Fill(LoadedSlice& loaded) const;

  const std::string path_;
  const RandomAccessFile file_;
  bool isUniversal_ = false;
  bool overlap_ = false;  // whether bytes belong to two slices
  std::vector<SliceEntry> slices_;
  mutable std::optional<LoadedSlice> loaded_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_MACH_O_FILE_H_
