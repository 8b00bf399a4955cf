#include "platform/linux/code_signing/chain_policy.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

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

// The extensions that the policy reads. Each is decoded once, so that a lack of memory cannot pass
// for an absent extension.
class Extensions {
 public:
  explicit Extensions(const X509& certificate)
      : basicConstraints(Decode<BasicConstraints>(certificate, NID_basic_constraints)),
        keyUsage(Decode<BitString>(certificate, NID_key_usage)),
        keyPurposes(Decode<KeyPurposes>(certificate, NID_ext_key_usage)),
        subjectKeyId(Decode<OctetString>(certificate, NID_subject_key_identifier)),
        authorityKeyId(Decode<AuthorityKeyId>(certificate, NID_authority_key_identifier)),
        nameConstraints(Decode<NameConstraints>(certificate, NID_name_constraints)) {}

  bool areBroken = false;  ///< whether one is repeated or cannot be decoded; it is then null

  BasicConstraints basicConstraints;
  BitString keyUsage;
  KeyPurposes keyPurposes;
  OctetString subjectKeyId;
  AuthorityKeyId authorityKeyId;
  NameConstraints nameConstraints;

 private:
  template <typename OwnedType>
  OwnedType Decode(const X509& certificate, int nid) {
    int critical = -1;  // keeps this value only for an absent extension
    OwnedType value(static_cast<typename OwnedType::pointer>(
        X509_get_ext_d2i(&certificate, nid, &critical, nullptr)));
    if (!value && critical != -1) areBroken = true;
    return value;
  }
};

// Bits of a key usage, numbered as in RFC 5280.
enum KeyUsageBit : int { kDigitalSignature = 0, kNonRepudiation = 1, kKeyCertSign = 5 };

// Extensions that may be critical because the policy knows them. Those that constrain policies are
// missing on purpose: no policy tree is computed.
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

// Apple's own extensions have these prefixes.
constexpr const char* kAppleArcs[] = {
    "1.2.840.113635.100.6.",  "1.2.840.113635.100.11.", "1.2.840.113635.100.12.",
    "1.2.840.113635.100.13.", "1.2.840.113635.100.15.",
};

std::string DottedText(const ASN1_OBJECT* object) {
  char text[128];
  const int length = OBJ_obj2txt(text, sizeof(text), object, 1);
  // The cast makes a failure's negative number a large one.
  return static_cast<std::size_t>(length) < sizeof(text) ? text : std::string();
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

enum class Answer { kNo, kYes, kNotStated };

Answer KeyUsageAllows(const Extensions& extensions, KeyUsageBit bit) {
  if (!extensions.keyUsage) return Answer::kNotStated;
  return ASN1_BIT_STRING_get_bit(extensions.keyUsage.get(), bit) != 0 ? Answer::kYes : Answer::kNo;
}

bool HasKeyPurpose(const Extensions& extensions, int purpose) {
  const EXTENDED_KEY_USAGE* const purposes = extensions.keyPurposes.get();
  for (int i = 0; i < sk_ASN1_OBJECT_num(purposes); ++i) {
    if (OBJ_obj2nid(sk_ASN1_OBJECT_value(purposes, i)) == purpose) return true;
  }
  return false;
}

bool HasWeakKey(const X509& certificate) {
  if (!HasUsableKey(certificate)) return true;
  const EVP_PKEY* const key = X509_get0_pubkey(&certificate);
  const int smallest = EVP_PKEY_get_base_id(key) == EVP_PKEY_EC ? 160 : 1024;
  return EVP_PKEY_get_bits(key) < smallest;
}

bool HasWeakSignature(const X509& certificate) {
  int digest = NID_undef;
  OBJ_find_sigid_algs(X509_get_signature_nid(&certificate), &digest, nullptr);
  constexpr int kWeak[] = {NID_md2, NID_md4, NID_md5};
  return std::count(std::begin(kWeak), std::end(kWeak), digest) > 0 && !IsSelfSigned(certificate);
}

bool IsVersion3(const X509& certificate) {
  return X509_get_version(&certificate) >= X509_VERSION_3;
}

bool IsCa(const Extensions& extensions) {
  return extensions.basicConstraints && extensions.basicConstraints->ca != 0;
}

bool HasEmptySubject(const X509& certificate, const Extensions& extensions) {
  if (X509_NAME_entry_count(X509_get_subject_name(&certificate)) > 0) return false;
  const int position = X509_get_ext_by_NID(&certificate, NID_subject_alt_name, -1);
  const bool namedOtherwise =
      position >= 0 && X509_EXTENSION_get_critical(X509_get_ext(&certificate, position)) != 0;
  return IsCa(extensions) || !namedOtherwise;
}

bool IsSelfIssued(const X509& certificate) {
  return X509_NAME_cmp(X509_get_subject_name(&certificate), X509_get_issuer_name(&certificate)) ==
         0;
}

// The smallest rank is reported; of equal ranks, the one that comes first in the chain.
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

class ChainEvaluation {
 public:
  ChainEvaluation(const CertificateChain& chain, std::int64_t time, DateRule dateRule)
      : chain_(chain), time_(time), dateRule_(dateRule) {
    for (const CertificatePtr& certificate : chain_) extensions_.emplace_back(*certificate);
  }

  OsStatus Evaluate(ChainPurpose purpose, const TrustStore& trust) {
    CheckLeaf(purpose);
    for (std::size_t i = 0; i < chain_.size(); ++i) {
      CheckCertificate(*chain_[i], extensions_[i]);
      if (i > 0) CheckIssuer(i, trust);
      if (i + 1 < chain_.size()) CheckLink(extensions_[i], extensions_[i + 1]);
    }
    if (!trust.IsAnchor(*chain_.back())) Fail(kTpNotTrusted);
    return status_;
  }

 private:
  void Fail(OsStatus status) {
    if (status_ == kErrSecSuccess || Priority(status) < Priority(status_)) status_ = status;
  }

  void CheckLeaf(ChainPurpose purpose) {
    const Extensions& leaf = extensions_.front();
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

  void CheckCertificate(const X509& certificate, const Extensions& extensions) {
    // For code, Apple's roots never expire.
    if (dateRule_ == DateRule::kEnforce && !IsAppleRoot(certificate) &&
        !IsValidAt(certificate, time_)) {
      Fail(kTpCertExpired);
    }
    if (extensions.areBroken) Fail(kTpUnknownCertificateExtension);
    if (HasUnknownCriticalExtension(certificate)) Fail(kTpUnknownCriticalExtension);
    if (HasWeakKey(certificate)) Fail(kTpInvalidCertificate);
    if (HasWeakSignature(certificate)) Fail(kInvalidDigestAlgorithm);
    if (HasEmptySubject(certificate, extensions)) Fail(kTpInvalidEmptySubject);
  }

  void CheckIssuer(std::size_t position, const TrustStore& trust) {
    const Extensions& issuer = extensions_[position];
    const BASIC_CONSTRAINTS* const constraints = issuer.basicConstraints.get();
    if (!IsVersion3(*chain_[position])) {
      // Older versions have no extensions that could mark an authority.
      if (!trust.IsAnchor(*chain_[position])) Fail(kTpNoBasicConstraints);
    } else if (constraints == nullptr) {
      Fail(kTpNoBasicConstraints);
    } else if (constraints->ca == 0) {
      Fail(kTpInvalidCa);
    } else if (constraints->pathlen != nullptr &&
               !PathIsShortEnough(*constraints->pathlen, position)) {
      Fail(kTpPathLengthExceeded);
    }
    if (KeyUsageAllows(issuer, kKeyCertSign) == Answer::kNo) Fail(kTpInvalidKeyUsage);
    if (issuer.nameConstraints) CheckNames(*issuer.nameConstraints, position);
  }

  // Counts the intermediate certificates below an issuer, except self-issued ones.
  bool PathIsShortEnough(const ASN1_INTEGER& limit, std::size_t position) const {
    const auto below =
        std::count_if(chain_.begin() + 1, chain_.begin() + static_cast<std::ptrdiff_t>(position),
                      [](const CertificatePtr& c) { return !IsSelfIssued(*c); });
    std::int64_t number = -1;
    return ASN1_INTEGER_get_int64(&number, &limit) != 1 ? ASN1_STRING_type(&limit) == V_ASN1_INTEGER
                                                        : below <= number;
  }

  void CheckNames(NAME_CONSTRAINTS& constraints, std::size_t position) {
    for (std::size_t i = 0; i < position; ++i) {
      // libcrypto decodes the names here, once, and accepts what it could not decode.
      const bool isDecoded = (X509_get_extension_flags(chain_[i].get()) & EXFLAG_INVALID) == 0;
      if (!isDecoded || NAME_CONSTRAINTS_check(chain_[i].get(), &constraints) != X509_V_OK) {
        Fail(kTpInvalidCertificate);
      }
    }
  }

  void CheckLink(const Extensions& certificate, const Extensions& issuer) {
    const AUTHORITY_KEYID* const stated = certificate.authorityKeyId.get();
    const ASN1_OCTET_STRING* const actual = issuer.subjectKeyId.get();
    if (stated != nullptr && stated->keyid != nullptr && actual != nullptr &&
        ASN1_OCTET_STRING_cmp(stated->keyid, actual) != 0) {
      Fail(kTpInvalidAuthorityId);
    }
  }

  const CertificateChain& chain_;
  std::vector<Extensions> extensions_;  ///< of each certificate
  const std::int64_t time_;
  const DateRule dateRule_;
  OsStatus status_ = kErrSecSuccess;
};

}  // namespace

OsStatus EvaluateChain(const CertificateChain& chain, ChainPurpose purpose, std::int64_t time,
                       DateRule dateRule, const TrustStore& trust) {
  return ChainEvaluation(chain, time, dateRule).Evaluate(purpose, trust);
}

bool IsAppleDeveloperChain(const CertificateChain& chain) {
  constexpr char kDeveloperIdLeaf[] = "1.2.840.113635.100.6.1.13";
  constexpr char kDeveloperIdIssuer[] = "1.2.840.113635.100.6.2.6";
  // Markers of the Mac and iOS developer programs and their stores.
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
