#include "platform/linux/code_signing/bundle_representation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/files.h"
#include "platform/linux/bundle_layout.h"
#include "platform/linux/code_signing/check_context.h"

namespace platform::code_signing {
namespace {

/// Names of the component files in _CodeSignature (codedirectory.cpp of Apple's open Security
/// project).
struct ComponentFile {
  Slot slot;
  const char* name;
};

constexpr ComponentFile kComponentFiles[] = {
    {kSlotCodeDirectory, "CodeDirectory"},
    {kSlotRequirements, "CodeRequirements"},
    {kSlotResourceDirectory, "CodeResources"},
    {kSlotTopDirectory, "CodeTopDirectory"},
    {kSlotEntitlements, "CodeEntitlements"},
    {kSlotRepSpecific, "CodeRepSpecific"},
    {kSlotDerEntitlements, "CodeEntitlementDER"},
    {kSlotLaunchConstraintSelf, "LaunchConstraintSelf"},
    {kSlotLaunchConstraintParent, "LaunchConstraintParent"},
    {kSlotLaunchConstraintResponsible, "LaunchConstraintResponsible"},
    {kSlotLibraryConstraint, "LibraryConstraint"},
    {kSlotAlternateCodeDirectories + 0, "CodeRequirements-1"},
    {kSlotAlternateCodeDirectories + 1, "CodeRequirements-2"},
    {kSlotAlternateCodeDirectories + 2, "CodeRequirements-3"},
    {kSlotAlternateCodeDirectories + 3, "CodeRequirements-4"},
    {kSlotAlternateCodeDirectories + 4, "CodeRequirements-5"},
    {kSlotCmsSignature, "CodeSignature"},
};

constexpr char kVersions[] = "Versions";
constexpr char kCurrentVersion[] = "Current";
constexpr std::size_t kMaxVersions = 64;

bool IsDirectory(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

class BundleRepresentation : public DiskRepresentation {
 public:
  /// @param resources the resource root. Paths in `layout` that are below it begin with the path of
  ///     the open directory.
  /// @param relativeRoot its path in `root`.
  BundleRepresentation(BundleRoot root, BundleRoot resources, std::string relativeRoot,
                       BundleLayout layout, DiskRepresentationPtr executable, bool isWhatIsUsed)
      : root_(std::move(root)),
        resources_(std::move(resources)),
        relativeRoot_(std::move(relativeRoot)),
        layout_(std::move(layout)),
        executable_(std::move(executable)),
        isWhatIsUsed_(isWhatIsUsed) {}

  std::size_t SliceCount() const override { return executable_->SliceCount(); }

  OsStatus ReadComponent(std::size_t slice, Slot slot,
                         std::optional<std::string>& bytes) const override {
    bytes.reset();
    if (slot == kSlotInfoPlist) return ReadInformation(bytes);
    if (slot == kSlotResourceDirectory) {
      ReadComponentFile(slot, bytes);
      return kErrSecSuccess;
    }
    if (const OsStatus status = executable_->ReadComponent(slice, slot, bytes);
        status != kErrSecSuccess) {
      return status;
    }
    const bool fromExecutable = bytes.has_value();
    if (!fromExecutable) ReadComponentFile(slot, bytes);
    if (!bytes || slot == kSlotCodeDirectory) return kErrSecSuccess;
    return CheckSource(slice, fromExecutable);
  }

  const RandomAccessFile& Code() const override { return executable_->Code(); }

  OsStatus FindCode(std::size_t slice, CodeRange& range) const override {
    return executable_->FindCode(slice, range);
  }

  std::string MainExecutablePath() const override { return executable_->MainExecutablePath(); }
  std::optional<std::string> ResourceRoot() const override { return layout_.resourceRoot; }
  const BundleRoot* Root() const override { return &root_; }
  bool IsWhatIsUsed() const override { return isWhatIsUsed_; }

  OsStatus ListUnsealed(WorkBudget& budget, std::vector<std::string>& versions) const override {
    versions.clear();
    std::string level = root_.Path();
    OsStatus status = kErrSecSuccess;
    for (std::size_t begin = 0; begin < relativeRoot_.size() && status == kErrSecSuccess;) {
      const std::size_t end = std::min(relativeRoot_.find('/', begin), relativeRoot_.size());
      const std::string next = relativeRoot_.substr(begin, end - begin);
      status = CheckLevel(level, next, budget, versions);
      level = JoinPath(level, next);
      begin = end + 1;
    }
    return status;
  }

 private:
  enum class Source { kExecutable, kFile, kNowhere };

  /// Checks the entries of a directory above the resource root. `next` is the one that leads there.
  static OsStatus CheckLevel(const std::string& directory, const std::string& next,
                             WorkBudget& budget, std::vector<std::string>& versions) {
    struct stat sealed {};
    if (stat(JoinPath(directory, next).c_str(), &sealed) != 0) return StatusFromErrno(errno);
    OsStatus result = kErrSecSuccess;
    const int error =
        VisitDirectory(AT_FDCWD, JoinPath(directory, "."), [&](const std::string& name) {
          if (result != kErrSecSuccess) return;
          budget.ChargeForEntry(name.size());
          result = CheckUnsealed(JoinPath(directory, name), name, next, sealed, versions);
        });
    return error == 0 ? result : StatusFromErrno(error);
  }

  /// Checks one of these entries. `sealed` describes the one that `next` names.
  static OsStatus CheckUnsealed(const std::string& path, const std::string& name,
                                const std::string& next, const struct stat& sealed,
                                std::vector<std::string>& versions) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return StatusFromErrno(errno);
    if (S_ISLNK(status.st_mode) && IsUsualLink(path, name, next)) return kErrSecSuccess;
    if (!S_ISDIR(status.st_mode)) return kErrSecCSBadResource;
    if (HasSameIdentity(status, sealed)) return kErrSecSuccess;
    if (next != kCurrentVersion || versions.size() == kMaxVersions) return kErrSecCSBadResource;
    versions.push_back(path);
    return kErrSecSuccess;
  }

  /// Whether a link is one that versioned bundles have: to the current version, or to a part of it.
  /// Others could lead to unsealed files.
  static bool IsUsualLink(const std::string& path, const std::string& name,
                          const std::string& next) {
    char text[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), text, sizeof text);
    if (length <= 0) return false;
    const std::string_view target(text, static_cast<std::size_t>(length));
    if (next == kCurrentVersion) return name == next && target.find('/') == target.npos;
    return next == kVersions && target == "Versions/Current/" + name;
  }

  /// @return 0, EXDEV for a file outside the bundle, or the `errno` of another failure.
  int ReadBundleFile(const std::string& path, std::string& bytes) const {
    RandomAccessFile file;
    if (const int error = file.Open(path); error != 0) return error;
    return root_.Contains(file.Number()) ? file.ReadAll(bytes, kMaxPropertyListSize) : EXDEV;
  }

  OsStatus ReadInformation(std::optional<std::string>& bytes) const {
    if (!layout_.informationPath) return kErrSecSuccess;
    const int error = ReadBundleFile(*layout_.informationPath, bytes.emplace());
    if (error != 0 && error != EXDEV) return StatusFromErrno(error);
    // The executable was chosen by what the file contained at first.
    const bool isSame = error == 0 && *bytes == layout_.informationBytes;
    return isSame ? kErrSecSuccess : kErrSecCSInfoPlistFailed;
  }

  /// A file that cannot be read, or lies outside the bundle, counts as absent.
  void ReadComponentFile(Slot slot, std::optional<std::string>& bytes) const {
    for (const ComponentFile& file : kComponentFiles) {
      if (file.slot != slot) continue;
      const std::string path = layout_.resourceRoot + "/_CodeSignature/" + file.name;
      if (ReadBundleFile(path, bytes.emplace()) != 0) bytes.reset();
    }
  }

  /// Requires that all components come from the same place as the CodeDirectory.
  OsStatus CheckSource(std::size_t slice, bool fromExecutable) const {
    auto found = directories_.find(slice);
    if (found == directories_.end()) {
      std::optional<std::string> directory;
      if (const OsStatus status = executable_->ReadComponent(slice, kSlotCodeDirectory, directory);
          status != kErrSecSuccess) {
        return status;
      }
      found = directories_.emplace(slice, Source::kExecutable).first;
      if (!directory) {
        ReadComponentFile(kSlotCodeDirectory, directory);
        found->second = directory ? Source::kFile : Source::kNowhere;
      }
    }
    const Source source = fromExecutable ? Source::kExecutable : Source::kFile;
    const bool isSame = found->second == Source::kNowhere || found->second == source;
    return isSame ? kErrSecSuccess : kErrSecCSSignatureFailed;
  }

  const BundleRoot root_;
  const BundleRoot resources_;
  const std::string relativeRoot_;
  const BundleLayout layout_;
  const DiskRepresentationPtr executable_;
  const bool isWhatIsUsed_;
  /// Where the CodeDirectory of each slice is, as far as it has been looked for.
  mutable std::map<std::size_t, Source> directories_;
};

/// @return whether both paths of a part, in the bundle and in its version, can be resolved.
bool AreResolvable(const std::optional<std::string>& before,
                   const std::optional<std::string>& after) {
  return !before || !after ||
         (CheckAccess(*before, AccessTest::kExists) == 0 &&
          CheckAccess(*after, AccessTest::kExists) == 0);
}

/// Returns the current version of a versioned bundle, or the bundle itself.
std::string ChosenVersion(const std::string& directory) {
  for (const char* const unversioned : {"Contents", "Support Files"}) {
    if (CheckAccess(JoinPath(directory, unversioned), AccessTest::kExists) == 0) return directory;
  }
  const std::string version = JoinPath(JoinPath(directory, kVersions), kCurrentVersion);
  return CheckAccess(version + "/.", AccessTest::kExists) == 0 ? version : directory;
}

/// Looks for the only file whose name ends in ".dist" (old installer packages).
OsStatus FindDistributionFile(const std::string& directory, std::optional<std::string>& found) {
  constexpr std::string_view kSuffix = ".dist";
  DirectoryReader reader;
  if (reader.Open(directory) != 0) return kErrSecSuccess;
  while (const char* const entry = reader.Next()) {
    const std::string_view name = entry;
    if (name.size() < kSuffix.size() || name.substr(name.size() - kSuffix.size()) != kSuffix) {
      continue;
    }
    const std::string path = JoinPath(directory, std::string(name));
    if (DirectoryExists(path)) continue;
    if (found) return kErrSecCSBadBundleFormat;
    found = path;
  }
  return kErrSecSuccess;
}

/// Finds the file that represents the code of a bundle without an executable.
OsStatus FindStandIn(const BundleLayout& layout, std::string& path) {
  if (const PropertyListValue* const page = layout.information.Find("MainHTML")) {
    if (page->kind != PropertyListValue::Kind::kString) return kErrSecCSBadBundleFormat;
    path = JoinPath(layout.resourceRoot, page->text);
    return kErrSecSuccess;
  }
  if (layout.informationPath) {
    path = *layout.informationPath;
    return kErrSecSuccess;
  }
  std::optional<std::string> distribution;
  if (const OsStatus status = FindDistributionFile(layout.resourceRoot, distribution);
      status != kErrSecSuccess) {
    return status;
  }
  if (!distribution) return kErrSecCSBadBundleFormat;
  path = *distribution;
  return kErrSecSuccess;
}

}  // namespace

OsStatus OpenBundleRepresentation(const std::string& path, BundleName name,
                                  PropertyListBudget& lists,
                                  DiskRepresentationPtr& representation) {
  const std::string directory = JoinPath(path, "");
  BundleRoot root;
  if (const int error = root.Open(directory); error != 0) return StatusFromErrno(error);
  // Users of a bundle follow its own layout, which may differ from that of its version.
  BundleLayout layout = FindBundleLayout(directory, lists);
  const std::optional<std::string> ownExecutable = layout.executable;
  const std::optional<std::string> ownInformationPath = layout.informationPath;
  const std::string version = ChosenVersion(directory);
  if (version != directory) layout = FindBundleLayout(version, lists);
  if (lists.IsExceeded()) return kErrSecCSInternalError;

  std::string code;
  if (layout.executable && layout.information.Find("MainHTML") == nullptr) {
    if (!AreResolvable(ownExecutable, layout.executable) ||
        !AreResolvable(ownInformationPath, layout.informationPath)) {
      return kErrSecCSAmbiguousBundleFormat;
    }
    code = *layout.executable;
  } else if (const OsStatus status = FindStandIn(layout, code); status != kErrSecSuccess) {
    return status;
  }
  layout.information = {};  // saves memory

  // From here on, replacing a directory above the sealed ones has no effect.
  BundleRoot resources;
  if (const int error = resources.Open(layout.resourceRoot); error != 0) {
    return StatusFromErrno(error);
  }
  const auto relative = [&](const std::string& inside) {
    return inside.substr(std::min(directory.size() + 1, inside.size()));
  };
  std::string relativeRoot = relative(layout.resourceRoot);
  const std::string before = std::exchange(layout.resourceRoot, resources.Path());
  const auto rebase = [&](std::string& inside) {
    if (inside.compare(0, before.size() + 1, before + "/") == 0) {
      inside.replace(0, before.size(), layout.resourceRoot);
    }
  };
  rebase(code);
  if (layout.informationPath) rebase(*layout.informationPath);

  DiskRepresentationPtr executable;
  if (const OsStatus status = OpenFileRepresentation(code, PlainFileSignature::kNone, executable);
      status != kErrSecSuccess) {
    return status;
  }
  // Links could lead the executable to unsealed files instead of the sealed ones beside it, and
  // lead users of the bundle to another executable.
  const auto isInPlace = [&](const std::string& used, int file) {
    const std::optional<std::string> location = resources.Locate(file);
    return location && used == JoinPath(resources.Path(), *location) && !IsNeverSealed(*location);
  };
  const auto isSame = [](const std::string& used, int file) {
    struct stat found {};
    struct stat opened {};
    return stat(used.c_str(), &found) == 0 && fstat(file, &opened) == 0 &&
           HasSameIdentity(found, opened);
  };
  const int file = executable->Code().Number();
  bool isWhatIsUsed = isInPlace(code, file) && (!ownExecutable || isSame(*ownExecutable, file)) &&
                      (name == BundleName::kExecutable || IsDirectory(directory));
  if (layout.informationPath) {
    const Descriptor information = OpenAt(AT_FDCWD, *layout.informationPath, O_PATH | O_CLOEXEC);
    isWhatIsUsed = isWhatIsUsed && information.IsOpen() &&
                   isInPlace(*layout.informationPath, information.Get());
  }
  representation = std::make_unique<BundleRepresentation>(
      std::move(root), std::move(resources), std::move(relativeRoot), std::move(layout),
      std::move(executable), isWhatIsUsed);
  return kErrSecSuccess;
}

std::optional<std::string> FindBundleOfExecutable(const std::string& path,
                                                  PropertyListBudget& lists) {
  std::error_code error;
  const std::string absolute = std::filesystem::absolute(path, error).lexically_normal().string();
  // The system follows a link before it applies a ".." that comes after it.
  if (error || !std::filesystem::equivalent(path, absolute, error)) return std::nullopt;
  std::string directory = ParentPath(absolute);
  if (LastPathComponent(directory) == "MacOS") {
    directory = ParentPath(directory);
    if (LastPathComponent(directory) == "Executables") directory = ParentPath(directory);
    directory = ParentPath(directory);
  }
  const BundleLayout layout = FindBundleLayout(directory, lists);
  if (layout.executable != absolute) return std::nullopt;
  if (layout.isFlat && layout.information.members.empty()) return std::nullopt;
  return directory;
}

}  // namespace platform::code_signing
