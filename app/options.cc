#include "app/options.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "diag/text.h"

namespace {

/// The shortest time limit of a watched scan, in seconds.
constexpr long long kMinScanTimeout = 5;

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

/// Stores the optional time limit of the scans.
/// @throws std::invalid_argument, std::out_of_range for one that is empty or too long.
bool AcceptScanTimeout(OptionRun& run) {
  KXTool& tool = run.tool;
  if (tool.argc == 2) return true;
  const std::string& digits = tool.arguments[2];
  if (digits.find_first_not_of("0123456789") != std::string::npos) {
    Utils::LogMessage(run.logger, "Bad arguments.");
    return false;
  }
  tool.scanTimeout = std::max(kMinScanTimeout, std::stoll(digits));
  return true;
}

void LogMissingLinkArguments(const LinkArguments& link, Logger* logger) {
  Utils::LogMessage(logger, "Bad arguments provided.");
  if (link.consoleUrl.empty()) Utils::LogMessage(logger, "\"-slUrl\" is missing");
  if (link.apiKey.empty()) Utils::LogMessage(logger, "\"-apiKey\" is missing");
  if (link.packageName.empty()) Utils::LogMessage(logger, "\"-packageName\" is empty");
}

/// Stores three pairs of a name and a value, and the switch that follows them.
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
    {"-runInstaller", WordCount{3},
     Messages{"Starting ORVEX installer with run installer",
              "Bad arguments. <installerPath> is required after \"-runInstaller\" was provided",
              StartTime::kAfterCountTest},
     Install<true>},
    {"-runSetupDownloader", WordCount{3},
     Messages{"Starting ORVEX installer with setup downloader",
              "Bad arguments. <setupDownloaderPath> is required after \"-runSetupDownloader\" was "
              "provided",
              StartTime::kAfterCountTest},
     Install<false>},
    {"-detect", WordCount{2},
     Messages{"Starting ORVEX Detect", "Bad arguments for detect", StartTime::kAfterCountTest},
     Answer<&KXTool::ORVEXDetectInstall>},
    {"-getInstallationLink", WordCount{8, 9},
     Messages{"Getting installation link",
              "Bad arguments. More or ignsufficient arguments provided"},
     AnswerInstallationLink, End{"Finished retrieving links"}, AcceptLinkArguments},
    {"-checkForUpdateErrors", WordCount{2},
     Messages{"Checking for update errors", "Bad arguments. Invalid number of arguments"},
     Answer<&KXTool::GetUpdateErrors>, End{"Finished checking for update errors successfully"}},
    {"-getUpdateStatus", WordCount{3},
     Messages{"Getting update status", "Bad arguments. No status provided"}, AnswerUpdateStatus,
     End{"Finished getting update status successfully"}},
    {"-hasCriticalIssues", WordCount{2}, Messages{"Checking for critical issues", "Bad arguments"},
     Answer<&KXTool::GetCriticalIssues>, End{"Finished to get critical issues successfully"}},
    {"-isUpToDate", WordCount{2}, Messages{"Checking if ORVEX is up to date", "Bad arguments"},
     AnswerIsUpToDate,
     End{"Is ORVEX up to date value:", EndNumber::kValue, OnFailure::kStaySilent}},
    {"-getUpdateLocations", WordCount{2}, Messages{"Get update locations", "Bad arguments"},
     Answer<&KXTool::GetUpdateLocations>, End{"Update locations retrieved successfully"}},
    {"-startUpdate", WordCount{2}, Messages{"Start update", "Bad arguments"},
     AnswerNumber<&KXTool::StartUpdate>,
     End{"Finished to start update with error code:", EndNumber::kValue}},
    {"-getProductVersion", WordCount{2}, Messages{"Get product version", "Bad arguments"},
     Answer<&KXTool::GetProductVersion>,
     End{"Finished to get product version with error code:", EndNumber::kCode}},
    {"-getLastUpdate", WordCount{2}, Messages{"Get last update", "Bad arguments"},
     Answer<&KXTool::GetLastUpdate>,
     End{"Finished to get last update with error code:", EndNumber::kCode}},
    {"-getFeatureStatus", WordCount{2}, Messages{"Get feature status", "Bad arguments"},
     Answer<&KXTool::GetFeatureStatus>,
     End{"Finished to get feature status with error code:", EndNumber::kCode}},
    {"-getLastSystemScan", WordCount{2}, Messages{"Get last system scan", "Bad arguments"},
     Answer<&KXTool::GetLastSystemScan>,
     End{"Finished get last system scan with error code:", EndNumber::kCode,
         OnFailure::kStaySilent}},
    {"-startFullScan", WordCount{2, 3}, Messages{"Starting full scan", "Bad arguments."},
     AnswerNumber<&KXTool::StartFullScan>,
     End{"Finished starting full scan with error code:", EndNumber::kValue, OnFailure::kStaySilent},
     AcceptScanTimeout},
    {"-startQuickScan", WordCount{2, 3}, Messages{"Starting quick scan", "Bad arguments."},
     AnswerNumber<&KXTool::StartQuickScan>,
     End{"Finished starting quick scan with error code:", EndNumber::kValue,
         OnFailure::kStaySilent},
     AcceptScanTimeout},
    {"-getVersion", WordCount{2}, Messages{"Get RMM tool version", "Bad arguments."},
     Answer<&KXTool::GetVersion>,
     End{"Finished retrieving RMM Tool version with error code:", EndNumber::kCode,
         OnFailure::kStaySilent}},
}};
