#include "platform/linux/code_signing/certificate.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <new>
#include <string_view>

#include "platform/linux/code_signing/libcrypto.h"
#include "platform/linux/code_signing/subject_text.h"

namespace platform::code_signing {
namespace {

using Fingerprint = std::array<unsigned char, 32>;

// SHA-256 of Apple's roots, as published at apple.com/certificateauthority and in its open trust
// store: Apple Root CA, G2, G3, and the two platform roots for back-ported systems.
constexpr Fingerprint kAppleRoots[] = {
    {0xb0, 0xb1, 0x73, 0x0e, 0xcb, 0xc7, 0xff, 0x45, 0x05, 0x14, 0x2c,
     0x49, 0xf1, 0x29, 0x5e, 0x6e, 0xda, 0x6b, 0xca, 0xed, 0x7e, 0x2c,
     0x68, 0xc5, 0xbe, 0x91, 0xb5, 0xa1, 0x10, 0x01, 0xf0, 0x24},
    {0xc2, 0xb9, 0xb0, 0x42, 0xdd, 0x57, 0x83, 0x0e, 0x7d, 0x11, 0x7d,
     0xac, 0x55, 0xac, 0x8a, 0xe1, 0x94, 0x07, 0xd3, 0x8e, 0x41, 0xd8,
     0x8f, 0x32, 0x15, 0xbc, 0x3a, 0x89, 0x04, 0x44, 0xa0, 0x50},
    {0x63, 0x34, 0x3a, 0xbf, 0xb8, 0x9a, 0x6a, 0x03, 0xeb, 0xb5, 0x7e,
     0x9b, 0x3f, 0x5f, 0xa7, 0xbe, 0x7c, 0x4f, 0x5c, 0x75, 0x6f, 0x30,
     0x17, 0xb3, 0xa8, 0xc4, 0x88, 0xc3, 0x65, 0x3e, 0x91, 0x79},
    {0xfb, 0x3f, 0x6c, 0xf6, 0x94, 0x67, 0xb5, 0xfa, 0x9f, 0xfa, 0x2b,
     0x3b, 0x39, 0x2b, 0x6e, 0x5e, 0x77, 0x5b, 0xbb, 0x09, 0xc7, 0x7b,
     0x6e, 0x75, 0x9e, 0x90, 0x38, 0xe2, 0x6b, 0xbf, 0x90, 0x49},
    {0xed, 0xa2, 0x3b, 0x3f, 0x22, 0x4f, 0x45, 0xe0, 0x95, 0x2f, 0x20,
     0xe4, 0xd2, 0xb3, 0x3e, 0x00, 0x0d, 0x49, 0xc8, 0x04, 0x4c, 0x11,
     0x68, 0xde, 0x47, 0xb4, 0x43, 0xcd, 0x2b, 0x35, 0x36, 0xdc},
};

std::optional<std::string> TextOfEntry(const X509& certificate, int index) {
  const X509_NAME* subject = X509_get_subject_name(&certificate);
  const X509_NAME_ENTRY* entry = X509_NAME_get_entry(subject, index);
  if (entry == nullptr) return std::nullopt;
  return SubjectText(*X509_NAME_ENTRY_get_data(entry));
}

}  // namespace

CertificatePtr ShareCertificate(X509* certificate) {
  X509_up_ref(certificate);
  return CertificatePtr(certificate, X509_free);
}

std::optional<std::string> SubjectAttribute(const X509& certificate, int nid) {
  const X509_NAME* subject = X509_get_subject_name(&certificate);
  int last = -1;
  for (int next = -1; (next = X509_NAME_get_index_by_NID(subject, nid, next)) >= 0;) {
    last = next;
  }
  if (last < 0) return std::nullopt;
  return TextOfEntry(certificate, last);
}

std::optional<std::string> CommonName(const X509& certificate) {
  return SubjectAttribute(certificate, NID_commonName);
}

std::optional<std::string> OrganizationalUnit(const X509& certificate) {
  const X509_NAME* subject = X509_get_subject_name(&certificate);
  const int first = X509_NAME_get_index_by_NID(subject, NID_organizationalUnitName, -1);
  if (first < 0) return std::nullopt;
  return TextOfEntry(certificate, first);
}

bool HasExtension(const X509& certificate, const char* identifier) {
  const ObjectPtr object = ObjectFromText(identifier);
  return object && X509_get_ext_by_OBJ(&certificate, object.get(), -1) >= 0;
}

std::string EncodedCertificate(const X509& certificate) {
  unsigned char* encoded = nullptr;
  const int length = i2d_X509(&certificate, &encoded);
  const BytesPtr owner(encoded);
  return {reinterpret_cast<char*>(encoded), length > 0 ? static_cast<std::size_t>(length) : 0};
}

bool HasCostlyKey(std::string_view bytes) {
  using std::literals::operator""sv;
  // The contents of the identifiers id-ecPublicKey and sm2.
  constexpr std::string_view kKinds[] = {"\x2A\x86\x48\xCE\x3D\x02\x01"sv,
                                         "\x2A\x81\x1C\xCF\x55\x01\x82\x2D"sv};
  constexpr std::string_view kContinuations[] = {
      // P-256, P-384 and P-521 with an uncompressed point
      "\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07\x03\x42\x00\x04"sv,
      "\x06\x05\x2B\x81\x04\x00\x22\x03\x62\x00\x04"sv,
      "\x06\x05\x2B\x81\x04\x00\x23\x03\x81\x86\x00\x04"sv,
      // the algorithm of a signature, with parameters that are absent or null
      "\x04"sv, "\x05\x00\x04"sv};
  for (const std::string_view kind : kKinds) {
    for (std::size_t at = bytes.find(kind); at != bytes.npos; at = bytes.find(kind, at + 1)) {
      const std::string_view rest = bytes.substr(at + kind.size());
      if (std::none_of(
              std::begin(kContinuations), std::end(kContinuations),
              [&](std::string_view next) { return rest.substr(0, next.size()) == next; })) {
        return true;
      }
    }
  }
  return false;
}

bool HasUsableKey(const X509& certificate) {
  constexpr int kMaxModulusBits = 8192;
  constexpr int kMaxExponentBits = 32;
  constexpr std::string_view kCurves[] = {SN_X9_62_prime256v1, SN_secp384r1, SN_secp521r1};
  const EVP_PKEY* const key = X509_get0_pubkey(&certificate);
  if (key == nullptr) return false;
  if (EVP_PKEY_is_a(key, "RSA") == 1) {
    BIGNUM* exponent = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &exponent);
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> owner(exponent, &BN_free);
    if (exponent == nullptr) throw std::bad_alloc();
    return EVP_PKEY_get_bits(key) <= kMaxModulusBits && BN_num_bits(exponent) <= kMaxExponentBits;
  }
  char curve[32] = "";
  return EVP_PKEY_is_a(key, "EC") == 1 &&
         EVP_PKEY_get_group_name(key, curve, sizeof curve, nullptr) == 1 &&
         std::find(std::begin(kCurves), std::end(kCurves), curve) != std::end(kCurves);
}

std::uint64_t VerificationCost(const X509& certificate) {
  constexpr int kUsualCurveBits = 256;
  constexpr int kUsualModulusBits = 4096;
  const EVP_PKEY* const key = X509_get0_pubkey(&certificate);
  if (key == nullptr) return 1;
  const int usual = EVP_PKEY_is_a(key, "EC") == 1 ? kUsualCurveBits : kUsualModulusBits;
  return EVP_PKEY_get_bits(key) <= usual ? 1 : 4;
}

bool IsSelfSigned(const X509& certificate) {
  if (X509_NAME_cmp(X509_get_subject_name(&certificate), X509_get_issuer_name(&certificate)) != 0) {
    return false;
  }
  if (!HasUsableKey(certificate)) return false;
  // X509_verify() only reads the certificate.
  return X509_verify(const_cast<X509*>(&certificate), X509_get0_pubkey(&certificate)) == 1;
}

bool IsAppleRoot(const X509& certificate) {
  Fingerprint fingerprint{};
  if (X509_digest(&certificate, EVP_sha256(), fingerprint.data(), nullptr) != 1) {
    throw std::bad_alloc();
  }
  return std::find(std::begin(kAppleRoots), std::end(kAppleRoots), fingerprint) !=
         std::end(kAppleRoots);
}

std::optional<std::int64_t> UnixTime(const ASN1_TIME* time) {
  std::tm parts{};
  if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return timegm(&parts);
}

bool IsValidAt(const X509& certificate, std::int64_t time) {
  const auto notBefore = UnixTime(X509_get0_notBefore(&certificate));
  const auto notAfter = UnixTime(X509_get0_notAfter(&certificate));
  return notBefore && notAfter && *notBefore <= time && time <= *notAfter;
}

}  // namespace platform::code_signing
