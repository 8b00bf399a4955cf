#ifndef PLATFORM_LINUX_CODE_SIGNING_PLAIN_FILE_H_
#define PLATFORM_LINUX_CODE_SIGNING_PLAIN_FILE_H_

#include <optional>
#include <string>

#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/super_blob.h"

namespace platform::code_signing {

/// A file that is not Mach-O. macOS keeps the components of its signature in extended attributes,
/// this host in a SuperBlob beside it, `<file>.codesignature`.
class PlainFile : public DiskRepresentation {
 public:
  PlainFile(std::string path, RandomAccessFile file, PlainFileSignature signature);

  std::size_t SliceCount() const override { return 1; }
  OsStatus ReadComponent(std::size_t slice, Slot slot,
                         std::optional<std::string>& bytes) const override;
  const RandomAccessFile& Code() const override { return file_; }
  OsStatus FindCode(std::size_t slice, CodeRange& range) const override;
  std::string MainExecutablePath() const override { return path_; }

 private:
  OsStatus ReadSidecar();

  const std::string path_;
  const RandomAccessFile file_;
  std::optional<SuperBlob> signature_;
  OsStatus signatureStatus_ = kErrSecSuccess;  ///< why the signature cannot be read
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_PLAIN_FILE_H_
