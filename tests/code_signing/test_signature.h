#ifndef TESTS_CODE_SIGNING_TEST_SIGNATURE_H_
#define TESTS_CODE_SIGNING_TEST_SIGNATURE_H_

#include <cstdint>
#include <map>
#include <string>

#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/disk_representation.h"

namespace platform::code_signing {

/// What a CodeDirectory of a test says; the whole code is one page.
struct TestDirectoryContents {
  std::string code;
  std::map<Slot, std::string> sealed;  ///< contents of special slots
  std::string identifier = "com.example.test";
  std::uint32_t flags = 2;  ///< ad-hoc signed
  HashType hashType = HashType::kSha256;
};

std::string MakeCodeDirectory(const TestDirectoryContents& contents);

/// @param components whole blobs.
std::string MakeSuperBlob(const std::map<Slot, std::string>& components);

/// A little 64-bit Mach-O executable with an ad-hoc signature.
/// @param sealed contents of special slots, which are not among its components.
/// @param identifier of the signature.
std::string MakeSignedMachO(const std::map<Slot, std::string>& sealed,
                            const std::string& identifier = "com.example.test");

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_TEST_SIGNATURE_H_
