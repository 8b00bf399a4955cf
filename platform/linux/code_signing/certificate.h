#ifndef PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_
#define PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_

#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::code_signing {

using CertificatePtr = std::shared_ptr<X509>;

/// Leaf first, each followed by its issuer.
using CertificateChain = std::vector<CertificatePtr>;

/// In arbitrary order.
using CertificateList = std::vector<CertificatePtr>;

/// Returns another owner of a certificate.
CertificatePtr ShareCertificate(X509* certificate);

/// Returns the subject's last attribute of a type (an OpenSSL NID) in UTF-8; nothing when there is
/// none.
std::optional<std::string> SubjectAttribute(const X509& certificate, int nid);

/// Returns the subject's last common name in UTF-8; nothing when there is none.
std::optional<std::string> CommonName(const X509& certificate);

/// Returns the subject's first organizational unit in UTF-8; nothing when there is none.
std::optional<std::string> OrganizationalUnit(const X509& certificate);

/// Whether there is an extension with this dotted identifier.
bool HasExtension(const X509& certificate, const char* identifier);

/// Returns the bytes of a certificate, by which certificates are compared; empty when libcrypto
/// fails.
std::string EncodedCertificate(const X509& certificate);

/// Whether a piece of BER has an elliptic-curve key that could take libcrypto a long time to
/// decode, which it does as soon as it parses a certificate: a key on a curve that is not used to
/// sign code (the key may even define its own), or a compressed point, which gives only one
/// coordinate.
bool HasCostlyKey(std::string_view bytes);

/// Whether the key is of a kind that is used to sign code, so that verification is cheap: RSA with
/// at most 8,192 bits and an exponent of at most 32 bits, or a NIST curve.
bool HasUsableKey(const X509& certificate);

/// Returns the cost of a verification with the certificate's key: 1 for P-256 and RSA of usual
/// sizes.
std::uint64_t VerificationCost(const X509& certificate);

/// Whether the certificate names itself as its issuer and its own key verifies its signature.
bool IsSelfSigned(const X509& certificate);

/// Whether the certificate is one of Apple's roots.
bool IsAppleRoot(const X509& certificate);

/// Returns seconds since the Unix epoch; nothing when the text is not a time.
std::optional<std::int64_t> UnixTime(const ASN1_TIME* time);

/// Whether `time` lies within the period of validity, both ends included.
bool IsValidAt(const X509& certificate, std::int64_t time);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_
