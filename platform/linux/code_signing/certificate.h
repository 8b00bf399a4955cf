#ifndef PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_
#define PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_

#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform::code_signing {

using CertificatePtr = std::shared_ptr<X509>;

/// Leaf first, each followed by its issuer.
using CertificateChain = std::vector<CertificatePtr>;

/// In no order that means anything.
using CertificateList = std::vector<CertificatePtr>;

/// Another owner of a certificate.
CertificatePtr ShareCertificate(X509* certificate);

/// The last attribute of a type (OpenSSL's number of it) in the subject, in UTF-8; nothing when
/// there is none.
std::optional<std::string> SubjectAttribute(const X509& certificate, int nid);

/// The last common name of the subject, in UTF-8; nothing when there is none.
std::optional<std::string> CommonName(const X509& certificate);

/// The first organizational unit of the subject, in UTF-8; nothing when there is none.
std::optional<std::string> OrganizationalUnit(const X509& certificate);

/// Whether there is an extension with this dotted identifier.
bool HasExtension(const X509& certificate, const char* identifier);

/// The certificate's very bytes, which is what certificates are compared by; empty when libcrypto
/// fails.
std::string EncodedCertificate(const X509& certificate);

/// Whether its key is of a kind that code is signed with, so that a verification with it is cheap:
/// RSA with at most 8,192 bits and an exponent of at most 32, or one of NIST's curves.
bool HasUsableKey(const X509& certificate);

/// Whether it is its own issuer by name and its signature agrees with its own key.
bool IsSelfSigned(const X509& certificate);

/// Whether it is one of Apple's root certificates.
bool IsAppleRoot(const X509& certificate);

/// Seconds since the Unix epoch; nothing for a text that is no time.
std::optional<std::int64_t> UnixTime(const ASN1_TIME* time);

/// Whether `time` lies within the period of validity, both ends included.
bool IsValidAt(const X509& certificate, std::int64_t time);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_H_
