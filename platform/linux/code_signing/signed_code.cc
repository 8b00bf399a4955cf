#include "platform/linux/code_signing/signed_code.h"

#include <optional>
#include <utility>

#include "platform/linux/code_signing/resource_seal.h"

namespace platform::code_signing {

SignedCode::SignedCode(DiskRepresentationPtr code, std::shared_ptr<const TrustStore> trust)
    : code_(std::move(code)), trust_(std::move(trust)), first_(*code_, 0, *trust_) {}

OsStatus SignedCode::Open(const std::string& path, std::shared_ptr<const TrustStore> trust,
                          std::unique_ptr<SignedCode>& code) {
  DiskRepresentationPtr representation;
  const OsStatus status = OpenRepresentation(path, representation);
  if (status == kErrSecSuccess) {
    code.reset(new SignedCode(std::move(representation), std::move(trust)));
  }
  return status;
}

OsStatus SignedCode::CheckValidity() {
  const OsStatus status = CheckSlices(PageRule::kCheck, {});
  return status == kErrSecSuccess ? CheckSealedResources() : status;
}

OsStatus SignedCode::CheckNested(const Requirement& requirement) {
  return CheckSlices(PageRule::kSkip, requirement);
}

OsStatus SignedCode::CheckSlices(PageRule pageRule, const Requirement& requirement) {
  OsStatus status = first_.Validate(pageRule, requirement);
  for (std::size_t i = 1; i < code_->SliceCount() && status == kErrSecSuccess; ++i) {
    SliceSignature other(*code_, i, *trust_);
    status = other.DirectoriesStatus();
    if (status != kErrSecSuccess) break;
    const auto team = first_.Directories()->Best().TeamIdentifier();
    if (team != other.Directories()->Best().TeamIdentifier()) return kErrSecCSSignatureInvalid;
    status = other.Validate(pageRule, requirement);
  }
  return status;
}

OsStatus SignedCode::CheckSealedResources() {
  std::optional<std::string> codeResources;
  if (const OsStatus status = first_.ReadSealedComponent(kSlotResourceDirectory, codeResources);
      status != kErrSecSuccess) {
    return status;
  }
  const auto checkNestedCode = [this](const std::string& path, const Requirement& requirement) {
    std::unique_ptr<SignedCode> nested;
    const OsStatus status = Open(path, trust_, nested);
    return status == kErrSecSuccess ? nested->CheckNested(requirement) : status;
  };
  return CheckResources(
      {*code_, std::move(codeResources), first_.Directories()->KnownHashTypes(), checkNestedCode});
}

SigningInformation SignedCode::CopySigningInformation() {
  SigningInformation information;
  const CodeDirectorySet* directories = first_.Directories();
  // Without a CMS signature nothing about the signer is told, not even a sealed team.
  if (directories == nullptr || !first_.HasCms()) return information;
  if (const auto team = directories->Best().TeamIdentifier()) {
    information.teamIdentifier.emplace(*team);
  }
  if (first_.Verify() == kErrSecSuccess && !first_.Chain().empty()) {
    information.certificates.emplace();
    for (const CertificatePtr& certificate : first_.Chain()) {
      information.certificates->push_back({certificate});
    }
  }
  return information;
}

}  // namespace platform::code_signing
