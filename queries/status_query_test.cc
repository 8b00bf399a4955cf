#include <algorithm>
#include <new>

#include "sdk/method_catalogue.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/query_fixture.h"

namespace queries {
namespace {

using fake::AllQueries;
using fake::Lines;
using fake::Query;
using testing::ElementsAre;

/// What all status queries have in common.
class StatusQueryTest : public fake::QueryFixture, public testing::WithParamInterface<Query> {};

std::string NameOf(const testing::TestParamInfo<Query>& query) { return query.param.name; }

INSTANTIATE_TEST_SUITE_P(All, StatusQueryTest, testing::ValuesIn(AllQueries()), NameOf);

/// An output in which every query finds something, in texts too long for a short-string buffer.
constexpr char kRichOutput[] = R"({
    "Locations":{"Product":{"update":{"error":-1999999999,"time":1700000000000,
                                      "lastSucceededTime":1600000000000},
                            "Version":"7.21.300129.200129-production"},
                 "a location with a long name":{"update":{"error":5,"lastSucceededTime":1}}},
    "Alerts":{"an alert with a long name":{"severity":"critical"},
              "another alert with a long name":{"severity":"CRITICAL"}},
    "Features":[{"id":"a feature with a long name","isFunctioning":true},
                {"id":"another feature with a long name","enabled":false}],
    "LastUpdateTime":-1234567890123456789})";

TEST_P(StatusQueryTest, AsksTheProductForItsStatusOnce) {
  sdk.answers = {fake::Answer("{}")};
  std::string result;
  EXPECT_EQ(GetParam().run(Tool(), result, nullptr), 0);
  EXPECT_THAT(sdk.Requests(), ElementsAre(agentsdkMethods.at("Product.GetStatus")));
}

TEST_P(StatusQueryTest, FailedMethodLeavesTheResult) {
  world.files.clear();
  std::string result = kBefore;
  EXPECT_EQ(GetParam().run(Tool(), result, nullptr), 20);
  EXPECT_EQ(result, Untouched(GetParam()));
}

TEST_P(StatusQueryTest, MethodErrorWhoseLow32BitsAreZeroIsASuccess) {
  sdk.answers = {fake::Answer(kRichOutput, "Product", 4294967296)};
  std::string result = kBefore;
  EXPECT_EQ(GetParam().run(Tool(), result, Log()), 0);
  Lines log = TakeLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.back(), GetParam().closingLine + "0");
}

TEST_P(StatusQueryTest, DeepNestingIsHarmless) {
  constexpr std::size_t kDepth = 100000;
  const std::string deep = std::string(kDepth, '[') + std::string(kDepth, ']');
  std::string objects;
  for (std::size_t level = 0; level < kDepth; ++level) objects += R"({"update":)";
  objects += "1" + std::string(kDepth, '}');
  sdk.answers = {fake::Answer(R"({"Other":)" + deep + R"(,"Locations":{"Product":)" + objects +
                              R"(},"Features":[)" + deep + R"(],"Alerts":{"a":)" + objects + "}}")};
  std::string result;
  const int code = GetParam().run(Tool(), result, nullptr);
  EXPECT_EQ(code, GetParam().name == "GetUpdateStatus" ? 3 : 0);
}

/// The guard of the extractions, tested by making one allocation after another fail.
class GuardTest : public StatusQueryTest {
 protected:
  /// The outcome of one run.
  struct Run {
    bool escaped;  ///< with an exception
    int code;
    std::string result;
    Lines log;
  };

  /// Runs the query over kRichOutput. The `number`th allocation after the product has answered
  /// fails, if there are that many.
  Run RunFailing(std::size_t number, Logger* log) {
    world.whenWaiting.push_back([this, number] {
      sdk.Complete(sdk.Batch().c_str(), 0, fake::Answer(kRichOutput).c_str());
      failure_.Arm(number);
    });
    Run run = {false, 0, kBefore, {}};
    try {
      run.code = GetParam().run(Tool(), run.result, log);
    } catch (const std::bad_alloc&) {
      run.escaped = true;
    }
    hasFailed_ = failure_.Disarm();
    if (log != nullptr) run.log = TakeLog();
    return run;
  }

  /// All runs in which an allocation fails, and last the one in which none does.
  std::vector<Run> RunFailingEach(Logger* log) {
    std::vector<Run> runs;
    do {
      runs.push_back(RunFailing(runs.size() + 1, log));
    } while (hasFailed_);
    return runs;
  }

 private:
  fake::AllocationFailure failure_;
  bool hasFailed_ = false;
};

INSTANTIATE_TEST_SUITE_P(All, GuardTest, testing::ValuesIn(AllQueries()), NameOf);

/// The lines of a log that follow the SDK call.
Lines ExtractionLog(const Lines& log) {
  const auto end = std::find(log.begin(), log.end(), "AgentSDK Method returned with error code: 0");
  return end == log.end() ? Lines() : Lines(end + 1, log.end());
}

TEST_P(GuardTest, FailedAllocationInTheExtractionIsCaught) {
  const std::vector<Run> runs = RunFailingEach(Log());
  const Run& whole = runs.back();
  ASSERT_EQ(whole.code, 0);
  Lines wholeExtraction = ExtractionLog(whole.log);
  wholeExtraction.pop_back();  // the closing line
  int guarded = 0;
  for (const Run& run : runs) {
    if (run.escaped) {
      // Not in the extraction: in the SDK call before, or in the closing line.
      EXPECT_TRUE(run.result == kBefore || run.result == Untouched(GetParam()) ||
                  run.result == whole.result)
          << run.result;
      continue;
    }
    if (run.code == 0) {
      EXPECT_EQ(run.result, whole.result);
      continue;
    }
    ++guarded;
    EXPECT_EQ(run.code, 3);
    EXPECT_EQ(run.result, Untouched(GetParam()));
    Lines extraction = ExtractionLog(run.log);
    ASSERT_GE(extraction.size(), 2U);
    EXPECT_EQ(extraction.back(), GetParam().closingLine + "3");
    extraction.pop_back();
    EXPECT_EQ(extraction.back(), GetParam().guardLine);
    extraction.pop_back();
    ASSERT_LE(extraction.size(), wholeExtraction.size());
    EXPECT_TRUE(std::equal(extraction.begin(), extraction.end(), wholeExtraction.begin()));
  }
  EXPECT_GT(guarded, 0);
}

TEST_P(GuardTest, WorksWithoutALog) {
  const std::vector<Run> runs = RunFailingEach(nullptr);
  int guarded = 0;
  for (const Run& run : runs) {
    EXPECT_EQ(run.result, run.code == 3 ? Untouched(GetParam())
                          : run.escaped ? kBefore
                                        : runs.back().result);
    if (run.code == 3) ++guarded;
  }
  EXPECT_EQ(runs.back().code, 0);
  EXPECT_GT(guarded, 0);
}

}  // namespace
}  // namespace queries
