#ifndef PLATFORM_LINUX_CODE_SIGNING_DISK_REPRESENTATION_H_
#define PLATFORM_LINUX_CODE_SIGNING_DISK_REPRESENTATION_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/bundle_root.h"
#include "platform/linux/code_signing/status.h"
#include "platform/linux/property_list.h"
#include "platform/linux/random_access_file.h"

namespace platform::code_signing {

class WorkBudget;

/// Number of a component in a signature (cs_blobs.h of Apple's open xnu). 1 to 11 are the special
/// slots that a CodeDirectory can seal.
using Slot = std::uint32_t;

enum : Slot {
  kSlotCodeDirectory = 0,
  kSlotInfoPlist = 1,
  kSlotRequirements = 2,
  kSlotResourceDirectory = 3,
  kSlotTopDirectory = 4,
  kSlotEntitlements = 5,
  kSlotRepSpecific = 6,
  kSlotDerEntitlements = 7,
  kSlotLaunchConstraintSelf = 8,
  kSlotLaunchConstraintParent = 9,
  kSlotLaunchConstraintResponsible = 10,
  kSlotLibraryConstraint = 11,
  kLastSpecialSlot = kSlotLibraryConstraint,
  kSlotAlternateCodeDirectories = 0x1000,
  kSlotAlternateCodeDirectoryLimit = 0x1005,  ///< one past the last
  kSlotCmsSignature = 0x10000,
};

/// Bytes of a file: the code of a slice up to its signature, or up to its end.
struct CodeRange {
  std::uint64_t start = 0;
  std::uint64_t length = 0;
};

/// One piece of code on disk: a Mach-O file, any other file, or a bundle around either. Finds the
/// signature's components and the signed bytes, without verifying anything.
///
/// A universal Mach-O file has several slices, each with its own signature; everything else has
/// one. Slice 0 represents the whole (on macOS, the host's native architecture); the others follow
/// in the order in which they are validated.
class DiskRepresentation {
 public:
  DiskRepresentation() = default;
  virtual ~DiskRepresentation() = default;
  DiskRepresentation(const DiskRepresentation&) = delete;
  DiskRepresentation& operator=(const DiskRepresentation&) = delete;

  /// At least 1.
  virtual std::size_t SliceCount() const = 0;

  /// Reads one component of the signature of a slice, as the CodeDirectory seals it: whole blobs
  /// for slots 0, 2, 5, 7 to 11 and the alternate CodeDirectories, contents without a wrapper for
  /// all others.
  /// @param bytes is reset when there is no such component, which is not a failure.
  virtual OsStatus ReadComponent(std::size_t slice, Slot slot,
                                 std::optional<std::string>& bytes) const = 0;

  /// The file with the signed code: the file itself, or a bundle's main executable. Opened once.
  virtual const RandomAccessFile& Code() const = 0;

  /// Finds what a slice's CodeDirectory must cover. Fails when the slice's header is malformed.
  virtual OsStatus FindCode(std::size_t slice, CodeRange& range) const = 0;

  /// Path of Code().
  virtual std::string MainExecutablePath() const = 0;

  /// The directory that CodeResources seals; nothing when the code is a single file.
  virtual std::optional<std::string> ResourceRoot() const { return std::nullopt; }

  /// The whole bundle; null when the code is a single file.
  virtual const BundleRoot* Root() const { return nullptr; }

  /// Whether users of the path open or run Code(), and whether it belongs to the bundle, if there
  /// is one. Otherwise the signature says nothing about the path.
  virtual bool IsWhatIsUsed() const { return true; }

  /// Checks the part of the bundle outside ResourceRoot(), where nothing is sealed.
  /// @param versions receives the paths of the other versions of a versioned bundle.
  /// @return kErrSecCSBadResource when there is anything other than versions and links within the
  ///     bundle.
  /// @throws BudgetExceeded
  virtual OsStatus ListUnsealed(WorkBudget&, std::vector<std::string>& versions) const {
    versions.clear();
    return kErrSecSuccess;
  }
};

using DiskRepresentationPtr = std::unique_ptr<DiskRepresentation>;

/// Opens the code at `path` as SecStaticCodeCreateWithPath() does: a bundle (also by the path of
/// its main executable), a Mach-O file, or any other file.
/// @param lists the budget for a bundle's Info.plist.
OsStatus OpenRepresentation(const std::string& path, PropertyListBudget& lists,
                            DiskRepresentationPtr& representation);

/// Where the signature of a file that is not Mach-O is kept.
enum class PlainFileSignature {
  kSidecar,  ///< the components in `<file>.codesignature`
  kNone,     ///< no component at all (main executables of bundles, whose bundle has them)
};

/// OpenRepresentation() for a file that does not stand for a bundle. Follows symbolic links.
OsStatus OpenFileRepresentation(const std::string& path, PlainFileSignature plainFileSignature,
                                DiskRepresentationPtr& representation);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_DISK_REPRESENTATION_H_
