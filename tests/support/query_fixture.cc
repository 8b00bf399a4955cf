#include "tests/support/query_fixture.h"

namespace fake {

void PrintTo(const Query& query, std::ostream* stream) { *stream << query.name; }

Query UpdateErrors() {
  return {"GetUpdateErrors", &KXTool::GetUpdateErrors, "Invalid JSON",
          "Finished to get update errors with error: "};
}

Query UpdateStatus(const std::string& location) {
  return {"GetUpdateStatus",
          [location](KXTool& tool, std::string& result, Logger* logger) {
            return tool.GetUpdateStatus(result, location.c_str(), logger);
          },
          "Invalid JSON. Cannot find \"Locationsa\" field",
          "Finished getting update status with error: "};
}

Query IsUpToDate() {
  return {"CheckIsUpToDate",
          [](KXTool& tool, std::string& result, Logger* logger) {
            bool upToDate = false;
            const int code = tool.CheckIsUpToDate(upToDate, logger);
            result = upToDate ? "1" : "0";
            return code;
          },
          "Invalid JSON. Could not find \"Locations\" member",
          "Finished getting update status with error: "};
}

Query UpdateLocations() {
  return {"GetUpdateLocations", &KXTool::GetUpdateLocations, "Invalid JSON",
          "Finished to get update locations with error code: "};
}

Query LastUpdate() {
  return {"GetLastUpdate", &KXTool::GetLastUpdate, "Invalid JSON",
          "Finished retrieving last update with error code: "};
}

Query CriticalIssues() {
  return {"GetCriticalIssues", &KXTool::GetCriticalIssues, "Invalid JSON",
          "Finished to get critical issues with error: "};
}

Query ProductVersion() {
  return {"GetProductVersion", &KXTool::GetProductVersion, "Invalid JSON",
          "Finished returning product version with error code: "};
}

Query FeatureStatus() {
  return {"GetFeatureStatus", &KXTool::GetFeatureStatus, "Invalid JSON",
          "Finished to get feature status with error code: "};
}

const std::vector<Query>& AllQueries() {
  static const auto& queries = *new std::vector<Query>{
      UpdateErrors(), UpdateStatus("Product"), IsUpToDate(),     UpdateLocations(),
      LastUpdate(),   CriticalIssues(),        ProductVersion(), FeatureStatus()};
  return queries;
}

std::string QueryFixture::Untouched(const Query& query) {
  return query.name == "CheckIsUpToDate" ? "1" : kBefore;
}

void QueryFixture::ExpectExtraction(const Query& query, const std::string& output, int code,
                                    const std::string& result, const Lines& extractionLines) {
  SCOPED_TRACE(query.name + " over " + output.substr(0, 300));
  sdk.answers = {Answer(output)};
  std::string text = kBefore;
  EXPECT_EQ(query.run(Tool(), text, Log()), code);
  EXPECT_EQ(text, result);
  EXPECT_THAT(TakeLog(), testing::ElementsAreArray(SplitAtNewlines(
                             Concat({{"Execute Product.GetStatus method"},
                                     AnsweredWrapperLog("Product.GetStatus", Answer(output)),
                                     extractionLines,
                                     {query.closingLine + std::to_string(code)}}))));

  text = kBefore;
  EXPECT_EQ(query.run(Tool(), text, nullptr), code) << "without a log";
  EXPECT_EQ(text, result) << "without a log";
}

}  // namespace fake
