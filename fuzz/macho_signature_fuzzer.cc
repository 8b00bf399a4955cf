// The parsers of Mach-O files, SuperBlobs and CodeDirectories, and everything that follows from
// them. The input is a Mach-O file, or else the signature that lies beside a plain file.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/linux/code_signing/mach_o_file.h"
#include "platform/linux/code_signing/slice_signature.h"
#include "platform/linux/code_signing/super_blob.h"
#include "tests/code_signing/signature_builder.h"

namespace {

using namespace platform::code_signing;
using platform::OsStatus;
using platform::RandomAccessFile;

/// A plain file that is its own signature file.
class SignatureFile : public EmptyCode {
 public:
  explicit SignatureFile(RandomAccessFile file) : file_(std::move(file)) {
    status_ = SuperBlob::Read(file_, 0, 0, signature_);
  }

  OsStatus ReadComponent(std::size_t, Slot slot, std::optional<std::string>& bytes) const override {
    bytes.reset();
    return status_ == kErrSecSuccess ? signature_.ReadComponent(slot, bytes) : status_;
  }
  const RandomAccessFile& Code() const override { return file_; }

 private:
  RandomAccessFile file_;
  SuperBlob signature_;
  OsStatus status_;
};

/// Fills a file in memory with the input. @return a path by which it can be opened.
std::string MakeFile(const std::uint8_t* data, std::size_t size) {
  static const int descriptor = memfd_create("input", MFD_CLOEXEC);
  if (ftruncate(descriptor, 0) != 0 ||
      pwrite(descriptor, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  return "/proc/self/fd/" + std::to_string(descriptor);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = MakeFile(data, size);
  CheckContext context;
  RandomAccessFile file;
  if (file.Open(path) != 0) return 0;
  DiskRepresentationPtr code;
  if (!MachOFile::IsCandidate(file)) {
    code = std::make_unique<SignatureFile>(std::move(file));
  } else if (MachOFile::Open(path, std::move(file), code) != kErrSecSuccess) {
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
