#ifndef PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
#define PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_

#include <string>
#include <utility>
#include <vector>

#include "platform/linux/code_signing/certificate.h"

namespace platform::code_signing {

/// The certificates in which a trusted chain must end. They stay encoded because most chains
/// include their root, and parsing a certificate costs libcrypto as much as hashing hundreds of
/// kilobytes.
class TrustStore {
 public:
  /// The path of the product's anchors.
  static constexpr char kAnchorsPath[] = "/etc/kxtool/anchors.pem";

  /// A store that trusts nothing.
  TrustStore() = default;

  explicit TrustStore(const CertificateList& anchors);

  /// Reads a file of PEM certificates up to the first entry that is not well-formed PEM. A file
  /// that is missing, unreadable or empty yields a store that trusts nothing.
  static TrustStore Load(const std::string& path);

  /// Parses the anchors and skips those that are not certificates.
  CertificateList Anchors() const;

  /// Whether the certificate is an anchor. Compares its bytes.
  bool IsAnchor(const X509& certificate) const;

 private:
  std::vector<std::string> encodedAnchors_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_TRUST_STORE_H_
