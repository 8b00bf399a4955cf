#ifndef PLATFORM_LINUX_CODE_SIGNING_SLICE_SIGNATURE_H_
#define PLATFORM_LINUX_CODE_SIGNING_SLICE_SIGNATURE_H_

#include <cstddef>
#include <optional>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/code_directory_set.h"
#include "platform/linux/code_signing/disk_representation.h"
#include "platform/linux/code_signing/page_check.h"
#include "platform/linux/code_signing/requirement.h"

namespace platform::code_signing {

/// The signature of one slice of a piece of code: its contents and its validity. Everything is read
/// once. The code and the context must outlive it. Not thread-safe.
class SliceSignature {
 public:
  SliceSignature(const DiskRepresentation& code, std::size_t slice, CheckContext& context);

  /// The CodeDirectories; null when they are missing or unusable.
  const CodeDirectorySet* Directories() const;

  /// Why there are no Directories(), or kErrSecSuccess.
  OsStatus DirectoriesStatus() const { return directoriesStatus_; }

  /// Whether there is a CMS signature, valid or not. An unreadable component does not count.
  bool HasCms() const;

  /// Verifies the signature over the CodeDirectories and its signer's chain, on the first call.
  /// Ad-hoc signed code has neither and passes.
  OsStatus Verify();

  /// The signer's chain; empty for ad-hoc signed code and until Verify() has succeeded.
  const CertificateChain& Chain() const { return chain_; }

  /// Calls Verify(), then checks everything that the best CodeDirectory seals except the resources,
  /// then `requirement` unless it is empty. @return the first failure.
  OsStatus Validate(const Requirement& requirement);

  /// Reads a component and compares it with its special slot. Must follow a successful Verify().
  /// @param bytes is reset when there is no such component, or none is sealed.
  /// @return the slot's status for a component that differs or is missing.
  OsStatus ReadSealedComponent(Slot slot, std::optional<std::string>& bytes) const;

 private:
  OsStatus VerifyOnce();
  OsStatus CheckSpecialSlots() const;
  OsStatus CheckTopDirectory() const;
  OsStatus BeginPages(std::optional<PageCheck>& pages) const;
  bool Satisfies(const Requirement& requirement) const;

  const DiskRepresentation& code_;
  const std::size_t slice_;
  CheckContext& context_;
  CodeDirectorySet directories_;
  OsStatus directoriesStatus_;
  std::optional<OsStatus> verified_;
  CertificateChain chain_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SLICE_SIGNATURE_H_
