#ifndef TESTS_SUPPORT_QUERY_FIXTURE_H_
#define TESTS_SUPPORT_QUERY_FIXTURE_H_

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/tool_fixture.h"

namespace fake {

/// One status query of the tool, in a form that is the same for all, and its frame of log lines.
struct Query {
  std::string name;
  /// Runs the query. CheckIsUpToDate() answers with a flag: its text is "1" or "0".
  std::function<int(KXTool& tool, std::string& result, Logger* logger)> run;
  std::string failureLine;
  bool failureEndsInCode;
  std::string guardLine;
  std::string closingLine;  ///< the code follows
};

/// For GoogleTest's messages.
void PrintTo(const Query& query, std::ostream* stream);

Query UpdateErrors();
Query UpdateStatus(const std::string& location);
Query IsUpToDate();
Query UpdateLocations();
Query LastUpdate();
Query CriticalIssues();
Query ProductVersion();
Query FeatureStatus();

/// All of them; the update status is that of the location "Product".
const std::vector<Query>& AllQueries();

/// Fixture of the status queries: the product is installed, the SDK's answer scripted.
class QueryFixture : public ToolFixture {
 protected:
  /// The result text of a query before it runs. A query that leaves the result alone leaves this;
  /// a flag is set to true before anything else, so for a flag that is "1".
  static constexpr char kBefore[] = "before";
  static std::string Untouched(const Query& query);

  QueryFixture() { sdk.Install(); }

  /// Runs `query` over the product status `output` (JSON text), with a log and without, and
  /// expects it to end with `code` and `result`, and with the whole log of a call that succeeds
  /// and a walk that writes `walkLines`.
  void ExpectWalk(const Query& query, const std::string& output, int code,
                  const std::string& result, const Lines& walkLines);

  /// Runs `query`, whose SDK call fails with `code` and the log `wrapperLog`, once.
  void ExpectFailure(const Query& query, int code, const std::function<Lines()>& wrapperLog);

  /// The whole log of a query over `output`.
  static Lines WholeLog(const Query& query, const std::string& output, const Lines& walkLines,
                        int code);
};

}  // namespace fake

#endif  // TESTS_SUPPORT_QUERY_FIXTURE_H_
