#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "diag/text.h"
#include "json/lookup.h"
#include "queries/joined_list.h"
#include "queries/status_query.h"

namespace {

using queries::AppendToList;
using queries::QueryLines;
using queries::RunStatusQuery;
using rapidjson::Value;

constexpr QueryLines kCriticalIssuesLines = {"Failed to execute Product.GetStatus method", false,
                                             "Invalid JSON",
                                             "Finished to get critical issues with error: "};
constexpr QueryLines kProductVersionLines = {
    "Failed to execute method. Error code: ", true, "Invalid JSON",
    "Finished returning product version with error code: "};
constexpr QueryLines kFeatureStatusLines = {"Failed to execute method. Error code: ", true,
                                            "Invalid JSON",
                                            "Finished to get feature status with error code: "};

int ExtractCriticalIssues(const Value& output, std::string& result, Logger* logger) {
  const Value* const alerts = json::FindObject(output, "Alerts");
  if (alerts == nullptr) return kSuccess;
  std::string names;
  for (const Value::Member& alert : alerts->GetObject()) {
    const std::optional<std::string_view> severity = json::FindText(alert.value, "severity");
    if (!severity || !Utils::EqualsIgnoringCase(*severity, "critical")) continue;
    const std::string_view name = json::TextOf(alert.name);
    AppendToList(names, name);
    Utils::LogMessage(logger, "Critical issue found: ", name);
  }
  result = std::move(names);
  return kSuccess;
}

int ExtractProductVersion(const Value& output, std::string& result, Logger* logger) {
  const Value* const locations = json::FindObject(output, "Locations");
  if (locations == nullptr) return kSuccess;
  const Value* const product = json::FindObject(*locations, "Product");
  if (product == nullptr) return kSuccess;
  const std::optional<std::string_view> version = json::FindText(*product, "Version");
  if (!version) return kSuccess;
  Utils::LogMessage(logger, "Found product version: ", *version);
  result = *version;
  return kSuccess;
}

/// Returns whether a feature works: what the product reports or, without a report, whether the
/// feature is enabled.
bool IsFeatureWorking(const Value& feature, std::string_view id, Logger* logger) {
  if (const Value* const functioning = json::FindMember(feature, "isFunctioning")) {
    const bool verdict = functioning->IsTrue();
    Utils::LogMessage(logger, "Feature with id= ", id, " is functioning: ", verdict);
    return verdict;
  }
  const Value* const enabled = json::FindMember(feature, "enabled");
  const bool isEnabled = enabled != nullptr && enabled->IsTrue();
  if (!isEnabled) Utils::LogMessage(logger, "Feature ", id, " is not enabled");
  return isEnabled;
}

int ExtractFeatureStatus(const Value& output, std::string& result, Logger* logger) {
  const Value* const features = json::FindMember(output, "Features");
  if (features == nullptr || !features->IsArray() || features->Empty()) return kSuccess;
  std::string verdicts;
  for (const Value& feature : features->GetArray()) {
    const std::optional<std::string_view> id = json::FindText(feature, "id");
    if (!id) continue;
    AppendToList(verdicts, *id);
    verdicts += IsFeatureWorking(feature, *id, logger) ? "=1" : "=0";
  }
  result = std::move(verdicts);
  return kSuccess;
}

}  // namespace

int KXTool::GetCriticalIssues(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kCriticalIssuesLines,
      [&](const Value& output) { return ExtractCriticalIssues(output, result, logger); }, logger);
}

int KXTool::GetProductVersion(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kProductVersionLines,
      [&](const Value& output) { return ExtractProductVersion(output, result, logger); }, logger);
}

int KXTool::GetFeatureStatus(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kFeatureStatusLines,
      [&](const Value& output) { return ExtractFeatureStatus(output, result, logger); }, logger);
}
