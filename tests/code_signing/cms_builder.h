#ifndef TESTS_CODE_SIGNING_CMS_BUILDER_H_
#define TESTS_CODE_SIGNING_CMS_BUILDER_H_

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/digest.h"

namespace platform::code_signing {

using TestKey = std::shared_ptr<EVP_PKEY>;

TestKey MakeEcKey(const char* curve = "P-256");
TestKey MakeRsaKey(unsigned bits);

/// The contents of a test's certificate. Times are seconds since the Unix epoch.
struct CertificatePlan {
  std::string name;  ///< common name of the subject; none when empty
  /// More attributes of the subject, in order: short names ("OU") and texts.
  std::vector<std::pair<std::string, std::string>> subject;
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

/// Makes a certificate with this subject that is signed with its own key.
/// @param extensions identifiers (dotted numbers) of extensions without a value.
CertificatePtr MakeNamedCertificate(const std::vector<std::pair<std::string, std::string>>& subject,
                                    const std::vector<std::string>& extensions = {});

/// A root and an intermediate authority.
struct TestAuthority {
  TestKey key;             ///< of the intermediate authority
  CertificateChain chain;  ///< both, the root last
};

TestAuthority MakeAuthority();

/// The signer of a test's message: a leaf under the authority.
struct TestSigner {
  TestKey key;
  CertificateChain chain;
  TestAuthority authority;
};

/// @param purpose the extended key usage of the leaf.
/// @param key of the leaf.
TestSigner MakeSigner(const char* purpose = "codeSigning", const TestKey& key = MakeEcKey(),
                      const TestAuthority& authority = MakeAuthority());

/// The contents of a test's CMS message.
struct CmsPlan {
  std::string content;
  const char* contentType = "1.2.840.113549.1.7.1";
  bool isDetached = true;
  std::vector<TestSigner> signers;
  const EVP_MD* digest = EVP_sha256();
  /// Dotted identifiers, and DER of the values: sequences or octet strings.
  std::vector<std::pair<const char*, std::vector<std::string>>> signedAttributes;
};

std::string MakeCms(const CmsPlan& plan);

/// Makes an RFC 3161 token for `imprinted`, at the time 1500.
/// @param digest of the imprint: kSha1 or kSha256.
std::string MakeTimestampToken(const std::vector<TestSigner>& signers, const std::string& imprinted,
                               HashType digest = HashType::kSha256);

/// Encodes a value in DER. @param tag the whole identifier octet.
std::string Der(unsigned char tag, const std::string& contents);

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_CMS_BUILDER_H_
