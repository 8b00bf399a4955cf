#ifndef PLATFORM_LINUX_CODE_SIGNING_CMS_MESSAGE_H_
#define PLATFORM_LINUX_CODE_SIGNING_CMS_MESSAGE_H_

#include <openssl/cms.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/code_signing/certificate.h"

namespace platform::code_signing {

/// One signer of a message. Valid as long as the message.
class CmsSigner {
 public:
  /// @param announcedDigests libcrypto's numbers of the digests that the message announces.
  CmsSigner(CMS_ContentInfo& message, CMS_SignerInfo& info, const std::set<int>& announcedDigests)
      : message_(&message), info_(&info), announcedDigests_(&announcedDigests) {}

  /// The signer's certificate, found among those of the message; null when it is not there.
  CertificatePtr FindCertificate(const CertificateList& certificates) const;

  /// Whether the signature is that of the certificate's key over `content` and the signed
  /// attributes, which must name the message's content type. Its digest must be of the SHA
  /// family and one that the message announces. The key must be usable (HasUsableKey()).
  bool Verify(const CertificatePtr& certificate, std::string_view content) const;

  /// The octets of the signature.
  std::string_view Signature() const;

  /// The values of a signed attribute, each as ASN.1 value of any type; nothing when the attribute
  /// is absent or there is more than one of that type, which counts as absent.
  std::optional<std::vector<const ASN1_TYPE*>> SignedAttribute(const char* identifier) const;

  /// The same for unsigned attributes.
  std::optional<std::vector<const ASN1_TYPE*>> UnsignedAttribute(const char* identifier) const;

  bool HasUnsignedAttributes() const;

  /// The signing time that the signer states, in seconds since the Unix epoch.
  std::optional<std::int64_t> SigningTime() const;

 private:
  /// Whether the algorithm that the message names for the signature, alone or with its digest, is
  /// that of the signer's key. Needs the signer's certificate to be set.
  bool NamesOwnAlgorithm() const;

  bool NamesContentType() const;

  bool VerifySignedAttributes() const;

  /// What the signature covers: the signed attributes as a set, all in the order of the message.
  /// Apple's tools do not sort the values of an attribute, which libcrypto does when it verifies.
  std::string SignedAttributesEncoding() const;

  CMS_ContentInfo* message_;
  CMS_SignerInfo* info_;
  const std::set<int>* announcedDigests_;
};

/// A message of the Cryptographic Message Syntax (RFC 5652), in BER.
class CmsMessage {
 public:
  enum class ParseResult {
    kComplete,
    kTruncated,  ///< the bytes end within the message, or there are none
    kMalformed,
  };

  /// @param message is filled when the result is kComplete.
  static ParseResult Parse(std::string_view bytes, CmsMessage& message);

  bool IsSignedData() const;

  /// The message's signers; none unless it is signed data.
  std::vector<CmsSigner> Signers() const;

  /// The certificates in the message, in its order.
  CertificateList Certificates() const;

  /// Identifier of the type of the signed content.
  std::string ContentType() const;

  /// The content within the message; nothing when it is detached.
  std::optional<std::string_view> Content() const;

 private:
  struct Free {
    void operator()(CMS_ContentInfo* message) const { CMS_ContentInfo_free(message); }
  };

  std::unique_ptr<CMS_ContentInfo, Free> message_;
  std::set<int> announcedDigests_;
};

/// The encoding of a value.
std::string EncodedBytes(const ASN1_TYPE& value);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CMS_MESSAGE_H_
