#ifndef TESTS_SUPPORT_QUERY_FIXTURE_H_
#define TESTS_SUPPORT_QUERY_FIXTURE_H_

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/tool_fixture.h"

namespace fake {

/// One status query of the tool in a uniform shape, with the lines of its frame.
struct Query {
  std::string name;
  /// Runs the query. CheckIsUpToDate() answers with a flag: its text is "1" or "0".
  std::function<int(KXTool& tool, std::string& result, Logger* logger)> run;
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
  /// The result before a query runs.
  static constexpr char kBefore[] = "before";

  /// Returns the result after a query that failed: kBefore, except that CheckIsUpToDate() sets its
  /// flag to true before anything else.
  static std::string Untouched(const Query& query);

  QueryFixture() { sdk.Install(); }

  /// Runs `query` over the product status `output` (JSON text), with a log and without. Expects
  /// `code` and `result`, and the whole log of a successful call with the lines of the extraction.
  void ExpectExtraction(const Query& query, const std::string& output, int code,
                        const std::string& result, const Lines& extractionLines);
};

}  // namespace fake

#endif  // TESTS_SUPPORT_QUERY_FIXTURE_H_
