#ifndef TESTS_CODE_SIGNING_CMS_BUILDER_H_
#define TESTS_CODE_SIGNING_CMS_BUILDER_H_

#include <openssl/evp.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/code_signing/certificate_builder.h"

namespace platform::code_signing {

/// A root and an intermediate authority.
struct TestAuthority {
  TestKey key;             ///< of the intermediate authority
  CertificateChain chain;  ///< both, the root last
};

TestAuthority MakeAuthority();

/// Who signs a message of a test: a leaf under the authority.
struct TestSigner {
  TestKey key;
  CertificateChain chain;
  TestAuthority authority;
};

/// @param purpose the extended key usage of the leaf.
/// @param key of the leaf.
TestSigner MakeSigner(const char* purpose = "codeSigning", const TestKey& key = MakeEcKey(),
                      const TestAuthority& authority = MakeAuthority());

/// What a CMS message of a test is made of.
struct CmsPlan {
  std::string content;
  const char* contentType = "1.2.840.113549.1.7.1";
  bool isDetached = true;
  std::vector<TestSigner> signers;
  const EVP_MD* digest = EVP_sha256();
  /// Dotted identifiers, and DER of the values: sequences or octet strings.
  std::vector<std::pair<const char*, std::vector<std::string>>> signedAttributes;
  std::string timestampToken;  ///< of the only signer; none when empty
};

std::string MakeCms(const CmsPlan& plan);

/// An RFC 3161 token about `signature`, at the time 1500.
/// @param imprinted what the token says that it is about.
std::string MakeTimestampToken(const std::vector<TestSigner>& signers,
                               const std::string& imprinted);

/// DER of a value. @param tag the whole identifier octet.
std::string Der(unsigned char tag, const std::string& contents);

/// The octets of the first signer's signature of a message.
std::string SignatureOf(const std::string& message);

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_CMS_BUILDER_H_
