#ifndef PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
#define PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_

#include <string>
#include <utility>

#include "platform/linux/code_signing/certificate.h"

namespace platform::code_signing {

/// The certificates in which a chain must end to be trusted.
class TrustStore {
 public:
  /// Where the product's anchors are.
  static constexpr char kAnchorsPath[] = "/etc/kxtool/anchors.pem";

  /// A store that trusts nothing.
  TrustStore() = default;

  explicit TrustStore(CertificateList anchors) : anchors_(std::move(anchors)) {}

  /// Reads a file of PEM certificates, up to the first that is broken. A file that is missing,
  /// unreadable or empty gives a store that trusts nothing.
  static TrustStore Load(const std::string& path);

  const CertificateList& Anchors() const { return anchors_; }

  /// Whether the very bytes of the certificate are among the anchors.
  bool IsAnchor(const X509& certificate) const;

 private:
  CertificateList anchors_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
