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
  /// @param announcedDigests the NIDs of the digests that the message announces.
  CmsSigner(CMS_ContentInfo& message, CMS_SignerInfo& info, const std::set<int>& announcedDigests)
      : message_(&message), info_(&info), announcedDigests_(&announcedDigests) {}

  /// Returns the signer's certificate from those of the message; null when it is missing.
  CertificatePtr FindCertificate(const CertificateList& certificates) const;

  /// Whether the certificate's key verifies the signature over `content` and the signed attributes,
  /// which must name the message's content type. The digest must belong to the SHA family and be
  /// announced by the message. The key must be usable (HasUsableKey()).
  bool Verify(const CertificatePtr& certificate, std::string_view content) const;

  /// The octets of the signature.
  std::string_view Signature() const;

  /// Returns the values of a signed attribute; nothing when the attribute is absent or repeated.
  std::optional<std::vector<const ASN1_TYPE*>> SignedAttribute(const char* identifier) const;

  /// As above, for unsigned attributes.
  std::optional<std::vector<const ASN1_TYPE*>> UnsignedAttribute(const char* identifier) const;

  bool HasUnsignedAttributes() const;

  /// The signing time that the signer states, in seconds since the Unix epoch.
  std::optional<std::int64_t> SigningTime() const;

 private:
  /// Whether the signature algorithm that the message names, with or without a digest, is that of
  /// the signer's key. The signer's certificate must be set.
  bool NamesOwnAlgorithm() const;

  bool NamesContentType() const;

  bool VerifySignedAttributes() const;

  /// Returns the bytes that the signature covers: the set of the signed attributes in the order of
  /// the message. Apple's tools do not sort the values of an attribute; libcrypto would.
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

  /// The signers; none unless the message is signed data.
  std::vector<CmsSigner> Signers() const;

  /// The certificates in the message, in its order.
  CertificateList Certificates() const;

  /// The object identifier of the content's type.
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
