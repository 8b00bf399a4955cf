#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "platform/files.h"
#include "queries/joined_list.h"
#include "queries/scan_summary.h"

namespace {

constexpr char kLogDirectory[] = "/Library/Application Support/Halvard/Logs";

/// One kind of scan, and the newest summary of it.
struct ScanReport {
  std::string_view summaryName;     ///< what follows the "_" in the names of its summaries
  std::string_view taskIdentifier;  ///< the product's
  std::string path = {};            ///< of the newest summary; empty when there is none
  platform::FileTime time = {};     ///< of its last change
};

/// In the order in which they are reported.
using ScanReports = std::array<ScanReport, 2>;

ScanReports MakeReports() {
  return {{{"Full Scan.xml", "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"},
           {"Quick Scan.xml", "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"}}};
}

/// Splits `name` at runs of "_" and returns the second piece; empty when there is none.
std::string_view SecondPiece(std::string_view name) {
  constexpr std::string_view kSeparator = "_";
  std::size_t end = 0;
  std::string_view piece;
  for (int count = 0; count < 2; ++count) {
    const std::size_t begin = name.find_first_not_of(kSeparator, end);
    if (begin == std::string_view::npos) return {};
    end = std::min(name.find_first_of(kSeparator, begin), name.size());
    piece = name.substr(begin, end - begin);
  }
  return piece;
}

bool IsLater(const platform::FileTime& time, const platform::FileTime& other) {
  return time.seconds > other.seconds ||
         (time.seconds == other.seconds && time.nanoseconds > other.nanoseconds);
}

/// Records the entry `name` of the directory when it is the newest summary of its kind so far.
/// @return 0, or the errno of a failure to read the entry's status
int ConsiderEntry(const char* name, ScanReports& reports) {
  const std::string_view piece = SecondPiece(name);
  for (ScanReport& report : reports) {
    if (piece != report.summaryName) continue;
    std::string path = std::string(kLogDirectory) + "/" + name;
    platform::FileTime time;
    if (const int error = platform::ModificationTime(path, time); error != 0) return error;
    if (IsLater(time, report.time)) {
      report.time = time;
      report.path = std::move(path);
    }
  }
  return kSuccess;
}

/// Finds the newest summary of each kind.
/// @return 0, or the errno of a failure to read the directory or an entry's status
int FindSummaries(ScanReports& reports, Logger* logger) {
  platform::DirectoryReader directory;
  if (const int error = directory.Open(kLogDirectory); error != 0) return error;
  Utils::LogMessage(logger, "Retrieve Quick and Full scan XMLs");
  while (const char* const name = directory.Next()) {
    if (const int error = ConsiderEntry(name, reports); error != 0) return error;
  }
  return directory.Error();
}

void LogUnusableSummary(queries::SummaryResult problem, const std::string& path, Logger* logger) {
  switch (problem) {
    case queries::SummaryResult::kRead:
      return;
    case queries::SummaryResult::kNoRoot:
      return Utils::LogMessage(logger, "Invalid XML file for", path);
    case queries::SummaryResult::kNoScanSummary:
      return Utils::LogMessage(logger, "Invalid XML file. Could not find \"ScanSummary\" node");
    case queries::SummaryResult::kNoStartTime:
      return Utils::LogMessage(logger, "Invalid XML file. Could not find \"startTime\" node");
    case queries::SummaryResult::kNoDuration:
      return Utils::LogMessage(logger, "Invalid XML. Could not find \"duration\" node");
  }
}

}  // namespace

int KXTool::GetLastSystemScan(std::string& result, Logger* logger) {
  ScanReports reports = MakeReports();
  if (const int error = FindSummaries(reports, logger); error != 0) return error;

  for (const ScanReport& report : reports) {
    if (report.path.empty()) continue;
    std::string xml;
    if (platform::ReadFile(report.path, xml) != 0) xml.clear();
    std::int64_t endTime = 0;
    const queries::SummaryResult summary = queries::ReadScanSummary(xml, endTime);
    if (summary != queries::SummaryResult::kRead) {
      LogUnusableSummary(summary, report.path, logger);
      return kENOENT;
    }
    queries::AppendToList(result,
                          std::string(report.taskIdentifier) + "=" + std::to_string(endTime));
    Utils::LogMessage(logger, "Last system scan found for", report.path, ": ", endTime);
  }
  Utils::LogMessage(logger, "Finished retrieving last system scan successfully");
  return kSuccess;
}
