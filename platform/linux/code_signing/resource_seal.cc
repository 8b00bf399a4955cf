#include "platform/linux/code_signing/resource_seal.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <map>
#include <string_view>

#include "platform/files.h"
#include "platform/linux/code_signing/requirement.h"
#include "platform/linux/code_signing/resource_rules.h"
#include "platform/linux/property_list.h"

namespace platform::code_signing {
namespace {

using Kind = PropertyListValue::Kind;

/// Darwin's PATH_MAX. A bundle with longer paths was not made on a Mac.
constexpr std::size_t kMaxPathLength = 1024;

/// The cost of a link that leads through other links, as a number of bytes of paths.
constexpr std::uint64_t kIndirectLinkCost = 64U << 10U;

/// The entry of one path in CodeResources.
struct SealedItem {
  bool isOptional = false;
  const std::string* requirement = nullptr;   ///< of nested code
  const std::string* link = nullptr;          ///< text of a symbolic link
  const PropertyListValue* hashes = nullptr;  ///< of a file: one hash, or a dictionary of hashes
};

/// Reads a member, which must be a string if present.
bool ReadText(const PropertyListValue& item, const char* key, const std::string*& text) {
  const PropertyListValue* const value = item.Find(key);
  if (value == nullptr) return true;
  text = &value->text;
  return value->kind == Kind::kString;
}

OsStatus ReadSealedItem(const PropertyListValue& value, SealedItem& item) {
  item.hashes = &value;
  if (value.kind == Kind::kData) return kErrSecSuccess;
  if (value.kind != Kind::kDictionary) return kErrSecCSResourcesInvalid;
  if (const PropertyListValue* const flag = value.Find("optional")) {
    if (flag->kind != Kind::kBoolean) return kErrSecCSResourcesInvalid;
    item.isOptional = flag->boolean;
  }
  if (!ReadText(value, "requirement", item.requirement)) return kErrSecCSResourcesInvalid;
  if (item.requirement == nullptr && !ReadText(value, "symlink", item.link)) {
    return kErrSecCSResourcesInvalid;
  }
  return kErrSecSuccess;
}

/// @return the sealed hash of a type, or null.
const std::string* FindHash(const PropertyListValue& hashes, HashType type) {
  if (hashes.kind == Kind::kData) return &hashes.text;
  const PropertyListValue* value = nullptr;
  if (type != HashType::kSha1) {
    value = hashes.Find("hash" + std::to_string(static_cast<int>(type)));
  }
  if (value == nullptr) value = hashes.Find("hash");
  return value != nullptr && value->kind == Kind::kData ? &value->text : nullptr;
}

/// Whether a sealed hash, which may be longer, begins with `digest`.
bool IsSealedHash(const std::string& sealed, const std::string& digest) {
  return sealed.compare(0, digest.size(), digest) == 0;
}

/// Whether a link with this text in `directory` (relative to a root) stays below the root, assuming
/// that every component of the two paths is a directory.
bool StaysBelow(const std::string& directory, const std::string& text) {
  const std::filesystem::path path = (std::filesystem::path(directory) / text).lexically_normal();
  return path.is_relative() && path.begin() != path.end() && *path.begin() != "..";
}

/// Walks a resource root and checks every entry.
class ResourceCheck {
 public:
  ResourceCheck(const ResourceSeal& seal, const PropertyListValue& files, int version,
                CheckContext& context)
      : seal_(seal), version_(version), context_(context) {
    for (const PropertyListValue::Member& member : files.members) {
      sealed_.emplace(member.first, Sealed{&member.second});
    }
  }

  OsStatus Run(const std::string& root, const PropertyListValue& rules) {
    const Descriptor directory = OpenAt(AT_FDCWD, root, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!directory.IsOpen()) return StatusFromErrno(errno);
    if (!seal_.code.Root()->Contains(directory.Get())) return kErrSecCSBadResource;
    if (const OsStatus status = rules_.Load(rules, context_.patterns); status != kErrSecSuccess) {
      return status;
    }
    root_ = root;
    FindMainExecutable();
    if (const OsStatus status = Walk(directory, ""); status != kErrSecSuccess) return status;
    if (const OsStatus status = CheckUnseen(); status != kErrSecSuccess) return status;
    return collected_;
  }

 private:
  struct Sealed {
    const PropertyListValue* value;
    bool isSeen = false;
  };

  /// One entry of a directory that is being walked.
  struct Entry {
    const Descriptor& directory;
    const std::string& name;  ///< in the directory
    std::string path;         ///< relative to the root
    bool isLink;
  };

  void FindMainExecutable() {
    const std::string executable = seal_.code.MainExecutablePath();
    const std::string prefix = root_ + "/";
    if (executable.compare(0, prefix.size(), prefix) == 0) {
      mainExecutable_ = executable.substr(prefix.size());
    }
  }

  /// Whether a path is never part of a seal, whatever the rules say.
  bool IsExcluded(const std::string& path) const {
    return IsNeverSealed(path) || path == mainExecutable_;
  }

  /// Whether anything below the path is sealed.
  bool IsSealedBelow(const std::string& path) const {
    const std::string inside = path + "/";
    const auto next = sealed_.lower_bound(inside);
    return next != sealed_.end() && next->first.substr(0, inside.size()) == inside;
  }

  /// Records a problem that does not end the check. The first one is the result.
  OsStatus Collect(OsStatus problem) {
    if (collected_ == kErrSecSuccess) collected_ = problem;
    return kErrSecSuccess;
  }

  /// Visits everything below a directory.
  OsStatus Walk(const Descriptor& directory, const std::string& path) {
    std::vector<std::string> names;
    const int error = VisitDirectory(directory.Get(), ".", [&](const std::string& name) {
      context_.budget.ChargeForEntry(path.size() + name.size());
      names.push_back(name);
    });
    if (error != 0) return StatusFromErrno(error);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      if (const OsStatus status = Visit(directory, name, JoinPath(path, name));
          status != kErrSecSuccess) {
        return status;
      }
    }
    return kErrSecSuccess;
  }

  OsStatus Visit(const Descriptor& directory, const std::string& name, const std::string& path) {
    if (path.size() > kMaxPathLength) return kErrSecCSBadResource;
    struct stat status {};
    if (fstatat(directory.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return StatusFromErrno(errno);
    }
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && strcasecmp(name.c_str(), ".DS_Store") == 0) return kErrSecCSDSStoreSymlink;
    if (S_ISREG(status.st_mode) && status.st_nlink > 1) context_.budget.ChargeForName(status);
    if (IsExcluded(path)) return kErrSecSuccess;
    // Whatever the rules say, no link may stand for a directory of sealed files.
    if (isLink && IsSealedBelow(path)) return Collect(kErrSecCSBadResource);
    const ResourceRule* rule = nullptr;
    if (const OsStatus found = rules_.Find(path, rule); found != kErrSecSuccess) return found;
    if (S_ISDIR(status.st_mode)) {
      const bool isCode = rule != nullptr && rule->isNestedCode && name.find('.') != name.npos;
      if (isCode) return CheckEntry({directory, name, path, isLink});
      if (sealed_.count(path) != 0) return Collect(kErrSecCSBadResource);
      const Descriptor inner =
          OpenAt(directory.Get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      return inner.IsOpen() ? Walk(inner, path) : StatusFromErrno(errno);
    }
    if (rule == nullptr || rule->isOmitted) return kErrSecSuccess;
    if (!S_ISREG(status.st_mode) && !isLink) return Collect(kErrSecCSBadResource);
    return CheckEntry({directory, name, path, isLink});
  }

  OsStatus CheckEntry(const Entry& entry) {
    const auto found = sealed_.find(entry.path);
    if (found == sealed_.end()) {
      // Version 1 does not seal links.
      return version_ == 1 && entry.isLink ? kErrSecSuccess : Collect(kErrSecCSBadResource);
    }
    found->second.isSeen = true;
    SealedItem item;
    if (const OsStatus status = ReadSealedItem(*found->second.value, item);
        status != kErrSecSuccess) {
      return status;
    }
    if (item.requirement != nullptr) {
      return entry.isLink ? Collect(kErrSecCSBadResource)
                          : CheckNestedCode(entry, *item.requirement);
    }
    if (item.link != nullptr) {
      return entry.isLink ? CheckLink(entry, *item.link) : Collect(kErrSecCSBadResource);
    }
    return CheckFile(entry, item);
  }

  OsStatus CheckNestedCode(const Entry& entry, const std::string& text) {
    const std::optional<Requirement> requirement = ParseRequirement(text);
    if (!requirement) return kErrSecCSResourcesInvalid;
    const Requirement charged = [&](const RequirementSubject& subject) {
      context_.budget.ChargeForRequirement(text.size());
      return (*requirement)(subject);
    };
    const OsStatus status =
        seal_.checkNestedCode(JoinPath(PathOf(entry.directory), entry.name), charged);
    return status == kErrSecCSReqFailed ? Collect(kErrSecCSBadNestedCode) : status;
  }

  OsStatus CheckLink(const Entry& entry, const std::string& text) {
    char target[PATH_MAX];
    const ssize_t length =
        readlinkat(entry.directory.Get(), entry.name.c_str(), target, sizeof target);
    if (length < 0) return StatusFromErrno(errno);
    if (std::string_view(target, static_cast<std::size_t>(length)) != text) {
      return Collect(kErrSecCSBadResource);
    }
    Descriptor leadsTo = OpenRestricted(entry.directory.Get(), text, RESOLVE_NO_SYMLINKS);
    if (!leadsTo.IsOpen() && errno != ENOENT) {
      // The system may have to follow many other links.
      context_.budget.ChargeForEntry(kIndirectLinkCost);
      leadsTo = OpenAt(entry.directory.Get(), entry.name, O_PATH | O_CLOEXEC);
    }
    // A dangling link may have a target by the time it is followed.
    if (!leadsTo.IsOpen() && errno != ENOENT) return StatusFromErrno(errno);
    const bool stays = leadsTo.IsOpen() ? seal_.code.Root()->Contains(leadsTo.Get())
                                        : StaysBelow(ParentPath(entry.path), text);
    return stays ? kErrSecSuccess : Collect(kErrSecCSBadResource);
  }

  OsStatus CheckFile(const Entry& entry, const SealedItem& item) {
    std::vector<std::string> sealed;
    for (const HashType type : seal_.hashTypes) {
      const std::string* const hash = FindHash(*item.hashes, type);
      if (hash == nullptr) return kErrSecCSResourcesInvalid;
      sealed.push_back(*hash);
    }
    if (entry.isLink) return Collect(kErrSecCSBadResource);
    const RandomAccessFile file(
        OpenAt(entry.directory.Get(), entry.name, RandomAccessFile::kOpenFlags | O_NOFOLLOW));
    if (file.Number() < 0) return StatusFromErrno(errno);
    std::vector<std::string> digests;
    if (const OsStatus status = HashFile(file, digests); status != kErrSecSuccess) return status;
    for (std::size_t i = 0; i < digests.size(); ++i) {
      if (!IsSealedHash(sealed[i], digests[i])) return Collect(kErrSecCSBadResource);
    }
    return kErrSecSuccess;
  }

  /// Computes the file's digests of all hash types in one pass.
  OsStatus HashFile(const RandomAccessFile& file, std::vector<std::string>& digests) const {
    std::vector<Digest> hashers;
    for (const HashType type : seal_.hashTypes) hashers.emplace_back(type);
    std::vector<char> chunk(std::size_t{64} << 10);
    std::uint64_t size = 0;
    if (const int error = file.Size(size); error != 0) return StatusFromErrno(error);
    for (std::size_t i = 0; i < hashers.size(); ++i) context_.budget.ChargeForHashing(size);
    std::uint64_t offset = 0;
    std::size_t count = 0;
    do {
      if (const int error = file.ReadAt(offset, chunk.data(), chunk.size(), count); error != 0) {
        return StatusFromErrno(error);
      }
      for (Digest& hasher : hashers) hasher.Update(std::string_view(chunk.data(), count));
      offset += count;
    } while (count == chunk.size() && offset <= size);  // it may grow
    for (Digest& hasher : hashers) digests.push_back(hasher.Finish());
    return kErrSecSuccess;
  }

  /// Reports sealed paths that the walk did not find.
  OsStatus CheckUnseen() {
    for (const auto& [path, sealed] : sealed_) {
      if (sealed.isSeen) continue;
      SealedItem item;
      if (const OsStatus status = ReadSealedItem(*sealed.value, item); status != kErrSecSuccess) {
        return status;
      }
      if (!item.isOptional) static_cast<void>(Collect(kErrSecCSBadResource));
    }
    return kErrSecSuccess;
  }

  const ResourceSeal& seal_;
  const int version_;
  CheckContext& context_;
  std::map<std::string_view, Sealed> sealed_;
  ResourceRules rules_;
  std::string root_;
  std::string mainExecutable_;  ///< relative to the root; empty when it lies elsewhere
  OsStatus collected_ = kErrSecSuccess;
};

/// @return the member `key` when it is a dictionary, else null.
const PropertyListValue* FindDictionary(const PropertyListValue& list, const char* key) {
  const PropertyListValue* const value = list.Find(key);
  return value != nullptr && value->kind == Kind::kDictionary ? value : nullptr;
}

}  // namespace

OsStatus CheckResources(ResourceSeal seal, CheckContext& context) {
  const std::optional<std::string> root = seal.code.ResourceRoot();
  const std::optional<PropertyListValue> list =
      ParsePropertyList(seal.codeResources, context.lists);
  seal.codeResources = std::string();  // saves memory while nested code is checked
  if (context.lists.IsExceeded()) return kErrSecCSInternalError;
  if (!list) return kErrSecCSBadDictionaryFormat;
  if (list->kind != Kind::kDictionary) return kErrSecCoreFoundationUnknown;
  const PropertyListValue* rules = FindDictionary(*list, "rules");
  const PropertyListValue* files = FindDictionary(*list, "files");
  if (rules == nullptr || files == nullptr || !root) return kErrSecCSResourcesNotFound;
  int version = 1;
  if (list->Find("files2") != nullptr) {
    version = 2;
    rules = FindDictionary(*list, "rules2");
    files = FindDictionary(*list, "files2");
    if (rules == nullptr || files == nullptr) return kErrSecCSResourcesInvalid;
  }
  return ResourceCheck(seal, *files, version, context).Run(*root, *rules);
}

}  // namespace platform::code_signing
