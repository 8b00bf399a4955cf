#ifndef PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_SET_H_
#define PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_SET_H_

#include <cstdint>
#include <map>
#include <vector>

#include "platform/linux/code_signing/code_directory.h"
#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// All CodeDirectories of one slice's signature. They describe the same code with different hash
/// types.
class CodeDirectorySet {
 public:
  /// By the number of their hash type, ascending.
  using Directories = std::map<std::uint8_t, CodeDirectory>;

  /// Reads the directories of a slice.
  /// @param directories is filled on success.
  /// @return kErrSecCSUnsigned when there is none.
  static OsStatus Load(const DiskRepresentation& code, std::size_t slice,
                       CodeDirectorySet& directories);

  const Directories& All() const { return all_; }

  /// The directory in the main slot, which the CMS signature covers.
  const CodeDirectory& Base() const { return all_.at(base_); }

  /// The directory with the most preferred hash type, which is used for everything except the CMS
  /// signature.
  const CodeDirectory& Best() const { return all_.at(best_); }

  /// The known hash types among them, ascending.
  std::vector<HashType> KnownHashTypes() const;

 private:
  bool ChooseBest();

  Directories all_;
  std::uint8_t base_ = 0;
  std::uint8_t best_ = 0;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CODE_DIRECTORY_SET_H_
