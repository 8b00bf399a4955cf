#include "platform/linux/code_signing/code_directory_set.h"

#include <optional>
#include <string>
#include <utility>

namespace platform::code_signing {
namespace {

// Adds the directory in `slot`. Sets `found` to whether there is one.
OsStatus Add(const DiskRepresentation& code, std::size_t slice, Slot slot,
             CodeDirectorySet::Directories& all, bool& found, std::uint8_t& type) {
  found = false;
  std::optional<std::string> bytes;
  if (const OsStatus status = code.ReadComponent(slice, slot, bytes); status != kErrSecSuccess) {
    return status;
  }
  if (!bytes) return kErrSecSuccess;
  CodeDirectory directory;
  if (const OsStatus status = CodeDirectory::Parse(std::move(*bytes), directory);
      status != kErrSecSuccess) {
    return status;
  }
  type = directory.HashTypeNumber();
  found = true;
  return all.emplace(type, std::move(directory)).second ? kErrSecSuccess
                                                        : kErrSecCSSignatureInvalid;
}

}  // namespace

OsStatus CodeDirectorySet::Load(const DiskRepresentation& code, std::size_t slice,
                                CodeDirectorySet& directories) {
  CodeDirectorySet set;
  bool found = false;
  OsStatus status = Add(code, slice, kSlotCodeDirectory, set.all_, found, set.base_);
  if (status == kErrSecSuccess && !found) return kErrSecCSUnsigned;
  std::uint8_t alternateType = 0;
  for (Slot slot = kSlotAlternateCodeDirectories;
       status == kErrSecSuccess && found && slot < kSlotAlternateCodeDirectoryLimit; ++slot) {
    status = Add(code, slice, slot, set.all_, found, alternateType);
  }
  if (status != kErrSecSuccess) return status;
  if (!set.ChooseBest()) return kErrSecCSUnsupportedDigestAlgorithm;
  directories = std::move(set);
  return kErrSecSuccess;
}

bool CodeDirectorySet::ChooseBest() {
  for (const HashType type : kHashTypes) {
    best_ = static_cast<std::uint8_t>(type);
    if (all_.count(best_) != 0) return true;
  }
  return false;
}

std::vector<HashType> CodeDirectorySet::KnownHashTypes() const {
  std::vector<HashType> types;
  for (const auto& [number, directory] : all_) {
    if (const auto type = HashTypeFromNumber(number)) types.push_back(*type);
  }
  return types;
}

}  // namespace platform::code_signing
