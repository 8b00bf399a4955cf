#include "tests/code_signing/test_chain.h"

#include <openssl/ec.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

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

}  // namespace platform::code_signing
