#include "platform/linux/code_signing/cms_message.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>

#include "platform/linux/code_signing/ber_extent.h"
#include "platform/linux/code_signing/libcrypto.h"

namespace platform::code_signing {
namespace {

// Real messages are about ten thousand bytes long. Values can take 50 times the memory of their
// encoding.
constexpr std::size_t kMaxMessageSize = 64U << 10U;

constexpr char kSequenceTag = 0x30;

struct FreeBioChain {
  void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using BioPtr = std::unique_ptr<BIO, FreeBioChain>;

struct FreeDigestContext {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, FreeDigestContext>;

struct FreeCertificates {
  void operator()(STACK_OF(X509) * certificates) const {
    sk_X509_pop_free(certificates, X509_free);
  }
};

const unsigned char* UnsignedBytes(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

// The DER encoding of a constructed value.
std::string Encode(int tag, const std::string& contents) {
  const auto length = static_cast<int>(contents.size());
  std::string header(static_cast<std::size_t>(ASN1_object_size(1, length, tag)) - contents.size(),
                     '\0');
  auto* position = reinterpret_cast<unsigned char*>(header.data());
  ASN1_put_object(&position, 1, length, tag, V_ASN1_UNIVERSAL);
  return header + contents;
}

std::string EncodedObject(const ASN1_OBJECT& object) {
  std::string bytes(static_cast<std::size_t>(std::max(i2d_ASN1_OBJECT(&object, nullptr), 0)), '\0');
  auto* position = reinterpret_cast<unsigned char*>(bytes.data());
  i2d_ASN1_OBJECT(&object, &position);
  return bytes;
}

std::vector<const ASN1_TYPE*> ValuesOf(X509_ATTRIBUTE* attribute) {
  std::vector<const ASN1_TYPE*> values;
  const int count = X509_ATTRIBUTE_count(attribute);
  values.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    values.push_back(X509_ATTRIBUTE_get0_type(attribute, i));
  }
  return values;
}

// Digests of the MD family can be forged, and no tool signs code with them.
bool IsAcceptedDigest(int nid) {
  constexpr int kAccepted[] = {NID_sha1, NID_sha224, NID_sha256, NID_sha384, NID_sha512};
  return std::find(std::begin(kAccepted), std::end(kAccepted), nid) != std::end(kAccepted);
}

// The digest of some content, in the form that libcrypto compares with a signer's.
BioPtr DigestContent(const X509_ALGOR& algorithm, std::string_view content) {
  const EVP_MD* digest = EVP_get_digestbyobj(algorithm.algorithm);
  BioPtr chain(BIO_new(BIO_f_md()));
  if (digest == nullptr || !chain || BIO_set_md(chain.get(), digest) != 1) return nullptr;
  BIO_push(chain.get(), BIO_new(BIO_s_null()));
  const auto length = static_cast<int>(content.size());
  if (length > 0 && BIO_write(chain.get(), content.data(), length) != length) return nullptr;
  return chain;
}

// Iterates over the values in a piece of DER.
class DerCursor {
 public:
  DerCursor(const unsigned char* begin, long length) : position_(begin), end_(begin + length) {}

  bool AtEnd() const { return position_ == end_; }

  // Steps over one value. Returns its contents, which are empty at the end.
  DerCursor Next() {
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const unsigned char* contents = position_;
    if (AtEnd() ||
        (ASN1_get_object(&contents, &length, &tag, &tagClass, end_ - position_) & 0x80) != 0) {
      position_ = end_;
      return {end_, 0};
    }
    position_ = contents + length;
    return {contents, length};
  }

  // The next identifier octet.
  int NextIdentifier() {
    const ObjectPtr object(d2i_ASN1_OBJECT(nullptr, &position_, end_ - position_));
    return object ? OBJ_obj2nid(object.get()) : NID_undef;
  }

 private:
  const unsigned char* position_;
  const unsigned char* end_;
};

// The digests that signed data announces. libcrypto has no accessor for them.
std::set<int> AnnouncedDigests(const CMS_ContentInfo& message) {
  unsigned char* encoded = nullptr;
  const int length = i2d_CMS_ContentInfo(&message, &encoded);
  const BytesPtr owner(encoded);
  std::set<int> digests;
  if (length <= 0) return digests;
  DerCursor contentInfo = DerCursor(encoded, length).Next();
  contentInfo.Next();  // the message's type
  DerCursor signedData = contentInfo.Next().Next();
  signedData.Next();  // its version
  for (DerCursor list = signedData.Next(); !list.AtEnd();) {
    digests.insert(list.Next().NextIdentifier());
  }
  return digests;
}

}  // namespace

CertificatePtr CmsSigner::FindCertificate(const CertificateList& certificates) const {
  for (const CertificatePtr& certificate : certificates) {
    if (CMS_SignerInfo_cert_cmp(info_, certificate.get()) == 0) return certificate;
  }
  return nullptr;
}

bool CmsSigner::Verify(const CertificatePtr& certificate, std::string_view content) const {
  if (!HasUsableKey(*certificate)) return false;
  CMS_SignerInfo_set1_signer_cert(info_, certificate.get());
  if (!NamesOwnAlgorithm()) return false;
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(info_, nullptr, nullptr, &algorithm, nullptr);
  const int digestType = OBJ_obj2nid(algorithm->algorithm);
  if (announcedDigests_->count(digestType) == 0 || !IsAcceptedDigest(digestType)) return false;
  const BioPtr digest = DigestContent(*algorithm, content);
  if (!digest || CMS_SignerInfo_verify_content(info_, digest.get()) != 1) return false;
  // Without signed attributes, the signature over the content has just been verified.
  if (CMS_signed_get_attr_count(info_) <= 0) return true;
  return NamesContentType() && VerifySignedAttributes();
}

bool CmsSigner::VerifySignedAttributes() const {
  EVP_PKEY* key = nullptr;
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(info_, &key, nullptr, &digest, nullptr);
  const EVP_MD* algorithm = EVP_get_digestbyobj(digest->algorithm);
  const DigestContextPtr context(EVP_MD_CTX_new());
  if (algorithm == nullptr || !context) return false;
  if (EVP_DigestVerifyInit(context.get(), nullptr, algorithm, nullptr, key) != 1) return false;
  const std::string signedBytes = SignedAttributesEncoding();
  const std::string_view signature = Signature();
  return EVP_DigestVerify(context.get(), UnsignedBytes(signature), signature.size(),
                          UnsignedBytes(signedBytes), signedBytes.size()) == 1;
}

std::string CmsSigner::SignedAttributesEncoding() const {
  std::string attributes;
  for (int i = 0; i < CMS_signed_get_attr_count(info_); ++i) {
    X509_ATTRIBUTE* const attribute = CMS_signed_get_attr(info_, i);
    std::string values;
    for (const ASN1_TYPE* const value : ValuesOf(attribute)) values += EncodedBytes(*value);
    attributes += Encode(V_ASN1_SEQUENCE, EncodedObject(*X509_ATTRIBUTE_get0_object(attribute)) +
                                              Encode(V_ASN1_SET, values));
  }
  return Encode(V_ASN1_SET, attributes);
}

bool CmsSigner::NamesOwnAlgorithm() const {
  EVP_PKEY* key = nullptr;
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* signature = nullptr;
  CMS_SignerInfo_get0_algs(info_, &key, nullptr, &digest, &signature);
  if (key == nullptr) return false;  // a kind that libcrypto does not know
  const int named = OBJ_obj2nid(signature->algorithm);
  int namedDigest = NID_undef;
  int namedKey = NID_undef;
  if (OBJ_find_sigid_algs(named, &namedDigest, &namedKey) != 1) {
    return named == EVP_PKEY_base_id(key);
  }
  return namedKey == EVP_PKEY_base_id(key) && namedDigest == OBJ_obj2nid(digest->algorithm);
}

bool CmsSigner::NamesContentType() const {
  const auto values = SignedAttribute("1.2.840.113549.1.9.3");
  return values && values->size() == 1 && ASN1_TYPE_get(values->front()) == V_ASN1_OBJECT &&
         OBJ_cmp(values->front()->value.object, CMS_get0_eContentType(message_)) == 0;
}

std::string_view CmsSigner::Signature() const {
  const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(info_);
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(signature)),
          static_cast<std::size_t>(ASN1_STRING_length(signature))};
}

std::optional<std::vector<const ASN1_TYPE*>> CmsSigner::SignedAttribute(
    const char* identifier) const {
  const ObjectPtr object = ObjectFromText(identifier);
  const int first = CMS_signed_get_attr_by_OBJ(info_, object.get(), -1);
  if (first < 0 || CMS_signed_get_attr_by_OBJ(info_, object.get(), first) >= 0) return std::nullopt;
  return ValuesOf(CMS_signed_get_attr(info_, first));
}

std::optional<std::vector<const ASN1_TYPE*>> CmsSigner::UnsignedAttribute(
    const char* identifier) const {
  const ObjectPtr object = ObjectFromText(identifier);
  const int first = CMS_unsigned_get_attr_by_OBJ(info_, object.get(), -1);
  if (first < 0 || CMS_unsigned_get_attr_by_OBJ(info_, object.get(), first) >= 0) {
    return std::nullopt;
  }
  return ValuesOf(CMS_unsigned_get_attr(info_, first));
}

bool CmsSigner::HasUnsignedAttributes() const { return CMS_unsigned_get_attr_count(info_) > 0; }

std::optional<std::int64_t> CmsSigner::SigningTime() const {
  const auto values = SignedAttribute("1.2.840.113549.1.9.5");
  if (!values || values->size() != 1) return std::nullopt;
  const int type = ASN1_TYPE_get(values->front());
  if (type != V_ASN1_UTCTIME && type != V_ASN1_GENERALIZEDTIME) return std::nullopt;
  return UnixTime(values->front()->value.asn1_string);
}

CmsMessage::ParseResult CmsMessage::Parse(std::string_view bytes, CmsMessage& message) {
  if (!bytes.empty() && bytes.front() != kSequenceTag) return ParseResult::kMalformed;
  switch (FindBerExtent(bytes)) {
    case BerExtent::kTruncated:
      return ParseResult::kTruncated;
    case BerExtent::kMalformed:
      return ParseResult::kMalformed;
    case BerExtent::kComplete:
      break;
  }
  if (bytes.size() > kMaxMessageSize || HasCostlyKey(bytes)) return ParseResult::kMalformed;
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  message.message_.reset(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(bytes.size())));
  if (!message.message_) return ParseResult::kMalformed;
  message.announcedDigests_.clear();
  if (message.IsSignedData()) message.announcedDigests_ = AnnouncedDigests(*message.message_);
  return ParseResult::kComplete;
}

bool CmsMessage::IsSignedData() const {
  return OBJ_obj2nid(CMS_get0_type(message_.get())) == NID_pkcs7_signed;
}

std::vector<CmsSigner> CmsMessage::Signers() const {
  std::vector<CmsSigner> signers;
  if (!IsSignedData()) return signers;
  STACK_OF(CMS_SignerInfo)* infos = CMS_get0_SignerInfos(message_.get());
  for (int i = 0; i < sk_CMS_SignerInfo_num(infos); ++i) {
    signers.emplace_back(*message_, *sk_CMS_SignerInfo_value(infos, i), announcedDigests_);
  }
  return signers;
}

CertificateList CmsMessage::Certificates() const {
  CertificateList certificates;
  const std::unique_ptr<STACK_OF(X509), FreeCertificates> stack(CMS_get1_certs(message_.get()));
  for (int i = 0; i < sk_X509_num(stack.get()); ++i) {
    certificates.push_back(ShareCertificate(sk_X509_value(stack.get(), i)));
  }
  return certificates;
}

std::string CmsMessage::ContentType() const {
  char text[128];
  const int length = OBJ_obj2txt(text, sizeof(text), CMS_get0_eContentType(message_.get()), 1);
  return length >= 0 && length < static_cast<int>(sizeof(text)) ? text : std::string();
}

std::optional<std::string_view> CmsMessage::Content() const {
  ASN1_OCTET_STRING** content = CMS_get0_content(message_.get());
  if (content == nullptr || *content == nullptr) return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(*content)),
                          static_cast<std::size_t>(ASN1_STRING_length(*content)));
}

std::string EncodedBytes(const ASN1_TYPE& value) {
  unsigned char* encoded = nullptr;
  const int length = i2d_ASN1_TYPE(&value, &encoded);
  const BytesPtr owner(encoded);
  return {reinterpret_cast<char*>(encoded), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace platform::code_signing
