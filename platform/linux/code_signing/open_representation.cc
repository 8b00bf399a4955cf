#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "platform/linux/code_signing/bundle_representation.h"
#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/mach_o_file.h"
#include "platform/linux/code_signing/plain_file.h"

namespace platform::code_signing {
namespace {

OsStatus StatusOfMissing(int error) {
  return error == ENOENT ? kErrSecCSStaticCodeNotFound : StatusFromErrno(error);
}

}  // namespace

OsStatus OpenRepresentation(const std::string& path, PropertyListBudget& lists,
                            DiskRepresentationPtr& representation) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return StatusOfMissing(errno);
  if (S_ISDIR(status.st_mode)) {
    return OpenBundleRepresentation(path, BundleName::kDirectory, lists, representation);
  }
  if (const auto bundle = FindBundleOfExecutable(path, lists)) {
    return OpenBundleRepresentation(*bundle, BundleName::kExecutable, lists, representation);
  }
  return OpenFileRepresentation(path, PlainFileSignature::kSidecar, representation);
}

OsStatus OpenFileRepresentation(const std::string& path, PlainFileSignature plainFileSignature,
                                DiskRepresentationPtr& representation) {
  RandomAccessFile file;
  if (const int error = file.Open(path); error != 0) return StatusOfMissing(error);
  // Directories and pipes can be opened but not read at an offset.
  char first = 0;
  std::size_t count = 0;
  if (const int error = file.ReadAt(0, &first, 1, count); error != 0) return StatusFromErrno(error);
  if (MachOFile::IsCandidate(file)) return MachOFile::Open(path, std::move(file), representation);
  representation = std::make_unique<PlainFile>(path, std::move(file), plainFileSignature);
  return kErrSecSuccess;
}

}  // namespace platform::code_signing
