#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "platform/clock.h"
#include "product/install_locations.h"

namespace {

/// Beginnings of the detection record; the identifiers follow.
constexpr char kAbsentRecord[] = "0|||";
constexpr char kHealthyState[] = "1|";
constexpr char kUnhealthyState[] = "2|";

constexpr int kMaxWaits = 4;
constexpr unsigned kWait = 5;  // seconds

/// Gives the services time to come up.
bool AwaitServices(KXTool& tool, Logger* logger) {
  bool areRunning = tool.CheckRunningProcesses();
  for (int wait = 0; !areRunning && wait < kMaxWaits; ++wait) {
    Utils::LogMessage(logger, "Services are not running. Waiting ", kWait, " seconds");
    platform::Sleep(kWait);
    areRunning = tool.CheckRunningProcesses();
  }
  return areRunning;
}

bool HasCriticalIssues(KXTool& tool, Logger* logger) {
  Utils::LogMessage(logger, "Get ORVEX Critical issues");
  std::string issues;
  const int code = tool.GetCriticalIssues(issues, logger);
  if (code == kSuccess && issues.empty()) return false;
  Utils::LogMessage(logger, "Critical issues found: ", issues);
  return true;
}

/// The identifiers of the endpoint.
struct Identity {
  std::string companyId;
  std::string groupId;
  std::string endpointId;
};

std::string* UnlessFilled(std::string& text) { return text.empty() ? &text : nullptr; }

/// Reads the identity from the newer configuration file, and what it lacks from the older one.
/// @return whether the newer one could be read; the older one need not be there.
bool ReadIdentity(KXTool& tool, const ProductInfoStructure& product, bool areServicesRunning,
                  Identity& identity, Logger* logger) {
  const int code =
      tool.GetEndpointInformation(&identity.companyId, &identity.groupId, &identity.endpointId,
                                  product.agcfngPath.c_str(), areServicesRunning, logger);
  if (code != kSuccess) Utils::LogMessage(logger, "Cannot retrieve endpoint information");
  static_cast<void>(tool.GetEndpointInformation(
      UnlessFilled(identity.companyId), UnlessFilled(identity.groupId),
      UnlessFilled(identity.endpointId), product.agcfPath.c_str(), areServicesRunning, logger));
  return code == kSuccess;
}

}  // namespace

int KXTool::ORVEXDetectInstall(std::string& result, Logger* logger) {
  Utils::LogMessage(logger, "Starting ORVEX Detect. Assign \"0\" to the result");
  result = kAbsentRecord;
  Utils::LogMessage(logger, "Get product directory");
  ProductInfoStructure* product = nullptr;
  if (GetDirectory(product, productInfoStructure) != kSuccess) {
    Utils::LogMessage(logger, "ORVEX directory not found");
    return kSuccess;
  }
  Utils::LogMessage(logger, "Found ORVEX directory");
  Utils::LogMessage(logger, "Assign \"2\" to the result");
  Utils::LogMessage(logger, "Check for running services");
  result = kUnhealthyState;
  const bool areServicesRunning = AwaitServices(*this, logger);
  if (areServicesRunning) {
    Utils::LogMessage(logger, "Services are running");
    result = kHealthyState;
    if (HasCriticalIssues(*this, logger)) result = kUnhealthyState;
  }

  Utils::LogMessage(logger, "Retrieving endpoint information");
  Identity identity;
  if (!ReadIdentity(*this, *product, areServicesRunning, identity, logger)) {
    result = kUnhealthyState;
  }
  result += identity.companyId + "|" + identity.groupId + "|" + identity.endpointId;
  Utils::LogMessage(logger, "ORVEX Already exists");
  Utils::LogMessage(logger, "ORVEX Detect finished");
  return kEBUSY;
}
