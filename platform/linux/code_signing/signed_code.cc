#include "platform/linux/code_signing/signed_code.h"

#include <fcntl.h>
#include <linux/openat2.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/linux/code_signing/bundle_representation.h"
#include "platform/linux/code_signing/bundle_root.h"
#include "platform/linux/code_signing/resource_seal.h"

namespace platform::code_signing {
namespace {

constexpr int kMaxDepth = 8;

/// Whether a path leads through a link of the process, such as /proc/self/cwd. Another process
/// could find another file there.
bool LeadsThroughProcess(const std::string& path) {
  return !OpenRestricted(AT_FDCWD, path, RESOLVE_NO_MAGICLINKS).IsOpen() && errno == ELOOP;
}

}  // namespace

SignedCode::SignedCode(DiskRepresentationPtr code, std::shared_ptr<CheckContext> context, int depth)
    : code_(std::move(code)),
      context_(std::move(context)),
      depth_(depth),
      first_(*code_, 0, *context_) {}

OsStatus SignedCode::Open(const std::string& path, std::shared_ptr<CheckContext> context,
                          std::unique_ptr<SignedCode>& code) {
  DiskRepresentationPtr representation;
  const OsStatus status = OpenRepresentation(path, context->lists, representation);
  if (status == kErrSecSuccess) {
    code.reset(new SignedCode(std::move(representation), std::move(context), 0));
    code->isWhatIsUsed_ = !LeadsThroughProcess(path);
  }
  return status;
}

OsStatus SignedCode::Validate(const Requirement& requirement) {
  if (!isWhatIsUsed_ || !code_->IsWhatIsUsed()) return kErrSecCSSignatureFailed;
  std::vector<std::string> versions;
  OsStatus status = code_->ListUnsealed(context_->budget, versions);
  if (status == kErrSecSuccess) status = CheckSlices(requirement);
  if (status == kErrSecSuccess) status = CheckSealedResources();
  for (std::size_t i = 0; i < versions.size() && status == kErrSecSuccess; ++i) {
    status = CheckVersion(versions[i], requirement);
  }
  return status;
}

OsStatus SignedCode::CheckSlices(const Requirement& requirement) {
  OsStatus status = first_.Validate(requirement);
  if (status != kErrSecSuccess || code_->SliceCount() == 1) return status;
  for (std::size_t i = 1; i < code_->SliceCount() && status == kErrSecSuccess; ++i) {
    SliceSignature other(*code_, i, *context_);
    status = other.DirectoriesStatus();
    if (status != kErrSecSuccess) break;
    if (!HasSameTeam(other)) return kErrSecCSSignatureInvalid;
    status = other.Validate(requirement);
    if (status == kErrSecSuccess && !HasSameSigner(other)) status = kErrSecCSSignatureInvalid;
    std::optional<std::string> codeResources;
    if (status == kErrSecSuccess) status = ReadCodeResources(other, codeResources);
  }
  return status;
}

bool SignedCode::HasSameTeam(const SliceSignature& other) const {
  return other.Directories()->Best().TeamIdentifier() ==
         first_.Directories()->Best().TeamIdentifier();
}

// Any slice may run, but only the first one's signer is reported.
bool SignedCode::HasSameSigner(const SliceSignature& other) const {
  const CertificateChain& mine = first_.Chain();
  const CertificateChain& others = other.Chain();
  if (mine.empty() || others.empty()) return mine.empty() && others.empty();
  return EncodedCertificate(*mine.front()) == EncodedCertificate(*others.front());
}

// Only a single file can do without CodeResources.
OsStatus SignedCode::ReadCodeResources(const SliceSignature& slice,
                                       std::optional<std::string>& codeResources) const {
  const OsStatus status = slice.ReadSealedComponent(kSlotResourceDirectory, codeResources);
  if (status != kErrSecSuccess || codeResources || !code_->ResourceRoot()) return status;
  return kErrSecCSResourcesNotFound;
}

OsStatus SignedCode::CheckSealedResources() {
  std::optional<std::string> codeResources;
  const OsStatus status = ReadCodeResources(first_, codeResources);
  if (status != kErrSecSuccess || !codeResources) return status;
  ResourceSeal seal = {*code_, *std::move(codeResources), first_.Directories()->KnownHashTypes(),
                       [this](const std::string& path, const Requirement& requirement) {
                         return CheckNestedCode(path, requirement);
                       }};
  return CheckResources(std::move(seal), *context_);
}

OsStatus SignedCode::OpenNestedCode(const std::string& path,
                                    std::unique_ptr<SignedCode>& code) const {
  if (depth_ == kMaxDepth) return kErrSecCSBadNestedCode;
  DiskRepresentationPtr representation;
  // Nested files do not stand for a bundle: the seal around them covers their neighbours.
  const OsStatus status =
      DirectoryExists(path)
          ? OpenBundleRepresentation(path, BundleName::kDirectory, context_->lists, representation)
          : OpenFileRepresentation(path, PlainFileSignature::kSidecar, representation);
  if (status != kErrSecSuccess) return status;
  context_->budget.ChargeForNestedCode(representation->SliceCount(),
                                       representation->Root() != nullptr);
  if (!code_->Root()->Contains(representation->Code().Number())) return kErrSecCSBadNestedCode;
  code.reset(new SignedCode(std::move(representation), context_, depth_ + 1));
  return kErrSecSuccess;
}

OsStatus SignedCode::CheckNestedCode(const std::string& path,
                                     const Requirement& requirement) const {
  std::unique_ptr<SignedCode> nested;
  const OsStatus status = OpenNestedCode(path, nested);
  return status == kErrSecSuccess ? nested->Validate(requirement) : status;
}

// Programs may load any version of a bundle, but only the current one's signer is reported.
OsStatus SignedCode::CheckVersion(const std::string& path, const Requirement& requirement) const {
  std::unique_ptr<SignedCode> version;
  OsStatus status = OpenNestedCode(path, version);
  if (status == kErrSecSuccess) status = version->Validate(requirement);
  if (status != kErrSecSuccess) return status;
  const bool isSame = HasSameTeam(version->first_) && HasSameSigner(version->first_);
  return isSame ? kErrSecSuccess : kErrSecCSBadNestedCode;
}

SigningInformation SignedCode::CopySigningInformation() {
  SigningInformation information;
  const CodeDirectorySet* directories = first_.Directories();
  // Without a CMS signature nothing about the signer is reported, not even a sealed team.
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
