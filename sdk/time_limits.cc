#include "sdk/time_limits.h"

#include "diag/text.h"

namespace sdk {
namespace {

constexpr long long kFullScanLimit = 12LL * 60 * 60;
constexpr long long kQuickScanLimit = 90LL * 60;
constexpr long long kOtherLimit = 10;

}  // namespace

long long TimeLimit(const std::string& option, long long scanTimeout) {
  if (scanTimeout >= 0) return scanTimeout;
  if (Utils::EqualsIgnoringCase(option, "-startFullScan")) return kFullScanLimit;
  if (Utils::EqualsIgnoringCase(option, "-startQuickScan")) return kQuickScanLimit;
  return kOtherLimit;
}

platform::MonotonicTime DeadlineAfter(platform::MonotonicTime now, long long seconds) {
  const auto left =
      std::chrono::duration_cast<std::chrono::seconds>(platform::MonotonicTime::max() - now);
  if (seconds >= left.count()) return platform::MonotonicTime::max();
  return now + std::chrono::seconds(seconds);
}

}  // namespace sdk
