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

/// How one piece of code lies on disk: a Mach-O file, any other file, or a bundle around one of
/// both. It finds the signature's components and the signed bytes; it judges nothing.
///
/// A universal Mach-O file has several slices, each with a signature of its own; everything else
/// has one. Slice 0 is the one that stands for the whole (the host's native architecture on macOS),
/// the others follow in the order in which they are validated.
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
  /// @param bytes is reset when there is no such component, which is no failure.
  virtual OsStatus ReadComponent(std::size_t slice, Slot slot,
                                 std::optional<std::string>& bytes) const = 0;

  /// The file with the signed code: the file itself, or a bundle's main executable. Opened once.
  virtual const RandomAccessFile& Code() const = 0;

  /// Finds where a slice's code starts in Code(). Fails as the slice's own header is malformed.
  virtual OsStatus FindSliceStart(std::size_t slice, std::uint64_t& offset) const = 0;

  /// Whether a CodeDirectory's code limit must be the size of Code() (plain files of this host).
  virtual bool LimitIsFileSize() const { return false; }

  /// Path of Code().
  virtual std::string MainExecutablePath() const = 0;

  /// The directory whose contents are sealed by CodeResources; nothing when the code is a single
  /// file.
  virtual std::optional<std::string> ResourceRoot() const { return std::nullopt; }

  /// The whole bundle; null when the code is a single file.
  virtual const BundleRoot* Root() const { return nullptr; }

  /// Whether Code() is the file that is opened or run by whoever uses the path, and belongs to the
  /// bundle if there is one. A signature says nothing about the path otherwise.
  virtual bool IsWhatIsUsed() const { return true; }

  /// Looks at what lies in the bundle but outside ResourceRoot(), where nothing is sealed.
  /// @param versions receives the paths of the other versions of a versioned bundle.
  /// @return kErrSecCSBadResource when there is anything else but links within the bundle.
  virtual OsStatus ListUnsealed(std::vector<std::string>& versions) const {
    versions.clear();
    return kErrSecSuccess;
  }
};

using DiskRepresentationPtr = std::unique_ptr<DiskRepresentation>;

/// Finds out what lies at `path`, as SecStaticCodeCreateWithPath() does: bundles (of which the path
/// of the main executable is a name, too), Mach-O files, everything else.
/// @param lists is spent on a bundle's Info.plist.
OsStatus OpenRepresentation(const std::string& path, PropertyListBudget& lists,
                            DiskRepresentationPtr& representation);

/// What a file that is not Mach-O has for a signature.
enum class PlainFileSignature {
  kSidecar,  ///< the components in `<file>.codesignature`
  kNone,     ///< no component at all (main executables of bundles, whose bundle has them)
};

/// OpenRepresentation() for a path that is known to be a file and not to stand for a bundle.
/// Symbolic links are followed.
OsStatus OpenFileRepresentation(const std::string& path, PlainFileSignature plainFileSignature,
                                DiskRepresentationPtr& representation);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_DISK_REPRESENTATION_H_
