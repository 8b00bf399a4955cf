#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "json/lookup.h"
#include "platform/clock.h"
#include "queries/joined_list.h"
#include "queries/status_query.h"

namespace {

using queries::AppendToList;
using queries::QueryLines;
using queries::RunStatusQuery;
using rapidjson::Value;

constexpr QueryLines kUpdateErrorsLines = {"Failed to execute Product.GetStatus with error: ", true,
                                           "Invalid JSON",
                                           "Finished to get update errors with error: "};
constexpr QueryLines kUpdateStatusLines = {"Failed to execute Product.GetStatus method", false,
                                           "Invalid JSON. Cannot find \"Locationsa\" field",
                                           "Finished getting update status with error: "};
constexpr QueryLines kUpToDateLines = {"Failed to execute method. Error code: ", true,
                                       "Invalid JSON. Could not find \"Locations\" member",
                                       "Finished getting update status with error: "};
constexpr QueryLines kUpdateLocationsLines = {"Failed to execute method. Error code: ", true,
                                              "Invalid JSON",
                                              "Finished to get update locations with error code: "};
constexpr QueryLines kLastUpdateLines = {"Failed to execute method. Error code: ", true,
                                         "Invalid JSON",
                                         "Finished retrieving last update with error code: "};

/// An update is stale this many seconds after its last success.
constexpr double kStaleAfter = 48.0 * 60 * 60;

/// The error of a location's most recent update, when there is one and it is a failure.
std::optional<std::int32_t> FailureOf(const Value& location) {
  const Value* const update = json::FindObject(location, "update");
  if (update == nullptr) return std::nullopt;
  const std::optional<std::int32_t> error = json::FindInt32(*update, "error");
  return error && *error != 0 ? error : std::nullopt;
}

int ExtractUpdateErrors(const Value& output, std::string& result, Logger* logger) {
  Utils::LogMessage(logger, "Checking for \"Locations\" field");
  std::string failures;
  if (const Value* const locations = json::FindObject(output, "Locations")) {
    for (const Value::Member& location : locations->GetObject()) {
      const std::optional<std::int32_t> error = FailureOf(location.value);
      if (!error) continue;
      const std::string entry =
          std::string(json::TextOf(location.name)) + '=' + std::to_string(*error);
      AppendToList(failures, entry);
      Utils::LogMessage(logger, "Found an error: ", entry);
    }
  }
  result = std::move(failures);
  return kSuccess;
}

/// Appends `separator` and the number, or reports that `field` is missing when there is none.
/// @return whether there is one
template <typename Number>
bool AppendNumber(std::string& text, const char* separator, const std::optional<Number>& number,
                  const char* field, Logger* logger) {
  if (!number) {
    Utils::LogMessage(logger, "Invalid JSON. Cannot find \"", field, "\" field");
    return false;
  }
  text += separator + std::to_string(*number);
  return true;
}

/// Appends the fields of a location's most recent update, each even if others are missing.
/// @return the code
int AppendUpdateState(const Value& update, std::string& text, Logger* logger) {
  const bool hasError = AppendNumber(text, "", json::FindInt32(update, "error"), "error", logger);
  const bool hasTime = AppendNumber(text, "|", json::FindInt64(update, "time"), "time", logger);
  const bool hasLastSuccess = AppendNumber(text, "|", json::FindInt64(update, "lastSucceededTime"),
                                           "lastSucceededTime", logger);
  return hasError && hasTime && hasLastSuccess ? kSuccess : kESRCH;
}

int ExtractUpdateStatus(const Value& output, const char* name, std::string& result,
                        Logger* logger) {
  std::string text;
  int code = kSuccess;
  if (const Value* const locations = json::FindObject(output, "Locations")) {
    const Value* const location = json::FindObject(*locations, name);
    if (location == nullptr) {
      Utils::LogMessage(logger, "Invalid JSON. Cannot find \" ", name, "\" field");
      code = kEINVAL;
    } else if (const Value* const update = json::FindObject(*location, "update")) {
      code = AppendUpdateState(*update, text, logger);
    }
  }
  result = std::move(text);
  return code;
}

/// Whether the update of a location shows that the product is not up to date.
bool IsFailedOrStale(const Value& update, const std::unordered_set<std::int32_t>& goodErrors) {
  // The update is evaluated only if it has both members, whatever their types.
  if (json::FindMember(update, "error") == nullptr ||
      json::FindMember(update, "lastSucceededTime") == nullptr) {
    return false;
  }
  const std::optional<std::int32_t> error = json::FindInt32(update, "error");
  if (error && goodErrors.count(*error) == 0) return true;
  const std::optional<std::int64_t> lastSuccess = json::FindInt64(update, "lastSucceededTime");
  return lastSuccess && std::difftime(static_cast<std::time_t>(platform::WallClockSeconds()),
                                      static_cast<std::time_t>(*lastSuccess)) > kStaleAfter;
}

int EvaluateUpToDate(const Value& output, bool& upToDate, Logger* logger) {
  const std::unordered_set<std::string_view> ignoredNames = {"Product", "ctc"};
  const std::unordered_set<std::int32_t> goodErrors = {0, -2003};
  const Value* const locations = json::FindObject(output, "Locations");
  if (locations == nullptr) return kSuccess;
  for (const Value::Member& location : locations->GetObject()) {
    if (ignoredNames.count(json::TextOf(location.name)) != 0) continue;
    const Value* const update = json::FindObject(location.value, "update");
    if (update == nullptr || !IsFailedOrStale(*update, goodErrors)) continue;
    Utils::LogMessage(logger, "Product is not up to date");
    upToDate = false;
    break;
  }
  return kSuccess;
}

int ExtractUpdateLocations(const Value& output, std::string& result, Logger* logger) {
  const Value* const locations = json::FindObject(output, "Locations");
  if (locations == nullptr) return kSuccess;
  std::string names;
  for (const Value::Member& location : locations->GetObject()) {
    const std::string_view name = json::TextOf(location.name);
    AppendToList(names, name);
    Utils::LogMessage(logger, "Location found: ", name);
  }
  result = std::move(names);
  return kSuccess;
}

int ExtractLastUpdate(const Value& output, std::string& result, Logger* logger) {
  const std::optional<std::int64_t> time = json::FindInt64(output, "LastUpdateTime");
  if (!time) return kSuccess;
  std::string text = std::to_string(*time);
  Utils::LogMessage(logger, "Last update time found with value: ", text);
  result = std::move(text);
  return kSuccess;
}

}  // namespace

int KXTool::GetUpdateErrors(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kUpdateErrorsLines,
      [&](const Value& output) { return ExtractUpdateErrors(output, result, logger); }, logger);
}

int KXTool::GetUpdateStatus(std::string& result, const char* status, Logger* logger) {
  return RunStatusQuery(
      *this, kUpdateStatusLines,
      [&](const Value& output) { return ExtractUpdateStatus(output, status, result, logger); },
      logger);
}

int KXTool::CheckIsUpToDate(bool& upToDate, Logger* logger) {
  upToDate = true;
  return RunStatusQuery(
      *this, kUpToDateLines,
      [&](const Value& output) { return EvaluateUpToDate(output, upToDate, logger); }, logger);
}

int KXTool::GetUpdateLocations(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kUpdateLocationsLines,
      [&](const Value& output) { return ExtractUpdateLocations(output, result, logger); }, logger);
}

int KXTool::GetLastUpdate(std::string& result, Logger* logger) {
  return RunStatusQuery(
      *this, kLastUpdateLines,
      [&](const Value& output) { return ExtractLastUpdate(output, result, logger); }, logger);
}
