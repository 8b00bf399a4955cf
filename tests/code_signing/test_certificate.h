#ifndef TESTS_CODE_SIGNING_TEST_CERTIFICATE_H_
#define TESTS_CODE_SIGNING_TEST_CERTIFICATE_H_

#include <openssl/x509.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace platform::code_signing {

struct FreeCertificate {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using TestCertificate = std::unique_ptr<X509, FreeCertificate>;

/// Makes a certificate that is signed with its own new key.
/// @param subject pairs of an attribute's short name ("CN") and its text, in order.
/// @param extensions identifiers (dotted numbers) of empty extensions.
TestCertificate MakeCertificate(const std::vector<std::pair<std::string, std::string>>& subject,
                                const std::vector<std::string>& extensions = {});

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_TEST_CERTIFICATE_H_
