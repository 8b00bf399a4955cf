#include "platform/linux/code_signing/chain_policy.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace platform::code_signing {
namespace {

template <typename T, void (*kFree)(T*)>
struct FreeWith {
  void operator()(T* object) const { kFree(object); }
};

template <typename T, void (*kFree)(T*)>
using Owned = std::unique_ptr<T, FreeWith<T, kFree>>;

using BasicConstraints = Owned<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free>;
using BitString = Owned<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using OctetString = Owned<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using AuthorityKeyId = Owned<AUTHORITY_KEYID, AUTHORITY_KEYID_free>;
using KeyPurposes = Owned<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>;
using NameConstraints = Owned<NAME_CONSTRAINTS, NAME_CONSTRAINTS_free>;

// The decoded extension; null when it is absent, repeated or not decodable. What the two latter
// mean is decided by HasBrokenExtension().
template <typename OwnedType>
OwnedType Extension(const X509& certificate, int nid) {
  return OwnedType(static_cast<typename OwnedType::pointer>(
      X509_get_ext_d2i(&certificate, nid, nullptr, nullptr)));
}

// Bits of a key usage, numbered as in RFC 5280.
enum KeyUsageBit : int { kDigitalSignature = 0, kNonRepudiation = 1, kKeyCertSign = 5 };

// Extensions whose meaning is known, so that they may be critical. Those that constrain policies
// are left out on purpose: no policy tree is computed here.
constexpr int kKnownExtensions[] = {
    NID_subject_key_identifier,
    NID_key_usage,
    NID_private_key_usage_period,
    NID_subject_alt_name,
    NID_issuer_alt_name,
    NID_basic_constraints,
    NID_name_constraints,
    NID_crl_distribution_points,
    NID_certificate_policies,
    NID_authority_key_identifier,
    NID_ext_key_usage,
    NID_info_access,
    NID_sinfo_access,
    NID_netscape_cert_type,
};

// Apple's own extensions lie below these.
constexpr const char* kAppleArcs[] = {
    "1.2.840.113635.100.6.",  "1.2.840.113635.100.11.", "1.2.840.113635.100.12.",
    "1.2.840.113635.100.13.", "1.2.840.113635.100.15.",
};

std::string DottedText(const ASN1_OBJECT* object) {
  char text[128];
  const int length = OBJ_obj2txt(text, sizeof(text), object, 1);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof(text)) return {};
  return text;
}

bool IsKnownExtension(const ASN1_OBJECT* object) {
  const int nid = OBJ_obj2nid(object);
  if (nid != NID_undef &&
      std::count(std::begin(kKnownExtensions), std::end(kKnownExtensions), nid)) {
    return true;
  }
  const std::string text = DottedText(object);
  return std::any_of(std::begin(kAppleArcs), std::end(kAppleArcs),
                     [&](const char* arc) { return text.compare(0, std::strlen(arc), arc) == 0; });
}

bool HasUnknownCriticalExtension(const X509& certificate) {
  for (int i = 0; i < X509_get_ext_count(&certificate); ++i) {
    X509_EXTENSION* extension = X509_get_ext(&certificate, i);
    if (X509_EXTENSION_get_critical(extension) != 0 &&
        !IsKnownExtension(X509_EXTENSION_get_object(extension))) {
      return true;
    }
  }
  return false;
}

// Whether an extension that the policy reads is there twice or cannot be decoded.
bool HasBrokenExtension(const X509& certificate) {
  constexpr int kRead[] = {NID_basic_constraints,
                           NID_key_usage,
                           NID_ext_key_usage,
                           NID_subject_key_identifier,
                           NID_authority_key_identifier,
                           NID_name_constraints};
  return std::any_of(std::begin(kRead), std::end(kRead), [&](int nid) {
    int critical = -1;  // stays so only for an absent extension
    void* value = X509_get_ext_d2i(&certificate, nid, &critical, nullptr);
    if (value == nullptr) return critical != -1;
    ASN1_item_free(static_cast<ASN1_VALUE*>(value), X509V3_EXT_get_nid(nid)->it());
    return false;
  });
}

enum class Answer { kNo, kYes, kNotStated };

Answer KeyUsageAllows(const X509& certificate, KeyUsageBit bit) {
  const auto usage = Extension<BitString>(certificate, NID_key_usage);
  if (!usage) return Answer::kNotStated;
  return ASN1_BIT_STRING_get_bit(usage.get(), bit) != 0 ? Answer::kYes : Answer::kNo;
}

bool HasKeyPurpose(const X509& certificate, int purpose) {
  const auto purposes = Extension<KeyPurposes>(certificate, NID_ext_key_usage);
  for (int i = 0; purposes && i < sk_ASN1_OBJECT_num(purposes.get()); ++i) {
    if (OBJ_obj2nid(sk_ASN1_OBJECT_value(purposes.get(), i)) == purpose) return true;
  }
  return false;
}

bool HasWeakKey(const X509& certificate) {
  const EVP_PKEY* key = X509_get0_pubkey(&certificate);
  if (key == nullptr) return true;
  const int smallest = EVP_PKEY_get_base_id(key) == EVP_PKEY_EC ? 160 : 1024;
  return EVP_PKEY_get_bits(key) < smallest;
}

bool HasWeakSignature(const X509& certificate) {
  int digest = NID_undef;
  OBJ_find_sigid_algs(X509_get_signature_nid(&certificate), &digest, nullptr);
  const bool weak = digest == NID_md2 || digest == NID_md4 || digest == NID_md5;
  return weak && !IsSelfSigned(certificate);
}

bool IsVersion3(const X509& certificate) {
  return X509_get_version(&certificate) >= X509_VERSION_3;
}

bool IsCa(const X509& certificate) {
  const auto constraints = Extension<BasicConstraints>(certificate, NID_basic_constraints);
  return constraints && constraints->ca != 0;
}

bool HasEmptySubject(const X509& certificate) {
  if (X509_NAME_entry_count(X509_get_subject_name(&certificate)) > 0) return false;
  const int position = X509_get_ext_by_NID(&certificate, NID_subject_alt_name, -1);
  const bool namedOtherwise =
      position >= 0 && X509_EXTENSION_get_critical(X509_get_ext(&certificate, position)) != 0;
  return IsCa(certificate) || !namedOtherwise;
}

bool IsSelfIssued(const X509& certificate) {
  return X509_NAME_cmp(X509_get_subject_name(&certificate), X509_get_issuer_name(&certificate)) ==
         0;
}

// Of two failures the smaller number is reported; equal ones go by their place in the chain.
int Priority(OsStatus status) {
  switch (status) {
    case kTpNoBasicConstraints:
    case kTpInvalidEmptySubject:
    case kTpInvalidAuthorityId:
    case kTpInvalidCertificate:
    case kTpUnknownCriticalExtension:
      return 2;
    case kTpCertExpired:
      return 3;
    case kTpNotTrusted:
      return 4;
    default:
      return 5;
  }
}

class ChainJudge {
 public:
  ChainJudge(const CertificateChain& chain, std::int64_t time, DateRule dateRule)
      : chain_(chain), time_(time), dateRule_(dateRule) {}

  OsStatus Judge(ChainPurpose purpose, const TrustStore& trust) {
    JudgeLeaf(purpose);
    for (std::size_t i = 0; i < chain_.size(); ++i) {
      JudgeAny(*chain_[i]);
      if (i > 0) JudgeIssuer(*chain_[i], i);
      if (i + 1 < chain_.size()) JudgeLink(*chain_[i], *chain_[i + 1]);
    }
    if (!trust.IsAnchor(*chain_.back())) Fail(kTpNotTrusted);
    return status_;
  }

 private:
  void Fail(OsStatus status) {
    if (status_ == kErrSecSuccess || Priority(status) < Priority(status_)) status_ = status;
  }

  void JudgeLeaf(ChainPurpose purpose) {
    const X509& leaf = *chain_.front();
    if (purpose == ChainPurpose::kTimeStamping) {
      if (!HasKeyPurpose(leaf, NID_time_stamp)) Fail(kTpInvalidExtendedKeyUsage);
      return;
    }
    if (!HasKeyPurpose(leaf, NID_code_sign)) Fail(kTpInvalidExtendedKeyUsage);
    if (KeyUsageAllows(leaf, kDigitalSignature) != Answer::kYes &&
        KeyUsageAllows(leaf, kNonRepudiation) != Answer::kYes) {
      Fail(kTpInvalidKeyUsage);
    }
  }

  void JudgeAny(const X509& certificate) {
    // Apple's roots never expire where code is concerned.
    if (dateRule_ == DateRule::kEnforce && !IsAppleRoot(certificate) &&
        !IsValidAt(certificate, time_)) {
      Fail(kTpCertExpired);
    }
    if (HasBrokenExtension(certificate)) Fail(kTpUnknownCertificateExtension);
    if (HasUnknownCriticalExtension(certificate)) Fail(kTpUnknownCriticalExtension);
    if (HasWeakKey(certificate)) Fail(kTpInvalidCertificate);
    if (HasWeakSignature(certificate)) Fail(kInvalidDigestAlgorithm);
    if (HasEmptySubject(certificate)) Fail(kTpInvalidEmptySubject);
  }

  void JudgeIssuer(const X509& issuer, std::size_t position) {
    const auto constraints = Extension<BasicConstraints>(issuer, NID_basic_constraints);
    if (!constraints) {
      // Certificates of the old versions have no extensions to say it in.
      if (IsVersion3(issuer)) Fail(kTpNoBasicConstraints);
    } else if (constraints->ca == 0) {
      Fail(kTpInvalidCa);
    } else if (constraints->pathlen != nullptr &&
               !PathIsShortEnough(*constraints->pathlen, position)) {
      Fail(kTpPathLengthExceeded);
    }
    if (KeyUsageAllows(issuer, kKeyCertSign) == Answer::kNo) Fail(kTpInvalidKeyUsage);
    JudgeNames(issuer, position);
  }

  // Counts the intermediate certificates below an issuer, without those that issued themselves.
  bool PathIsShortEnough(const ASN1_INTEGER& limit, std::size_t position) const {
    const auto below =
        std::count_if(chain_.begin() + 1, chain_.begin() + static_cast<std::ptrdiff_t>(position),
                      [](const CertificatePtr& c) { return !IsSelfIssued(*c); });
    std::int64_t number = -1;
    return ASN1_INTEGER_get_int64(&number, &limit) != 1 ? ASN1_STRING_type(&limit) == V_ASN1_INTEGER
                                                        : below <= number;
  }

  void JudgeNames(const X509& issuer, std::size_t position) {
    const auto constraints = Extension<NameConstraints>(issuer, NID_name_constraints);
    for (std::size_t i = 0; constraints && i < position; ++i) {
      // The check goes by what libcrypto has decoded of the extensions, which this makes it do.
      static_cast<void>(X509_get_extension_flags(chain_[i].get()));
      if (NAME_CONSTRAINTS_check(chain_[i].get(), constraints.get()) != X509_V_OK) {
        Fail(kTpInvalidCertificate);
      }
    }
  }

  void JudgeLink(const X509& certificate, const X509& issuer) {
    const auto stated = Extension<AuthorityKeyId>(certificate, NID_authority_key_identifier);
    const auto actual = Extension<OctetString>(issuer, NID_subject_key_identifier);
    if (stated && stated->keyid != nullptr && actual &&
        ASN1_OCTET_STRING_cmp(stated->keyid, actual.get()) != 0) {
      Fail(kTpInvalidAuthorityId);
    }
  }

  const CertificateChain& chain_;
  const std::int64_t time_;
  const DateRule dateRule_;
  OsStatus status_ = kErrSecSuccess;
};

}  // namespace

OsStatus JudgeChain(const CertificateChain& chain, ChainPurpose purpose, std::int64_t time,
                    DateRule dateRule, const TrustStore& trust) {
  return ChainJudge(chain, time, dateRule).Judge(purpose, trust);
}

bool IsAppleDeveloperChain(const CertificateChain& chain) {
  constexpr char kDeveloperIdLeaf[] = "1.2.840.113635.100.6.1.13";
  constexpr char kDeveloperIdIssuer[] = "1.2.840.113635.100.6.2.6";
  // Leaves of the Mac and iOS developer programs and of their stores.
  constexpr const char* kOtherLeaves[] = {"1.2.840.113635.100.6.1.2", "1.2.840.113635.100.6.1.12",
                                          "1.2.840.113635.100.6.1.7", "1.2.840.113635.100.6.1.4"};
  if (!IsAppleRoot(*chain.back())) return false;
  const X509& leaf = *chain.front();
  return std::any_of(std::begin(kOtherLeaves), std::end(kOtherLeaves),
                     [&](const char* marker) { return HasExtension(leaf, marker); }) ||
         (chain.size() > 1 && HasExtension(*chain[1], kDeveloperIdIssuer) &&
          HasExtension(leaf, kDeveloperIdLeaf));
}

}  // namespace platform::code_signing
