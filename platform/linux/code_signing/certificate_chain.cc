#include "platform/linux/code_signing/certificate_chain.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/code_signing/digest.h"

namespace platform::code_signing {
namespace {

constexpr std::size_t kMaxChainLength = 10;

enum class Ending { kIncomplete, kSelfSigned, kAnchor };

class ChainBuilder {
 public:
  ChainBuilder(const CertificateList& embedded, CheckContext& context)
      : context_(context), embedded_(embedded) {}

  CertificateChain Build(const CertificatePtr& leaf) {
    Extend(leaf);
    return best_;
  }

 private:
  // Adds a certificate to the path and follows all its issuers. Returns true to end the search.
  bool Extend(const CertificatePtr& certificate) {
    path_.push_back(certificate);
    const bool found = Finish() || FollowIssuers(*certificate);
    path_.pop_back();
    return found;
  }

  // Keeps the path if none as good was found before.
  bool Finish() {
    const X509& top = *path_.back();
    const Ending ending = context_.trust.IsAnchor(top) ? Ending::kAnchor
                          : IsSelfSigned(top)          ? Ending::kSelfSigned
                                                       : Ending::kIncomplete;
    const bool better =
        best_.empty() || ending > ending_ ||
        (ending == ending_ && ending == Ending::kIncomplete && path_.size() > best_.size());
    if (better) {
      best_ = path_;
      ending_ = ending;
    }
    return ending == Ending::kAnchor;
  }

  bool FollowIssuers(X509& certificate) {
    if (path_.size() == kMaxChainLength) return false;
    if (FollowIssuersAmong(embedded_, certificate)) return true;
    if (!anchors_) anchors_ = context_.trust.Anchors();
    return FollowIssuersAmong(*anchors_, certificate);
  }

  bool FollowIssuersAmong(const CertificateList& candidates, X509& certificate) {
    const X509_NAME* name = X509_get_issuer_name(&certificate);
    for (const CertificatePtr& issuer : candidates) {
      if (X509_NAME_cmp(X509_get_subject_name(issuer.get()), name) != 0) continue;
      context_.budget.ChargeForIssuer();
      if (!HasIssued(*issuer, certificate)) continue;
      if (!IsInPath(*issuer) && Extend(issuer)) return true;
    }
    return false;
  }

  // Verifies that `issuer` signed `certificate`. Remembers a success for the rest of the check.
  bool HasIssued(X509& issuer, X509& certificate) {
    std::string pair =
        DigestOf(HashType::kSha256, EncodedCertificate(issuer) + EncodedCertificate(certificate));
    if (context_.issued.count(pair) != 0) return true;
    context_.budget.ChargeForVerifications(VerificationCost(issuer));
    if (!HasUsableKey(issuer) || X509_verify(&certificate, X509_get0_pubkey(&issuer)) != 1) {
      return false;
    }
    context_.issued.insert(std::move(pair));
    return true;
  }

  bool IsInPath(const X509& certificate) const {
    const std::string encoded = EncodedCertificate(certificate);
    return std::any_of(path_.begin(), path_.end(), [&](const CertificatePtr& member) {
      return EncodedCertificate(*member) == encoded;
    });
  }

  CheckContext& context_;
  const CertificateList& embedded_;
  std::optional<CertificateList> anchors_;  ///< parsed on first use
  CertificateChain path_;
  CertificateChain best_;
  Ending ending_ = Ending::kIncomplete;
};

}  // namespace

CertificateChain BuildChain(const CertificatePtr& leaf, const CertificateList& embedded,
                            CheckContext& context) {
  return ChainBuilder(embedded, context).Build(leaf);
}

}  // namespace platform::code_signing
