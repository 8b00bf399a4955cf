#include "platform/linux/code_signing/plain_file.h"

#include <cerrno>
#include <utility>

namespace platform::code_signing {
namespace {

constexpr char kSidecarExtension[] = ".codesignature";

}  // namespace

PlainFile::PlainFile(std::string path, RandomAccessFile file, PlainFileSignature signature)
    : path_(std::move(path)), file_(std::move(file)) {
  if (signature == PlainFileSignature::kSidecar) signatureStatus_ = ReadSidecar();
}

OsStatus PlainFile::ReadSidecar() {
  RandomAccessFile sidecar;
  const int error = sidecar.Open(path_ + kSidecarExtension);
  // A name that is too long for the file system cannot exist.
  if (error == ENOENT || error == ENAMETOOLONG) return kErrSecSuccess;
  if (error != 0) return StatusFromErrno(error);
  return SuperBlob::Read(sidecar, 0, 0, signature_.emplace());
}

OsStatus PlainFile::ReadComponent(std::size_t /*slice*/, Slot slot,
                                  std::optional<std::string>& bytes) const {
  bytes.reset();
  if (signatureStatus_ != kErrSecSuccess) return signatureStatus_;
  return signature_ ? signature_->ReadComponent(slot, bytes) : kErrSecSuccess;
}

OsStatus PlainFile::FindCode(std::size_t /*slice*/, CodeRange& range) const {
  range.start = 0;
  const int error = file_.Size(range.length);
  return error == 0 ? kErrSecSuccess : StatusFromErrno(error);
}

}  // namespace platform::code_signing
