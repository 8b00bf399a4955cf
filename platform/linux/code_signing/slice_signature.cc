#include "platform/linux/code_signing/slice_signature.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/linux/code_signing/byte_reader.h"
#include "platform/linux/code_signing/signature_check.h"

namespace platform::code_signing {
namespace {

constexpr std::size_t kCdHashLength = 20;

OsStatus StatusOfSlot(Slot slot) {
  switch (slot) {
    case kSlotInfoPlist:
      return kErrSecCSInfoPlistFailed;
    case kSlotResourceDirectory:
      return kErrSecCSResourceDirectoryFailed;
    default:
      return kErrSecCSSignatureFailed;
  }
}

}  // namespace

SliceSignature::SliceSignature(const DiskRepresentation& code, std::size_t slice,
                               CheckContext& context)
    : code_(code),
      slice_(slice),
      context_(context),
      directoriesStatus_(CodeDirectorySet::Load(code, slice, directories_)) {}

const CodeDirectorySet* SliceSignature::Directories() const {
  return directoriesStatus_ == kErrSecSuccess ? &directories_ : nullptr;
}

bool SliceSignature::HasCms() const {
  std::optional<std::string> message;
  return code_.ReadComponent(slice_, kSlotCmsSignature, message) == kErrSecSuccess && message;
}

OsStatus SliceSignature::Verify() {
  if (!verified_) verified_ = VerifyOnce();
  return *verified_;
}

OsStatus SliceSignature::VerifyOnce() {
  const CodeDirectorySet* directories = Directories();
  if (directories != nullptr && (directories->Best().Flags() & CodeDirectory::kFlagAdhoc) != 0) {
    return kErrSecSuccess;
  }
  std::optional<std::string> message;
  const OsStatus status = code_.ReadComponent(slice_, kSlotCmsSignature, message);
  if (status != kErrSecSuccess) return status;
  if (!message) return kErrSecCSUnsigned;
  return CheckSignature(*message, directoriesStatus_, directories_, context_, chain_);
}

OsStatus SliceSignature::Validate(const Requirement& requirement) {
  // Other processors hash the pages while this one verifies the signature.
  std::optional<PageCheck> pages;
  OsStatus pageStatus = kErrSecSuccess;
  if (Directories() != nullptr) pageStatus = BeginPages(pages);

  OsStatus status = Verify();
  if (status == kErrSecSuccess) status = CheckSpecialSlots();
  if (status == kErrSecSuccess) status = CheckTopDirectory();
  if (status == kErrSecSuccess) status = pageStatus;
  if (status == kErrSecSuccess && pages) status = pages->Finish();
  if (status == kErrSecSuccess && requirement && !Satisfies(requirement)) {
    status = kErrSecCSReqFailed;
  }
  return status;
}

OsStatus SliceSignature::ReadSealedComponent(Slot slot, std::optional<std::string>& bytes) const {
  const CodeDirectory& best = directories_.Best();
  const bool sealed = best.IsSpecialSlotPresent(slot);
  if (const OsStatus status = code_.ReadComponent(slice_, slot, bytes); status != kErrSecSuccess) {
    return status;
  }
  if (bytes) context_.budget.ChargeForComponent(bytes->size());
  if (!sealed) {
    bytes.reset();
    return kErrSecSuccess;
  }
  if (!bytes || DigestOf(*best.KnownHashType(), *bytes) != best.SpecialHash(slot)) {
    return StatusOfSlot(slot);
  }
  return kErrSecSuccess;
}

OsStatus SliceSignature::CheckSpecialSlots() const {
  const Slot last = std::min<Slot>(directories_.Best().SpecialSlotCount(), kLastSpecialSlot);
  for (Slot slot = last; slot >= 1; --slot) {
    // The resources are validated once for all slices.
    if (slot == kSlotResourceDirectory) continue;
    std::optional<std::string> bytes;
    const OsStatus status = ReadSealedComponent(slot, bytes);
    if (status != kErrSecSuccess) return status;
  }
  return kErrSecSuccess;
}

// The top directory, if present, must list all components of the signature.
OsStatus SliceSignature::CheckTopDirectory() const {
  std::optional<std::string> top;
  if (const OsStatus status = ReadSealedComponent(kSlotTopDirectory, top);
      status != kErrSecSuccess || !top) {
    return status;
  }
  std::vector<Slot> present = {kSlotCodeDirectory};
  for (Slot slot = 1; slot <= kLastSpecialSlot; ++slot) {
    if (directories_.Best().IsSpecialSlotPresent(slot)) present.push_back(slot);
  }
  for (Slot alternate = 0; alternate + 1 < directories_.All().size(); ++alternate) {
    present.push_back(kSlotAlternateCodeDirectories + alternate);
  }
  present.push_back(kSlotCmsSignature);

  const ByteReader reader(*top, ByteOrder::kBig);
  bool isSame = top->size() / sizeof(Slot) == present.size();
  for (std::size_t i = 0; i < present.size() && isSame; ++i) {
    isSame = reader.U32(i * sizeof(Slot)) == present[i];
  }
  return isSame ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

OsStatus SliceSignature::BeginPages(std::optional<PageCheck>& pages) const {
  CodeRange code;
  const OsStatus status = code_.FindCode(slice_, code);
  if (status != kErrSecSuccess) return status;
  // Here, unlike on macOS, no kernel refuses to run code that the page hashes do not cover.
  if (directories_.Best().CodeLimit() != code.length) return kErrSecCSSignatureFailed;
  pages.emplace(code_.Code(), code.start, directories_, context_.budget);
  pages->Begin();
  return kErrSecSuccess;
}

bool SliceSignature::Satisfies(const Requirement& requirement) const {
  const CodeDirectory& best = directories_.Best();
  RequirementSubject subject;
  subject.identifier = best.Identifier();
  subject.cdHash = best.Hash().value_or(std::string()).substr(0, kCdHashLength);
  for (const CertificatePtr& certificate : chain_)
    subject.certificates.push_back(certificate.get());
  return requirement(subject);
}

}  // namespace platform::code_signing
