#ifndef PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_
#define PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_

#include <memory>
#include <string>

#include "platform/code_signing.h"
#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/requirement.h"
#include "platform/linux/code_signing/slice_signature.h"

namespace platform::code_signing {

/// A piece of code. Validates its signature as SecStaticCode does (StaticCode.cpp of
/// Apple's open Security project). Not thread-safe.
class SignedCode {
 public:
  /// @param context belongs to this code from now on.
  /// @param code is filled on success.
  static OsStatus Open(const std::string& path, std::shared_ptr<CheckContext> context,
                       std::unique_ptr<SignedCode>& code);

  /// Validates all slices, then the resources with all nested code.
  /// @throws BudgetExceeded
  OsStatus CheckValidity() { return Validate({}); }

  /// Returns the signing information of slice 0. The chain is present only when the signature is
  /// verified, whether or not the code has been changed.
  SigningInformation CopySigningInformation();

 private:
  SignedCode(DiskRepresentationPtr code, std::shared_ptr<CheckContext> context, int depth);

  OsStatus Validate(const Requirement& requirement);
  OsStatus CheckSlices(const Requirement& requirement);
  bool HasSameTeam(const SliceSignature& other) const;
  bool HasSameSigner(const SliceSignature& other) const;
  OsStatus ReadCodeResources(const SliceSignature& slice,
                             std::optional<std::string>& codeResources) const;
  OsStatus CheckSealedResources();
  OsStatus OpenNestedCode(const std::string& path, std::unique_ptr<SignedCode>& code) const;
  OsStatus CheckNestedCode(const std::string& path, const Requirement& requirement) const;
  OsStatus CheckVersion(const std::string& path, const Requirement& requirement) const;

  const DiskRepresentationPtr code_;
  const std::shared_ptr<CheckContext> context_;
  const int depth_;           ///< 0 for code that is not nested in other code
  bool isWhatIsUsed_ = true;  ///< whether every process finds this code at the path
  SliceSignature first_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SIGNED_CODE_H_
