#include "tests/code_signing/cms_builder.h"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/libcrypto.h"

namespace platform::code_signing {
namespace {

constexpr char kTstInfoType[] = "1.2.840.113549.1.9.16.1.4";
constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kOctetString = 0x04;

void AddName(X509_NAME* name, const std::string& attribute, const std::string& text) {
  if (text.empty()) return;
  X509_NAME_add_entry_by_txt(name, attribute.c_str(), MBSTRING_UTF8,
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

void Require(bool isDone) {
  if (!isDone) throw std::runtime_error("libcrypto cannot make the message");
}

void AddAttribute(CMS_SignerInfo& info, const char* identifier,
                  const std::vector<std::string>& values) {
  const std::unique_ptr<X509_ATTRIBUTE, decltype(&X509_ATTRIBUTE_free)> attribute(
      X509_ATTRIBUTE_new(), &X509_ATTRIBUTE_free);
  X509_ATTRIBUTE_set1_object(attribute.get(), ObjectFromText(identifier).get());
  for (const std::string& value : values) {
    const auto* position = reinterpret_cast<const unsigned char*>(value.data());
    const std::unique_ptr<ASN1_TYPE, decltype(&ASN1_TYPE_free)> parsed(
        d2i_ASN1_TYPE(nullptr, &position, static_cast<long>(value.size())), &ASN1_TYPE_free);
    Require(parsed != nullptr);
    Require(X509_ATTRIBUTE_set1_data(attribute.get(), ASN1_TYPE_get(parsed.get()),
                                     parsed->value.asn1_string->data,
                                     parsed->value.asn1_string->length) == 1);
  }
  Require(CMS_signed_add1_attr(&info, attribute.get()) == 1);
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
  X509_NAME* const subject = X509_get_subject_name(x509);
  AddName(subject, "CN", plan.name);
  for (const auto& [attribute, text] : plan.subject) AddName(subject, attribute, text);
  AddName(X509_get_issuer_name(x509), "CN", plan.issuerName);
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
  CertificatePlan plan;
  plan.subject = subject;
  plan.key = plan.issuerKey = MakeEcKey();
  for (const std::string& identifier : extensions) {
    plan.extensions.emplace_back(identifier, "DER:05:00");
  }
  return MakeCertificate(plan);
}

TestAuthority MakeAuthority() {
  CertificatePlan root;
  root.name = root.issuerName = "Root";
  root.key = root.issuerKey = MakeEcKey();
  root.extensions = {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "keyCertSign"}};
  CertificatePlan intermediate = root;
  intermediate.name = "Intermediate";
  intermediate.key = MakeEcKey();
  return {intermediate.key, {MakeCertificate(intermediate), MakeCertificate(root)}};
}

TestSigner MakeSigner(const char* purpose, const TestKey& key, const TestAuthority& authority) {
  CertificatePlan leaf;
  leaf.name = "Leaf";
  leaf.issuerName = "Intermediate";
  leaf.key = key;
  leaf.issuerKey = authority.key;
  leaf.extensions = {{"keyUsage", "critical,digitalSignature"}, {"extendedKeyUsage", purpose}};
  CertificateChain chain = authority.chain;
  chain.insert(chain.begin(), MakeCertificate(leaf));
  return {key, chain, authority};
}

std::string MakeCms(const CmsPlan& plan) {
  const unsigned flags = CMS_BINARY | CMS_PARTIAL | (plan.isDetached ? CMS_DETACHED : 0U);
  const std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> message(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, flags), &CMS_ContentInfo_free);
  Require(message != nullptr);
  CMS_set1_eContentType(message.get(), ObjectFromText(plan.contentType).get());
  for (const TestSigner& signer : plan.signers) {
    CMS_SignerInfo* const info =
        CMS_add1_signer(message.get(), signer.chain.front().get(), signer.key.get(), plan.digest,
                        flags | CMS_NOSMIMECAP | CMS_NOCERTS);
    Require(info != nullptr);
    for (const auto& [identifier, values] : plan.signedAttributes) {
      AddAttribute(*info, identifier, values);
    }
    for (const CertificatePtr& certificate : signer.chain) {
      CMS_add1_cert(message.get(), certificate.get());
    }
  }
  const std::unique_ptr<BIO, decltype(&BIO_free)> content(
      BIO_new_mem_buf(plan.content.data(), static_cast<int>(plan.content.size())), &BIO_free);
  Require(CMS_final(message.get(), content.get(), nullptr, flags) == 1);
  unsigned char* encoded = nullptr;
  const int length = i2d_CMS_ContentInfo(message.get(), &encoded);
  const BytesPtr owner(encoded);
  Require(length > 0);
  return {reinterpret_cast<char*>(encoded), static_cast<std::size_t>(length)};
}

std::string MakeTimestampToken(const std::vector<TestSigner>& signers, const std::string& imprinted,
                               HashType digest) {
  const std::string algorithm =
      Der(0x06, digest == HashType::kSha1 ? "\x2B\x0E\x03\x02\x1A"
                                          : "\x60\x86\x48\x01\x65\x03\x04\x02\x01");
  const std::string imprint =
      Der(kSequence, Der(kSequence, algorithm) + Der(kOctetString, DigestOf(digest, imprinted)));
  CmsPlan plan;
  plan.content = Der(kSequence, Der(0x02, "\x01") + Der(0x06, "\x2A\x03") + imprint +
                                    Der(0x02, "\x01") + Der(0x18, "19700101002500Z"));
  plan.contentType = kTstInfoType;
  plan.isDetached = false;
  plan.signers = signers;
  return MakeCms(plan);
}

std::string Der(unsigned char tag, const std::string& contents) {
  std::string length(1, static_cast<char>(contents.size()));
  if (contents.size() >= 0x80) {
    length = {'\x82', static_cast<char>(contents.size() >> 8U), static_cast<char>(contents.size())};
  }
  return static_cast<char>(tag) + length + contents;
}

}  // namespace platform::code_signing
