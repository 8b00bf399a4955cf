#include "platform/linux/code_signing/requirement.h"

#include <openssl/evp.h>
#include <openssl/objects.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/digest.h"
#include "platform/linux/code_signing/requirement_lexer.h"

namespace platform::code_signing {
namespace {

using Subject = RequirementSubject;
using Kind = RequirementToken::Kind;

constexpr std::size_t kMaxLength = std::size_t{64} << 10;
constexpr int kMaxDepth = 100;

// Position of a certificate: counted from the leaf, or from the root when negative.
constexpr int kLeaf = 0;
constexpr int kRoot = -1;
constexpr int kBelowRoot = -2;

/// @return null when the chain is too short.
const X509* CertificateAt(const Subject& subject, int position) {
  const int count = static_cast<int>(subject.certificates.size());
  const int index = position < 0 ? position + count : position;
  if (index < 0 || index >= count) return nullptr;
  return subject.certificates[static_cast<std::size_t>(index)];
}

bool HasText(const X509& certificate, int nid, std::string_view text) {
  return SubjectAttribute(certificate, nid) == text;
}

bool IsAnchoredAtApple(const Subject& subject) {
  const X509* const root = CertificateAt(subject, kRoot);
  return root != nullptr && IsAppleRoot(*root);
}

bool IsSignedByApple(const Subject& subject) {
  constexpr char kSoftwareSigning[] = "1.2.840.113635.100.6.22";
  const X509* const intermediate = CertificateAt(subject, kBelowRoot);
  const X509* const leaf = CertificateAt(subject, kLeaf);
  return IsAnchoredAtApple(subject) && intermediate != nullptr &&
         HasText(*intermediate, NID_commonName, "Apple Code Signing Certification Authority") &&
         HasText(*intermediate, NID_organizationName, "Apple Inc.") &&
         HasExtension(*leaf, kSoftwareSigning);
}

std::string Sha1Of(const X509& certificate) {
  std::string digest(DigestLength(HashType::kSha1), '\0');
  auto* const bytes = reinterpret_cast<unsigned char*>(digest.data());
  if (X509_digest(&certificate, EVP_sha1(), bytes, nullptr) != 1) throw std::bad_alloc();
  return digest;
}

struct AttributeKey {
  const char* key;
  int nid;
};

constexpr AttributeKey kAttributeKeys[] = {
    {"subject.C", NID_countryName},
    {"subject.CN", NID_commonName},
    {"subject.D", NID_description},
    {"subject.L", NID_localityName},
    {"subject.O", NID_organizationName},
    {"subject.OU", NID_organizationalUnitName},
    {"subject.ST", NID_stateOrProvinceName},
    {"subject.STREET", NID_streetAddress},
    {"subject.UID", NID_userId},
};

/// A condition on one certificate, which fails where the chain has none at that position.
template <typename Test>
Requirement OnCertificate(int position, Test test) {
  return [position, test = std::move(test)](const Subject& subject) {
    const X509* const certificate = CertificateAt(subject, position);
    return certificate != nullptr && test(*certificate);
  };
}

/// Recursive descent; only parentheses and "!" recurse.
class Parser {
 public:
  explicit Parser(std::vector<RequirementToken> tokens) : tokens_(std::move(tokens)) {}

  std::optional<Requirement> Parse() {
    std::optional<Requirement> requirement = ParseAlternatives();
    while (AcceptSymbol(";")) {
    }
    if (!requirement || Current().kind != Kind::kEnd) return std::nullopt;
    return requirement;
  }

 private:
  const RequirementToken& Current() const { return tokens_[position_]; }

  bool Accept(Kind kind, std::string_view text) {
    if (Current().kind != kind || Current().text != text) return false;
    ++position_;
    return true;
  }

  bool AcceptWord(std::string_view word) { return Accept(Kind::kWord, word); }
  bool AcceptSymbol(std::string_view symbol) { return Accept(Kind::kSymbol, symbol); }

  std::optional<std::string> AcceptText(std::initializer_list<Kind> kinds) {
    if (std::find(kinds.begin(), kinds.end(), Current().kind) == kinds.end()) return std::nullopt;
    return tokens_[position_++].text;
  }

  std::optional<std::string> AcceptValue() { return AcceptText({Kind::kWord, Kind::kString}); }

  /// Accepts a digest, which is always 20 bytes long.
  std::optional<std::string> AcceptHash() {
    std::optional<std::string> hash = AcceptText({Kind::kHash});
    if (!hash || hash->size() != DigestLength(HashType::kSha1)) return std::nullopt;
    return hash;
  }

  std::optional<Requirement> ParseAlternatives() {
    std::vector<Requirement> alternatives;
    do {
      std::optional<Requirement> alternative = ParseConjunction();
      if (!alternative) return std::nullopt;
      alternatives.push_back(std::move(*alternative));
    } while (AcceptWord("or"));
    if (alternatives.size() == 1) return std::move(alternatives.front());
    return [alternatives = std::move(alternatives)](const Subject& subject) {
      return std::any_of(alternatives.begin(), alternatives.end(),
                         [&](const Requirement& alternative) { return alternative(subject); });
    };
  }

  std::optional<Requirement> ParseConjunction() {
    std::vector<Requirement> conditions;
    do {
      std::optional<Requirement> condition = ParseCondition();
      if (!condition) return std::nullopt;
      conditions.push_back(std::move(*condition));
    } while (AcceptWord("and"));
    if (conditions.size() == 1) return std::move(conditions.front());
    return [conditions = std::move(conditions)](const Subject& subject) {
      return std::all_of(conditions.begin(), conditions.end(),
                         [&](const Requirement& condition) { return condition(subject); });
    };
  }

  std::optional<Requirement> ParseCondition() {
    if (AcceptSymbol("!")) return ParseNegation();
    if (AcceptSymbol("(")) return ParseParentheses();
    if (AcceptWord("identifier")) return ParseIdentifier();
    if (AcceptWord("cdhash")) return ParseCdHash();
    if (AcceptWord("anchor")) return ParseAnchor();
    if (AcceptWord("certificate") || AcceptWord("cert")) return ParseCertificate();
    return std::nullopt;
  }

  std::optional<Requirement> ParseNegation() {
    if (depth_ == kMaxDepth) return std::nullopt;
    ++depth_;
    std::optional<Requirement> condition = ParseCondition();
    --depth_;
    if (!condition) return std::nullopt;
    return
        [condition = std::move(*condition)](const Subject& subject) { return !condition(subject); };
  }

  std::optional<Requirement> ParseParentheses() {
    if (depth_ == kMaxDepth) return std::nullopt;
    ++depth_;
    std::optional<Requirement> inner = ParseAlternatives();
    --depth_;
    if (!AcceptSymbol(")")) return std::nullopt;
    return inner;
  }

  std::optional<Requirement> ParseIdentifier() {
    static_cast<void>(AcceptSymbol("="));
    const std::optional<std::string> identifier = AcceptValue();
    if (!identifier) return std::nullopt;
    return [identifier = *identifier](const Subject& subject) {
      return subject.identifier == identifier;
    };
  }

  std::optional<Requirement> ParseCdHash() {
    static_cast<void>(AcceptSymbol("="));
    const std::optional<std::string> hash = AcceptHash();
    if (!hash) return std::nullopt;
    return [hash = *hash](const Subject& subject) { return subject.cdHash == hash; };
  }

  std::optional<Requirement> ParseAnchor() {
    if (AcceptWord("apple")) return AcceptWord("generic") ? IsAnchoredAtApple : IsSignedByApple;
    if (!AcceptWord("generic")) return ParseCertificateCondition(kRoot);
    if (!AcceptWord("apple")) return std::nullopt;
    return IsAnchoredAtApple;
  }

  std::optional<Requirement> ParseCertificate() {
    if (AcceptWord("leaf")) return ParseCertificateCondition(kLeaf);
    if (AcceptWord("root")) return ParseCertificateCondition(kRoot);
    const int sign = AcceptSymbol("-") ? -1 : 1;
    const std::optional<std::string> number = AcceptText({Kind::kNumber});
    constexpr std::size_t kMaxDigits = 4;
    if (!number || number->size() > kMaxDigits) return std::nullopt;
    return ParseCertificateCondition(sign * std::stoi(*number));
  }

  std::optional<Requirement> ParseCertificateCondition(int position) {
    if (AcceptSymbol("[")) return ParseCertificateField(position);
    static_cast<void>(AcceptSymbol("="));
    const std::optional<std::string> hash = AcceptHash();
    if (!hash) return std::nullopt;
    return OnCertificate(
        position, [hash = *hash](const X509& certificate) { return Sha1Of(certificate) == hash; });
  }

  std::optional<Requirement> ParseCertificateField(int position) {
    constexpr std::string_view kField = "field.";
    const std::optional<std::string> key = AcceptValue();
    if (!key || !AcceptSymbol("]")) return std::nullopt;
    if (key->compare(0, kField.size(), kField) == 0) {
      static_cast<void>(AcceptWord("exists"));
      return OnCertificate(position, [oid = key->substr(kField.size())](const X509& certificate) {
        return HasExtension(certificate, oid.c_str());
      });
    }
    for (const AttributeKey& attribute : kAttributeKeys) {
      if (attribute.key == *key) return ParseSubjectAttribute(position, attribute.nid);
    }
    return std::nullopt;
  }

  std::optional<Requirement> ParseSubjectAttribute(int position, int nid) {
    if (AcceptSymbol("=")) {
      const std::optional<std::string> text = AcceptValue();
      if (!text) return std::nullopt;
      return OnCertificate(position, [nid, text = *text](const X509& certificate) {
        return HasText(certificate, nid, text);
      });
    }
    static_cast<void>(AcceptWord("exists"));
    return OnCertificate(position, [nid](const X509& certificate) {
      return SubjectAttribute(certificate, nid).has_value();
    });
  }

  const std::vector<RequirementToken> tokens_;
  std::size_t position_ = 0;
  int depth_ = 0;
};

}  // namespace

std::optional<Requirement> ParseRequirement(std::string_view text) {
  if (text.size() > kMaxLength) return std::nullopt;
  std::optional<std::vector<RequirementToken>> tokens = SplitRequirement(text);
  if (!tokens) return std::nullopt;
  return Parser(std::move(*tokens)).Parse();
}

}  // namespace platform::code_signing
