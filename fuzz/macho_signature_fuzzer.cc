// The parsers of Mach-O files, SuperBlobs and CodeDirectories, and everything that follows from
// them: the input is a Mach-O file, or else the signature that lies beside a plain file.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "fuzz/memory_file.h"
#include "platform/linux/code_signing/mach_o_file.h"
#include "platform/linux/code_signing/slice_signature.h"
#include "platform/linux/code_signing/super_blob.h"

namespace {

using namespace platform::code_signing;
using platform::OsStatus;
using platform::RandomAccessFile;

/// A plain file that is its own signature file.
class SignatureFile : public DiskRepresentation {
 public:
  explicit SignatureFile(RandomAccessFile file) : file_(std::move(file)) {
    status_ = SuperBlob::Read(file_, 0, 0, signature_);
  }

  std::size_t SliceCount() const override { return 1; }
  OsStatus ReadComponent(std::size_t, Slot slot, std::optional<std::string>& bytes) const override {
    bytes.reset();
    return status_ == kErrSecSuccess ? signature_.ReadComponent(slot, bytes) : status_;
  }
  const RandomAccessFile& Code() const override { return file_; }
  OsStatus FindSliceStart(std::size_t, std::uint64_t& offset) const override {
    offset = 0;
    return kErrSecSuccess;
  }
  std::string MainExecutablePath() const override { return {}; }

 private:
  RandomAccessFile file_;
  SuperBlob signature_;
  OsStatus status_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::MemoryFile input;
  CheckContext context;
  input.Fill(data, size);
  RandomAccessFile file;
  if (file.Open(input.Path()) != 0) return 0;
  DiskRepresentationPtr code;
  if (!MachOFile::IsCandidate(file)) {
    code = std::make_unique<SignatureFile>(std::move(file));
  } else if (MachOFile::Open(input.Path(), std::move(file), code) != kErrSecSuccess) {
    return 0;
  }
  for (std::size_t i = 0; i < code->SliceCount(); ++i) {
    SliceSignature slice(*code, i, context);
    try {
      static_cast<void>(slice.Validate({}));
    } catch (const BudgetExceeded&) {
      return 0;
    }
    static_cast<void>(slice.HasCms());
    if (slice.Directories() != nullptr) {
      static_cast<void>(slice.Directories()->Best().TeamIdentifier());
    }
  }
  return 0;
}
