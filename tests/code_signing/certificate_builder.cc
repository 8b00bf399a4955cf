#include "tests/code_signing/certificate_builder.h"

#include <openssl/asn1.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace platform::code_signing {
namespace {

void SetName(X509_NAME* name, const std::string& text) {
  if (text.empty()) return;
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<int>(text.size()), -1, 0);
}

void AddExtension(X509& certificate, const std::string& name, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, nullptr, &certificate, nullptr, nullptr, 0);
  X509_EXTENSION* const extension =
      X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str());
  if (extension == nullptr) throw std::invalid_argument(name + " = " + value);
  X509_add_ext(&certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

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

TestKey MakeEcKey(const char* curve) { return {EVP_EC_gen(curve), EVP_PKEY_free}; }

TestKey MakeRsaKey(unsigned bits) { return {EVP_RSA_gen(bits), EVP_PKEY_free}; }

CertificatePtr MakeCertificate(const CertificatePlan& plan) {
  static long serialNumber = 0;
  CertificatePtr certificate(X509_new(), X509_free);
  X509* const x509 = certificate.get();
  X509_set_version(x509, plan.version);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), ++serialNumber);
  SetName(X509_get_subject_name(x509), plan.name);
  SetName(X509_get_issuer_name(x509), plan.issuerName);
  ASN1_TIME_set(X509_getm_notBefore(x509), plan.notBefore);
  ASN1_TIME_set(X509_getm_notAfter(x509), plan.notAfter);
  X509_set_pubkey(x509, plan.key.get());
  for (const auto& [name, value] : plan.extensions) AddExtension(*x509, name, value);
  if (X509_sign(x509, plan.issuerKey.get(), plan.digest) == 0) {
    throw std::invalid_argument("cannot sign " + plan.name);
  }
  return certificate;
}

CertificatePtr MakeNamedCertificate(const std::vector<std::pair<std::string, std::string>>& subject,
                                    const std::vector<std::string>& extensions) {
  CertificatePtr certificate(X509_new(), X509_free);
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
  const TestKey key = MakeEcKey();
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  return certificate;
}

}  // namespace platform::code_signing
