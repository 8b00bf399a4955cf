#ifndef PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
#define PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_

#include <string>
#include <utility>
#include <vector>

#include "platform/linux/code_signing/certificate.h"

namespace platform::code_signing {

/// The certificates in which a chain must end to be trusted. They are kept encoded, because most
/// chains bring their root along, and to take a certificate apart costs libcrypto as much as to
/// hash hundreds of kilobytes.
class TrustStore {
 public:
  /// Where the product's anchors are.
  static constexpr char kAnchorsPath[] = "/etc/kxtool/anchors.pem";

  /// A store that trusts nothing.
  TrustStore() = default;

  explicit TrustStore(const CertificateList& anchors);

  /// Reads a file of PEM certificates, up to the first entry that is not well-formed PEM. A file
  /// that is missing, unreadable or empty gives a store that trusts nothing.
  static TrustStore Load(const std::string& path);

  /// The anchors taken apart, without those that are no certificates.
  CertificateList Anchors() const;

  /// Whether the very bytes of the certificate are among the anchors.
  bool IsAnchor(const X509& certificate) const;

 private:
  std::vector<std::string> encodedAnchors_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
