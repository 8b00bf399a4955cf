#include "platform/linux/code_signing/timestamp_token.h"

#include <openssl/objects.h>
#include <openssl/ts.h>

#include <memory>
#include <string>

#include "platform/linux/code_signing/certificate_chain.h"
#include "platform/linux/code_signing/chain_policy.h"
#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/digest.h"

namespace platform::code_signing {
namespace {

constexpr char kTstInfoType[] = "1.2.840.113549.1.9.16.1.4";

struct FreeTstInfo {
  void operator()(TS_TST_INFO* info) const { TS_TST_INFO_free(info); }
};
using TstInfoPtr = std::unique_ptr<TS_TST_INFO, FreeTstInfo>;

TstInfoPtr ParseTstInfo(std::string_view content) {
  const auto* position = reinterpret_cast<const unsigned char*>(content.data());
  return TstInfoPtr(d2i_TS_TST_INFO(nullptr, &position, static_cast<long>(content.size())));
}

bool IsImprintOf(TS_TST_INFO& info, std::string_view signature) {
  TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(&info);
  const ASN1_OBJECT* algorithm = nullptr;
  X509_ALGOR_get0(&algorithm, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
  const int nid = OBJ_obj2nid(algorithm);
  if (nid != NID_sha1 && nid != NID_sha256) return false;
  const ASN1_OCTET_STRING* message = TS_MSG_IMPRINT_get_msg(imprint);
  const std::string_view stated(reinterpret_cast<const char*>(ASN1_STRING_get0_data(message)),
                                static_cast<std::size_t>(ASN1_STRING_length(message)));
  return DigestOf(nid == NID_sha1 ? HashType::kSha1 : HashType::kSha256, signature) == stated;
}

// Whether the signer is a time-stamping authority under an anchor. Its certificates may have
// expired since, or not be valid yet by this host's clock.
bool IsTrustedSigner(const CmsSigner& signer, std::string_view content,
                     const CertificateList& certificates, CheckContext& context) {
  const CertificatePtr certificate = signer.FindCertificate(certificates);
  if (!certificate || signer.HasUnsignedAttributes()) return false;
  context.budget.ChargeForVerifications(VerificationCost(*certificate));
  if (!signer.Verify(certificate, content)) return false;
  const CertificateChain chain = BuildChain(certificate, certificates, context);
  return EvaluateChain(chain, ChainPurpose::kTimeStamping, 0, DateRule::kTolerate, context.trust) ==
         kErrSecSuccess;
}

}  // namespace

std::optional<Timestamp> VerifyTimestampToken(std::string_view token, std::string_view signature,
                                              CheckContext& context) {
  CmsMessage message;
  if (CmsMessage::Parse(token, message) != CmsMessage::ParseResult::kComplete) return std::nullopt;
  const std::vector<CmsSigner> signers = message.Signers();
  const std::optional<std::string_view> content = message.Content();
  if (signers.size() != 1 || !content || message.ContentType() != kTstInfoType) return std::nullopt;
  const TstInfoPtr info = ParseTstInfo(*content);
  if (!info || !IsImprintOf(*info, signature)) return std::nullopt;

  Timestamp timestamp;
  timestamp.certificates = message.Certificates();
  context.budget.ChargeForCertificates(timestamp.certificates.size());
  const CmsSigner& signer = signers.front();
  if (!IsTrustedSigner(signer, *content, timestamp.certificates, context)) return std::nullopt;
  const auto time = UnixTime(TS_TST_INFO_get_time(info.get()));
  const CertificatePtr leaf = signer.FindCertificate(timestamp.certificates);
  if (!time || !IsValidAt(*leaf, *time)) return std::nullopt;
  timestamp.time = *time;
  return timestamp;
}

}  // namespace platform::code_signing
