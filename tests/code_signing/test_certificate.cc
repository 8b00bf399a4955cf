#include "tests/code_signing/test_certificate.h"

#include <openssl/asn1.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

namespace platform::code_signing {
namespace {

void AddEmptyExtension(X509& certificate, const std::string& oid) {
  const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(
      OBJ_txt2obj(oid.c_str(), 1), &ASN1_OBJECT_free);
  const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> value(
      ASN1_OCTET_STRING_new(), &ASN1_OCTET_STRING_free);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509_EXTENSION_create_by_OBJ(nullptr, object.get(), 0, value.get()), &X509_EXTENSION_free);
  X509_add_ext(&certificate, extension.get(), -1);
}

}  // namespace

TestCertificate MakeCertificate(const std::vector<std::pair<std::string, std::string>>& subject,
                                const std::vector<std::string>& extensions) {
  TestCertificate certificate(X509_new());
  X509_set_version(certificate.get(), X509_VERSION_3);
  X509_NAME* const name = X509_get_subject_name(certificate.get());
  for (const auto& [attribute, text] : subject) {
    X509_NAME_add_entry_by_txt(name, attribute.c_str(), MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(text.data()),
                               static_cast<int>(text.size()), -1, 0);
  }
  for (const std::string& oid : extensions) AddEmptyExtension(*certificate, oid);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                &EVP_PKEY_free);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  return certificate;
}

}  // namespace platform::code_signing
