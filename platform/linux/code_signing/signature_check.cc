#include "platform/linux/code_signing/signature_check.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/code_signing/certificate_chain.h"
#include "platform/linux/code_signing/chain_policy.h"
#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/hash_agility.h"
#include "platform/linux/code_signing/timestamp_token.h"

namespace platform::code_signing {
namespace {

constexpr char kTimestampToken[] = "1.2.840.113549.1.9.16.2.14";

// Time stamps are the only permitted unsigned attributes. If there is any unsigned attribute, there
// must be a valid time stamp.
OsStatus CheckTimestamp(const CmsSigner& signer, CheckContext& context,
                        std::optional<Timestamp>& timestamp) {
  if (!signer.HasUnsignedAttributes()) return kErrSecSuccess;
  const auto tokens = signer.UnsignedAttribute(kTimestampToken);
  if (!tokens || tokens->empty()) return kErrSecCSSignatureFailed;
  timestamp = VerifyTimestampToken(EncodedBytes(*tokens->front()), signer.Signature(), context);
  return timestamp ? kErrSecSuccess : kErrSecCSSignatureFailed;
}

bool IsUtf8(std::string_view text) {
  const auto* position = reinterpret_cast<const unsigned char*>(text.data());
  auto left = static_cast<int>(text.size());
  while (left > 0) {
    unsigned long character = 0;
    const int length = UTF8_getc(position, left, &character);
    if (length <= 0) return false;
    position += length;
    left -= length;
  }
  return true;
}

// A Developer ID certificate names its team. The CodeDirectory must not name another.
OsStatus CheckTeam(const CertificateChain& chain, const CodeDirectory& directory) {
  const std::optional<std::string_view> team = directory.TeamIdentifier();
  if (!team || !IsAppleDeveloperChain(chain)) return kErrSecSuccess;
  const std::optional<std::string> unit = OrganizationalUnit(*chain.front());
  if (!unit) return kErrSecSuccess;
  if (!IsUtf8(*team)) return kErrSecCSInvalidTeamIdentifier;
  return *unit == *team ? kErrSecSuccess : kErrSecCSBadTeamIdentifier;
}

// Without a time stamp the age of the signature is unknown, so expired certificates pass unless the
// signer forbids it.
OsStatus CheckChain(const CertificateChain& chain, std::int64_t time, bool hasTimestamp,
                    const CodeDirectory& directory, const TrustStore& trust) {
  const OsStatus status =
      EvaluateChain(chain, ChainPurpose::kCodeSigning, time, DateRule::kEnforce, trust);
  if (status != kTpCertExpired || hasTimestamp) return status;
  const OsStatus tolerant =
      EvaluateChain(chain, ChainPurpose::kCodeSigning, time, DateRule::kTolerate, trust);
  if (tolerant != kErrSecSuccess) return tolerant;
  return (directory.Flags() & CodeDirectory::kFlagForceExpiration) != 0 ? kTpCertExpired
                                                                        : kErrSecSuccess;
}

// Code under an Apple root must also have a time stamp from Apple.
OsStatus CheckTimestampOrigin(const CertificateChain& chain, const Timestamp& timestamp) {
  const bool fromApple =
      std::any_of(timestamp.certificates.begin(), timestamp.certificates.end(),
                  [](const CertificatePtr& certificate) { return IsAppleRoot(*certificate); });
  return IsAppleRoot(*chain.back()) && !fromApple ? kTpNotTrusted : kErrSecSuccess;
}

OsStatus CheckSigner(const CmsMessage& message, const CodeDirectorySet& directories,
                     CheckContext& context, CertificateChain& chain) {
  const std::vector<CmsSigner> signers = message.Signers();
  if (signers.empty()) return kErrSecCSSignatureFailed;
  const CmsSigner& signer = signers.front();
  const CertificateList certificates = message.Certificates();
  context.budget.ChargeForCertificates(certificates.size());
  const CertificatePtr leaf = signer.FindCertificate(certificates);
  if (!leaf) return kErrSecCSSignatureFailed;
  context.budget.ChargeForVerifications(VerificationCost(*leaf));
  if (!signer.Verify(leaf, directories.Base().Blob())) return kErrSecCSSignatureFailed;
  std::optional<Timestamp> timestamp;
  if (const OsStatus status = CheckTimestamp(signer, context, timestamp);
      status != kErrSecSuccess) {
    return status;
  }
  if (const OsStatus status = CheckHashAgility(signer, directories); status != kErrSecSuccess) {
    return status;
  }

  const CodeDirectory& best = directories.Best();
  const std::int64_t time =
      timestamp ? timestamp->time : signer.SigningTime().value_or(std::time(nullptr));
  CertificateChain built = BuildChain(leaf, certificates, context);
  if (const OsStatus status = CheckTeam(built, best); status != kErrSecSuccess) return status;
  OsStatus status = CheckChain(built, time, timestamp.has_value(), best, context.trust);
  if (status == kErrSecSuccess && timestamp) status = CheckTimestampOrigin(built, *timestamp);
  if (status == kErrSecSuccess) chain = std::move(built);
  return status;
}

}  // namespace

OsStatus CheckSignature(std::string_view message, OsStatus directoriesStatus,
                        const CodeDirectorySet& directories, CheckContext& context,
                        CertificateChain& chain) {
  context.budget.ChargeForMessage(message.size());
  CmsMessage parsed;
  const CmsMessage::ParseResult result = CmsMessage::Parse(message, parsed);
  if (result == CmsMessage::ParseResult::kMalformed) return kErrSecUnknownFormat;
  if (directoriesStatus != kErrSecSuccess) return directoriesStatus;
  if (result == CmsMessage::ParseResult::kTruncated) return kErrSecUnknownFormat;
  return CheckSigner(parsed, directories, context, chain);
}

}  // namespace platform::code_signing
