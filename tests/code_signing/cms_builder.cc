#include "tests/code_signing/cms_builder.h"

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>

#include <stdexcept>

#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/libcrypto.h"

namespace platform::code_signing {
namespace {

constexpr char kTstInfoType[] = "1.2.840.113549.1.9.16.1.4";
constexpr char kTimestampToken[] = "1.2.840.113549.1.9.16.2.14";
constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kOctetString = 0x04;

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
    if (!plan.timestampToken.empty()) {
      Require(CMS_unsigned_add1_attr_by_txt(info, kTimestampToken, V_ASN1_SEQUENCE,
                                            plan.timestampToken.data(),
                                            static_cast<int>(plan.timestampToken.size())) == 1);
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

std::string MakeTimestampToken(const std::vector<TestSigner>& signers,
                               const std::string& imprinted) {
  const std::string sha256(Der(kSequence, "\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01"));
  const std::string imprint =
      Der(kSequence, sha256 + Der(kOctetString, DigestOf(HashType::kSha256, imprinted)));
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

std::string SignatureOf(const std::string& message) {
  CmsMessage parsed;
  CmsMessage::Parse(message, parsed);
  return std::string(parsed.Signers().front().Signature());
}

}  // namespace platform::code_signing
