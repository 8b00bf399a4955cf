#include "platform/linux/code_signing/resource_seal.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/files.h"
#include "platform/linux/code_signing/requirement.h"
#include "platform/linux/code_signing/resource_rules.h"
#include "platform/linux/property_list.h"

namespace platform::code_signing {
namespace {

using Kind = PropertyListValue::Kind;

/// What CodeResources says about one path.
struct SealedItem {
  bool isOptional = false;
  const std::string* requirement = nullptr;   ///< of nested code
  const std::string* link = nullptr;          ///< text of a symbolic link
  const PropertyListValue* hashes = nullptr;  ///< of a file: one hash, or a dictionary of hashes
};

/// Reads a member that must be a string where there is one.
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

/// @return the hash that is sealed for a type; null when there is none.
const std::string* FindHash(const PropertyListValue& hashes, HashType type) {
  if (hashes.kind == Kind::kData) return &hashes.text;
  const PropertyListValue* value = nullptr;
  if (type != HashType::kSha1) {
    value = hashes.Find("hash" + std::to_string(static_cast<int>(type)));
  }
  if (value == nullptr) value = hashes.Find("hash");
  return value != nullptr && value->kind == Kind::kData ? &value->text : nullptr;
}

/// Whether a sealed hash, of which more may be stored than is compared, begins with `digest`.
bool IsSealedHash(const std::string& sealed, const std::string& digest) {
  return sealed.compare(0, digest.size(), digest) == 0;
}

/// Walks below a resource root and checks what it finds.
class ResourceCheck {
 public:
  ResourceCheck(const ResourceSeal& seal, const PropertyListValue& files, int version)
      : seal_(seal), version_(version) {
    for (const PropertyListValue::Member& member : files.members) {
      unseen_.emplace(member.first, &member.second);
    }
    sealed_ = unseen_;
  }

  OsStatus Run(const std::string& root, const PropertyListValue& rules) {
    const std::unique_ptr<char, decltype(&std::free)> realRoot(realpath(root.c_str(), nullptr),
                                                               &std::free);
    if (realRoot == nullptr) return StatusFromErrno(errno);
    root_ = realRoot.get();
    if (const OsStatus status = rules_.Load(rules); status != kErrSecSuccess) return status;
    FindMainExecutable(root);
    if (const OsStatus status = Walk(); status != kErrSecSuccess) return status;
    if (const OsStatus status = CheckUnseen(); status != kErrSecSuccess) return status;
    return collected_;
  }

 private:
  using Items = std::map<std::string_view, const PropertyListValue*>;

  void FindMainExecutable(const std::string& root) {
    const std::string executable = seal_.code.MainExecutablePath();
    const std::string prefix = root + "/";
    if (executable.compare(0, prefix.size(), prefix) == 0) {
      mainExecutable_ = executable.substr(prefix.size());
    }
  }

  /// What is never part of a seal, whatever the rules say.
  bool IsExcluded(const std::string& path) const {
    return path == "_CodeSignature" || path == "CodeResources" || path == "_MASReceipt" ||
           path == mainExecutable_;
  }

  /// Keeps a problem that does not end the check; the first one is its outcome.
  OsStatus Collect(OsStatus problem) {
    if (collected_ == kErrSecSuccess) collected_ = problem;
    return kErrSecSuccess;
  }

  /// Visits directories before their contents. One that cannot be read counts as empty.
  OsStatus Walk() {
    std::vector<std::string> pending = {""};
    while (!pending.empty()) {
      const std::string directory = std::move(pending.back());
      pending.pop_back();
      for (const std::string& name : SortedEntries(directory)) {
        const std::string path = JoinPath(directory, name);
        bool isToEnter = false;
        if (const OsStatus status = Visit(path, name, isToEnter); status != kErrSecSuccess) {
          return status;
        }
        if (isToEnter) pending.push_back(path);
      }
    }
    return kErrSecSuccess;
  }

  std::vector<std::string> SortedEntries(const std::string& directory) const {
    std::vector<std::string> names;
    DirectoryReader reader;
    if (reader.Open(JoinPath(root_, directory)) != 0) return names;
    while (const char* const name = reader.Next()) {
      if (std::string_view(name) != "." && std::string_view(name) != "..") names.emplace_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  OsStatus Visit(const std::string& path, const std::string& name, bool& isToEnter) {
    struct stat status {};
    if (lstat(JoinPath(root_, path).c_str(), &status) != 0) return kErrSecSuccess;
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && strcasecmp(name.c_str(), ".DS_Store") == 0) return kErrSecCSDSStoreSymlink;
    if (IsExcluded(path)) return kErrSecSuccess;
    const ResourceRule* rule = nullptr;
    if (const OsStatus found = rules_.Find(path, rule); found != kErrSecSuccess) return found;
    if (S_ISDIR(status.st_mode)) {
      const bool isCode = rule != nullptr && rule->isNestedCode && name.find('.') != name.npos;
      isToEnter = !isCode;
      return isCode ? CheckPath(path, isLink) : kErrSecSuccess;
    }
    const bool isSealable = S_ISREG(status.st_mode) || isLink;
    if (!isSealable || rule == nullptr || rule->isOmitted) return kErrSecSuccess;
    return CheckPath(path, isLink);
  }

  OsStatus CheckPath(const std::string& path, bool isLink) {
    const auto found = sealed_.find(path);
    if (found == sealed_.end()) {
      // Version 1 knows no links.
      return version_ == 1 && isLink ? kErrSecSuccess : Collect(kErrSecCSBadResource);
    }
    unseen_.erase(found->first);
    SealedItem item;
    if (const OsStatus status = ReadSealedItem(*found->second, item); status != kErrSecSuccess) {
      return status;
    }
    if (item.requirement != nullptr) {
      return isLink ? Collect(kErrSecCSBadResource) : CheckNestedCode(path, *item.requirement);
    }
    if (item.link != nullptr) {
      return isLink ? CheckLink(path, *item.link) : Collect(kErrSecCSBadResource);
    }
    return CheckFile(path, item, isLink);
  }

  OsStatus CheckNestedCode(const std::string& path, const std::string& text) {
    const std::optional<Requirement> requirement = ParseRequirement(text);
    if (!requirement) return kErrSecCSResourcesInvalid;
    const OsStatus status = seal_.checkNestedCode(JoinPath(root_, path), *requirement);
    return status == kErrSecCSReqFailed ? Collect(kErrSecCSBadNestedCode) : status;
  }

  OsStatus CheckLink(const std::string& path, const std::string& text) {
    char target[PATH_MAX];
    const ssize_t length = readlink(JoinPath(root_, path).c_str(), target, sizeof target);
    if (length < 0) return StatusFromErrno(errno);
    const bool isSame = std::string_view(target, static_cast<std::size_t>(length)) == text;
    return isSame ? kErrSecSuccess : Collect(kErrSecCSBadResource);
  }

  OsStatus CheckFile(const std::string& path, const SealedItem& item, bool isLink) {
    std::vector<std::string> sealed;
    for (const HashType type : seal_.hashTypes) {
      const std::string* const hash = FindHash(*item.hashes, type);
      if (hash == nullptr) return kErrSecCSResourcesInvalid;
      sealed.push_back(*hash);
    }
    if (isLink) return Collect(kErrSecCSBadResource);
    RandomAccessFile file;
    const int error = file.Open(JoinPath(root_, path));
    if (error == ENOENT) return item.isOptional ? kErrSecSuccess : Collect(kErrSecCSBadResource);
    if (error != 0) return StatusFromErrno(error);
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
    std::uint64_t offset = 0;
    std::size_t count = 0;
    do {
      if (const int error = file.ReadAt(offset, chunk.data(), chunk.size(), count); error != 0) {
        return StatusFromErrno(error);
      }
      for (Digest& hasher : hashers) hasher.Update(std::string_view(chunk.data(), count));
      offset += count;
    } while (count == chunk.size());
    for (Digest& hasher : hashers) digests.push_back(hasher.Finish());
    return kErrSecSuccess;
  }

  /// What is sealed but was not met is missing.
  OsStatus CheckUnseen() {
    for (const auto& [path, value] : unseen_) {
      SealedItem item;
      if (const OsStatus status = ReadSealedItem(*value, item); status != kErrSecSuccess) {
        return status;
      }
      if (!item.isOptional) static_cast<void>(Collect(kErrSecCSBadResource));
    }
    return kErrSecSuccess;
  }

  const ResourceSeal& seal_;
  const int version_;
  Items sealed_;
  Items unseen_;
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

OsStatus CheckResources(const ResourceSeal& seal) {
  const std::optional<std::string> root = seal.code.ResourceRoot();
  if (!seal.codeResources) return root ? kErrSecCSResourcesNotFound : kErrSecSuccess;
  const std::optional<PropertyListValue> list = ParsePropertyList(*seal.codeResources);
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
  return ResourceCheck(seal, *files, version).Run(*root, *rules);
}

}  // namespace platform::code_signing
