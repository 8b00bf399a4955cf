#ifndef PLATFORM_LINUX_CODE_SIGNING_CHECK_CONTEXT_H_
#define PLATFORM_LINUX_CODE_SIGNING_CHECK_CONTEXT_H_

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "platform/linux/code_signing/resource_rules.h"
#include "platform/linux/code_signing/trust_store.h"
#include "platform/linux/property_list.h"

namespace platform::code_signing {

/// Thrown when a check exceeds its budget. The check then fails with an internal error.
class BudgetExceeded : public std::exception {
 public:
  const char* what() const noexcept override { return "the check costs too much"; }
};

/// The maximum cost of one check, nested code included. It is several times the cost of the largest
/// real applications and keeps a hostile file from occupying the processors.
class WorkBudget {
 public:
  /// Charges for bytes of code and resources, once for each hash.
  void ChargeForHashing(std::uint64_t bytes) { Charge(hashing_, bytes); }

  /// Charges for one certificate that is tried as an issuer.
  void ChargeForIssuer() { Charge(issuers_, 1); }

  /// Charges for verifications with a public key, including those with the keys of possible
  /// issuers.
  void ChargeForVerifications(std::uint64_t cost) { Charge(verifications_, cost); }

  /// Charges for the certificates in a message. The key of each must be decoded.
  void ChargeForCertificates(std::uint64_t count) { Charge(certificates_, count); }

  /// Charges for the bytes of a message, most of which are certificates to parse.
  void ChargeForMessage(std::uint64_t bytes) { Charge(messages_, bytes); }

  /// Charges for the bytes of a component, once for each comparison with its slot. Opening its file
  /// takes as long as reading many bytes.
  void ChargeForComponent(std::uint64_t bytes) {
    constexpr std::uint64_t kUsualSize = 16U << 10U;
    Charge(components_, std::max(bytes, kUsualSize));
  }

  /// Charges for the text of a requirement, once for each evaluation.
  void ChargeForRequirement(std::uint64_t length) { Charge(requirements_, length); }

  /// Charges for a piece of nested code. A bundle takes as long as several files.
  void ChargeForNestedCode(std::uint64_t slices, bool isBundle) {
    Charge(nestedCode_, slices + (isBundle ? 1 : 0));
  }

  /// Charges for one entry of a bundle's directories. Each rule is matched against its path.
  void ChargeForEntry(std::uint64_t pathLength) {
    constexpr std::uint64_t kUsualLength = 128;
    Charge(entries_, std::max(pathLength, kUsualLength));
  }

  /// Charges for one path of a file with several hard links. Such a file is hashed once for each
  /// path.
  void ChargeForName(const struct stat& file) {
    constexpr int kMaxNames = 8;
    if (++names_[{file.st_dev, file.st_ino}] > kMaxNames) throw BudgetExceeded();
  }

 private:
  struct Bound {
    std::uint64_t most;
    std::uint64_t used = 0;
  };

  void Charge(Bound& bound, std::uint64_t amount) {
    if (amount > bound.most - bound.used) throw BudgetExceeded();
    bound.used += amount;
    share_ += static_cast<double>(amount) / static_cast<double>(bound.most);
    if (share_ > kMaxShare) throw BudgetExceeded();
  }

  /// How many bounds a check may reach, or parts of bounds that add up to as many.
  static constexpr double kMaxShare = 3;

  Bound hashing_ = {std::uint64_t{4} << 30};
  Bound issuers_ = {std::uint64_t{1} << 14};
  Bound verifications_ = {1000};
  Bound certificates_ = {2000};
  Bound messages_ = {std::uint64_t{2} << 20};
  Bound components_ = {std::uint64_t{64} << 20};
  Bound requirements_ = {std::uint64_t{1} << 20};
  Bound nestedCode_ = {1000};
  Bound entries_ = {std::uint64_t{8} << 20};
  double share_ = 0;
  std::map<std::pair<dev_t, ino_t>, int> names_;
};

/// State shared by all parts of one check. For one thread only.
struct CheckContext {
  TrustStore trust;
  WorkBudget budget = {};
  PropertyListBudget lists = {};
  ResourcePatterns patterns = {};
  /// A digest for each certificate that an issuer is known to have signed. Nested code repeats the
  /// chains of the code around it.
  std::set<std::string> issued = {};
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CHECK_CONTEXT_H_
