#include "app/options.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/utils.h"

namespace {

/// The shortest time limit, in seconds, that a watched scan gets.
constexpr long long kShortestScanTimeout = 5;

template <int (KXTool::*Query)(std::string&, Logger*)>
int Answer(OptionRun& run) {
  return (run.tool.*Query)(run.result, run.logger);
}

/// For the operations that answer with a number.
template <int (KXTool::*Action)(long long&, Logger*)>
int AnswerNumber(OptionRun& run) {
  const int code = (run.tool.*Action)(run.value, run.logger);
  run.result = std::to_string(run.value);
  return code;
}

template <bool PackageMode>
int Install(OptionRun& run) {
  return run.tool.ORVEXInstall(run.result, run.tool.arguments[2], PackageMode, run.logger);
}

int AnswerUpdateStatus(OptionRun& run) {
  return run.tool.GetUpdateStatus(run.result, run.tool.arguments[2].c_str(), run.logger);
}

int AnswerIsUpToDate(OptionRun& run) {
  bool upToDate = false;
  const int code = run.tool.CheckIsUpToDate(upToDate, run.logger);
  run.value = upToDate ? 1 : 0;
  run.result = upToDate ? "1" : "0";
  return code;
}

/// Takes over the optional time limit of the scans.
/// @throws std::invalid_argument, std::out_of_range for one that is empty or too long.
bool AcceptScanTimeout(OptionRun& run) {
  KXTool& tool = run.tool;
  if (tool.argc == 2) return true;
  const std::string& digits = tool.arguments[2];
  if (digits.find_first_not_of("0123456789") != std::string::npos) {
    Utils::LogMessage(run.logger, "Bad arguments.");
    return false;
  }
  tool.scanTimeout = std::max(kShortestScanTimeout, std::stoll(digits));
  return true;
}

void LogMissingLinkArguments(const LinkArguments& link, Logger* logger) {
  Utils::LogMessage(logger, "Bad arguments provided.");
  if (link.consoleUrl.empty()) Utils::LogMessage(logger, "\"-slUrl\" is missing");
  if (link.apiKey.empty()) Utils::LogMessage(logger, "\"-apiKey\" is missing");
  if (link.packageName.empty()) Utils::LogMessage(logger, "\"-packageName\" is empty");
}

/// Takes over three pairs of a name and a value, and the switch behind them.
bool AcceptLinkArguments(OptionRun& run) {
  const std::vector<std::string>& words = run.tool.arguments;
  LinkArguments& link = run.link;
  for (std::size_t index = 2; index < 8; index += 2) {
    const std::string& name = words[index];
    std::string* value = nullptr;
    if (Utils::EqualsIgnoringCase(name, "-slUrl")) value = &link.consoleUrl;
    if (Utils::EqualsIgnoringCase(name, "-apiKey")) value = &link.apiKey;
    if (Utils::EqualsIgnoringCase(name, "-packageName")) value = &link.packageName;
    if (value == nullptr) {
      LogMissingLinkArguments(link, run.logger);
      return false;
    }
    *value = words[index + 1];
  }
  if (run.tool.argc == 9) {
    if (!Utils::EqualsIgnoringCase(words[8], "-setupDownloaderLink")) {
      Utils::LogMessage(run.logger,
                        "Bad arguments provided. \"-setupDownloaderLink\" was expected");
      return false;
    }
    link.setupDownloaderLink = false;
  }
  Utils::LogMessage(run.logger, "Retrieving installation link");
  return true;
}

int AnswerInstallationLink(OptionRun& run) {
  const LinkArguments& link = run.link;
  const int code =
      run.tool.GetInstallationLinks(run.result, link.consoleUrl.c_str(), link.apiKey.c_str(),
                                    link.packageName.c_str(), link.setupDownloaderLink, run.logger);
  if (code != kSuccess) {
    Utils::LogMessage(run.logger, "Failed to retrieve installation links. Exit code:", code);
  }
  return code;
}

}  // namespace

const std::array<Option, 17> kOptions = {{
    {"-runInstaller", 3, 3, "Starting ORVEX installer with run installer", true,
     "Bad arguments. <installerPath> is required after \"-runInstaller\" was provided", nullptr,
     Install<true>, nullptr, EndNumber::kNothing, OnFailure::kReport},
    {"-runSetupDownloader", 3, 3, "Starting ORVEX installer with setup downloader", true,
     "Bad arguments. <setupDownloaderPath> is required after \"-runSetupDownloader\" was provided",
     nullptr, Install<false>, nullptr, EndNumber::kNothing, OnFailure::kReport},
    {"-detect", 2, 2, "Starting ORVEX Detect", true, "Bad arguments for detect", nullptr,
     Answer<&KXTool::ORVEXDetectInstall>, nullptr, EndNumber::kNothing, OnFailure::kReport},
    {"-getInstallationLink", 8, 9, "Getting installation link", false,
     "Bad arguments. More or ignsufficient arguments provided", AcceptLinkArguments,
     AnswerInstallationLink, "Finished retrieving links", EndNumber::kNothing, OnFailure::kReport},
    {"-checkForUpdateErrors", 2, 2, "Checking for update errors", false,
     "Bad arguments. Invalid number of arguments", nullptr, Answer<&KXTool::GetUpdateErrors>,
     "Finished checking for update errors successfully", EndNumber::kNothing, OnFailure::kReport},
    {"-getUpdateStatus", 3, 3, "Getting update status", false, "Bad arguments. No status provided",
     nullptr, AnswerUpdateStatus, "Finished getting update status successfully",
     EndNumber::kNothing, OnFailure::kReport},
    {"-hasCriticalIssues", 2, 2, "Checking for critical issues", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetCriticalIssues>, "Finished to get critical issues successfully",
     EndNumber::kNothing, OnFailure::kReport},
    {"-isUpToDate", 2, 2, "Checking if ORVEX is up to date", false, "Bad arguments", nullptr,
     AnswerIsUpToDate, "Is ORVEX up to date value:", EndNumber::kValue, OnFailure::kStaySilent},
    {"-getUpdateLocations", 2, 2, "Get update locations", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetUpdateLocations>, "Update locations retrieved successfully",
     EndNumber::kNothing, OnFailure::kReport},
    {"-startUpdate", 2, 2, "Start update", false, "Bad arguments", nullptr,
     AnswerNumber<&KXTool::StartUpdate>,
     "Finished to start update with error code:", EndNumber::kValue, OnFailure::kReport},
    {"-getProductVersion", 2, 2, "Get product version", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetProductVersion>,
     "Finished to get product version with error code:", EndNumber::kCode, OnFailure::kReport},
    {"-getLastUpdate", 2, 2, "Get last update", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetLastUpdate>,
     "Finished to get last update with error code:", EndNumber::kCode, OnFailure::kReport},
    {"-getFeatureStatus", 2, 2, "Get feature status", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetFeatureStatus>,
     "Finished to get feature status with error code:", EndNumber::kCode, OnFailure::kReport},
    {"-getLastSystemScan", 2, 2, "Get last system scan", false, "Bad arguments", nullptr,
     Answer<&KXTool::GetLastSystemScan>,
     "Finished get last system scan with error code:", EndNumber::kCode, OnFailure::kStaySilent},
    {"-startFullScan", 2, 3, "Starting full scan", false, "Bad arguments.", AcceptScanTimeout,
     AnswerNumber<&KXTool::StartFullScan>,
     "Finished starting full scan with error code:", EndNumber::kValue, OnFailure::kStaySilent},
    {"-startQuickScan", 2, 3, "Starting quick scan", false, "Bad arguments.", AcceptScanTimeout,
     AnswerNumber<&KXTool::StartQuickScan>,
     "Finished starting quick scan with error code:", EndNumber::kValue, OnFailure::kStaySilent},
    {"-getVersion", 2, 2, "Get RMM tool version", false, "Bad arguments.", nullptr,
     Answer<&KXTool::GetVersion>, "Finished retrieving RMM Tool version with error code:",
     EndNumber::kCode, OnFailure::kStaySilent},
}};
