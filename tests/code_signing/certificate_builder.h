#ifndef TESTS_CODE_SIGNING_CERTIFICATE_BUILDER_H_
#define TESTS_CODE_SIGNING_CERTIFICATE_BUILDER_H_

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/code_signing/certificate.h"

namespace platform::code_signing {

using TestKey = std::shared_ptr<EVP_PKEY>;

TestKey MakeEcKey(const char* curve = "P-256");
TestKey MakeRsaKey(unsigned bits);

/// What a certificate of a test says. Times are seconds since the Unix epoch.
struct CertificatePlan {
  std::string name;  ///< common name of the subject; empty for an empty subject
  std::string issuerName;
  TestKey key;
  TestKey issuerKey;
  /// Names of extensions and their values, as in an OpenSSL configuration file.
  std::vector<std::pair<std::string, std::string>> extensions;
  long version = X509_VERSION_3;
  const EVP_MD* digest = EVP_sha256();
  std::int64_t notBefore = 1000;
  std::int64_t notAfter = 2000;
};

CertificatePtr MakeCertificate(const CertificatePlan& plan);

/// Makes a certificate that is signed with its own new key.
/// @param subject pairs of an attribute's short name ("CN") and its text, in order.
/// @param extensions identifiers (dotted numbers) of empty extensions.
CertificatePtr MakeNamedCertificate(const std::vector<std::pair<std::string, std::string>>& subject,
                                    const std::vector<std::string>& extensions = {});

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_CERTIFICATE_BUILDER_H_
