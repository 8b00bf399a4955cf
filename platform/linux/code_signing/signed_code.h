#ifndef PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_
#define PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_

#include <memory>
#include <string>

#include "platform/code_signing.h"
#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/requirement_subject.h"
#include "platform/linux/code_signing/slice_signature.h"
#include "platform/linux/code_signing/trust_store.h"

namespace platform::code_signing {

/// A piece of code whose signature is validated as SecStaticCode does (StaticCode.cpp of Apple's
/// open Security project). Not for several threads at once.
class SignedCode {
 public:
  /// @param code is filled on success.
  static OsStatus Open(const std::string& path, std::shared_ptr<const TrustStore> trust,
                       std::unique_ptr<SignedCode>& code);

  /// Validates all slices, then the resources.
  OsStatus CheckValidity();

  /// Validates all slices without their pages, and `requirement` on each: what is asked of code
  /// nested in a bundle.
  OsStatus CheckNested(const Requirement& requirement);

  /// What slice 0 says. The chain is there only when its signature is verified, whatever has become
  /// of the code itself.
  SigningInformation CopySigningInformation();

 private:
  SignedCode(DiskRepresentationPtr code, std::shared_ptr<const TrustStore> trust);

  OsStatus CheckSlices(PageRule pageRule, const Requirement& requirement);
  OsStatus CheckSealedResources();

  const DiskRepresentationPtr code_;
  const std::shared_ptr<const TrustStore> trust_;
  SliceSignature first_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_
