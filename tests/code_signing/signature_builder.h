#ifndef TESTS_CODE_SIGNING_SIGNATURE_BUILDER_H_
#define TESTS_CODE_SIGNING_SIGNATURE_BUILDER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// Code with nothing in it. Tests override the parts that matter to them.
class EmptyCode : public DiskRepresentation {
 public:
  std::size_t SliceCount() const override { return 1; }
  OsStatus ReadComponent(std::size_t, Slot, std::optional<std::string>& bytes) const override {
    bytes.reset();
    return kErrSecSuccess;
  }
  const RandomAccessFile& Code() const override { return file_; }
  OsStatus FindCode(std::size_t, CodeRange& range) const override {
    range = {};
    return kErrSecSuccess;
  }
  std::string MainExecutablePath() const override { return {}; }

 private:
  RandomAccessFile file_;
};

/// The contents of a test's CodeDirectory.
struct TestDirectoryContents {
  std::string code;
  std::map<Slot, std::string> sealed;  ///< contents of special slots
  std::string identifier = "com.example.test";
  std::uint32_t flags = 2;  ///< ad-hoc signed
  HashType hashType = HashType::kSha256;
  std::string team;               ///< none when empty
  std::uint8_t pageSizeLog2 = 0;  ///< 0 when the whole code is one page
};

/// Encodes numbers of 32 bits.
std::string BigEndianFields(const std::vector<std::uint32_t>& fields);

std::string MakeCodeDirectory(const TestDirectoryContents& contents);

/// @param components whole blobs.
std::string MakeSuperBlob(const std::map<Slot, std::string>& components);

/// Wraps a component that is not a blob.
std::string MakeWrapper(const std::string& contents);

/// Makes a 64-bit Mach-O executable for arm64, without the signature that must follow it.
/// @param size at least 64.
std::string MakeMachOCode(std::size_t size);

/// Makes the CMS signature over a CodeDirectory.
using DirectorySigner = std::function<std::string(const std::string& directory)>;

/// Returns what MakeMachOCode() makes, with its signature.
/// @param contents of its CodeDirectory. Empty code is replaced.
/// @param sign empty for an ad-hoc signature.
std::string MakeSignedMachO(TestDirectoryContents contents, const DirectorySigner& sign);

/// As above, with an ad-hoc signature.
/// @param sealed contents of special slots, which are not among its components.
/// @param identifier of the signature.
std::string MakeSignedMachO(const std::map<Slot, std::string>& sealed,
                            const std::string& identifier = "com.example.test");

/// Makes a universal file of these slices, the first for arm64 and the others for x86_64.
std::string MakeUniversal(const std::vector<std::string>& slices);

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_SIGNATURE_BUILDER_H_
