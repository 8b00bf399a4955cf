// Tests SDK calls in cases that simulated endpoints cannot produce.
// tests/end_to_end/invocation_test.py checks complete logs.

#include "json/document.h"
#include "sdk/method_catalogue.h"
#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

using fake::Answer;
using fake::Concat;
using fake::Lines;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

const std::string kLoadCall = "load /Library/Corvane/XQP/product/lib/agentsdk.dylib now";
const Lines kLastTryCalls = {"get instance", "register",         "run",
                             "unregister",   "release instance", "unload"};

/// The calls of tries that ended with these statuses and were each followed by another one.
Lines RetryCalls(const std::deque<int>& statuses) {
  Lines calls = {kLoadCall};
  for (const int status : statuses) {
    calls.insert(calls.end(), {"get instance", "register", "run"});
    if (status == 1) calls.emplace_back("sleep 30");
    calls.insert(calls.end(), {"unregister", "release instance"});
  }
  return calls;
}

class InvocationTest : public fake::ToolFixture {
 protected:
  InvocationTest() { sdk.Install(); }

  /// Runs `method`; the outcomes are in the members.
  int Execute(const std::string& method = "Product.GetStatus") {
    Logger* const log = Log();
    return Tool().ExecuteAgentSDKMethod(method, output, apiError, sdkError, log);
  }

  rapidjson::Document output;
  int apiError = -1;
  long long sdkError = -1;
};

TEST_F(InvocationTest, SendsTheRequestOfTheMethod) {
  EXPECT_EQ(agentsdkMethods.size(), 5U);
  for (const auto& [method, request] : agentsdkMethods) {
    EXPECT_EQ(Execute(method), 60);
    EXPECT_EQ(sdk.Requests().back(), request);
  }
  EXPECT_EQ(sdk.LastRegistered().context, &Tool());
  // The end-to-end tests cover the other four.
  EXPECT_STREQ(agentsdkMethods.at("kx.Product.Configuration.GetSkyloftIdentity"),
               "{ \"type\": \"agentsdk\", \"data\": { \"kx.Product.Configuration\":[ { "
               "\"@name\":\"GetSkyloftIdentity\", \"input\":{} } ] } }");
}

TEST_F(InvocationTest, UnknownMethods) {
  for (const std::string method :
       {"product.getstatus", "Product.GetStatus ", "", "FileScan.OnDemand.RunScanTask"}) {
    EXPECT_EQ(Execute(method), 22);
    EXPECT_EQ(apiError, 0);
    EXPECT_EQ(sdkError, 0);
    EXPECT_THAT(TakeLog(),
                ElementsAreArray(Concat({fake::LoadedLibraryLog(method),
                                         {"Method not found. Unregistering instance",
                                          "Instance unregistered with exit code : 0"}})));
  }
  EXPECT_THAT(world.Calls(), Not(Contains("get instance")));
}

/// The statuses of the tries that come before the one that counts.
class RetryTest : public InvocationTest, public testing::WithParamInterface<std::deque<int>> {
 protected:
  RetryTest() { sdk.runStatuses = GetParam(); }

  /// Statuses of calls that succeed in the earlier tries and end with `last`.
  std::deque<int> EndingWith(int last) const {
    std::deque<int> statuses(GetParam().size(), 0);
    statuses.push_back(last);
    return statuses;
  }
};

INSTANTIATE_TEST_SUITE_P(EarlierTries, RetryTest,
                         testing::Values(std::deque<int>{}, std::deque<int>{1},
                                         std::deque<int>{2, 2}, std::deque<int>{1, 1, 1, 1},
                                         std::deque<int>{2, 1, 2, 1}));

TEST_P(RetryTest, NoInstance) {
  sdk.getInstanceStatuses = EndingWith(-7);
  EXPECT_EQ(Execute(), 13);
  EXPECT_EQ(apiError, -7);
  EXPECT_EQ(TakeLog().back(), "Failed to get AgentSDK instance. Error code : -7");
  EXPECT_THAT(world.Calls(),
              ElementsAreArray(Concat({RetryCalls(GetParam()), {"get instance", "unload"}})));
}

TEST_P(RetryTest, NotRegistered) {
  sdk.registerStatuses = EndingWith(9);
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 9);
  EXPECT_EQ(TakeLog().back(), "Failed to register instance notifications. Error code : 9");
  EXPECT_THAT(
      world.Calls(),
      ElementsAreArray(Concat(
          {RetryCalls(GetParam()), {"get instance", "register", "release instance", "unload"}})));
}

TEST_P(RetryTest, RunFailsForGood) {
  sdk.runStatuses.push_back(-3);
  sdk.unregisterStatuses = EndingWith(6);
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 6);
  EXPECT_EQ(TakeLog().back(), "Instance unregistered with exit code : 6");
  EXPECT_THAT(world.Calls(), ElementsAreArray(Concat({RetryCalls(GetParam()), kLastTryCalls})));
}

TEST_P(RetryTest, RunSucceedsInTheEnd) {
  sdk.answers = {Answer("{}")};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(apiError, 0);
  const auto pauses = std::count(GetParam().begin(), GetParam().end(), 1);
  EXPECT_THAT(TakeLog(), Contains("RunAsync elapsed time = " +
                                  std::to_string(30.0 * static_cast<double>(pauses)) + " seconds"));
  EXPECT_THAT(world.Calls(), ElementsAreArray(Concat({RetryCalls(GetParam()), kLastTryCalls})));
}

TEST_P(RetryTest, FailingUnregistrationEndsTheRetriesAndKeepsTheRunsStatus) {
  for (const int status : {1, 2}) {
    sdk.runStatuses = GetParam();
    if (sdk.runStatuses.size() == 4) sdk.runStatuses.pop_back();  // no try follows the fifth
    sdk.unregisterStatuses.assign(sdk.runStatuses.size(), 0);
    sdk.runStatuses.push_back(status);
    sdk.unregisterStatuses.insert(sdk.unregisterStatuses.end(), {8, 4});
    EXPECT_EQ(Execute(), 45);
    EXPECT_EQ(apiError, 4);
    const Lines log = TakeLog();
    EXPECT_THAT(log, Contains("Failed to unregister instance notifications. Error code : 8"));
    EXPECT_EQ(log[log.size() - 2],
              "Failed to run instance. Error code : " + std::to_string(status));
  }
}

TEST_F(InvocationTest, ElapsedTimesComeFromTheWallClock) {
  for (const auto& [step, elapsed] :
       {std::pair(1234567, "1.234567"), std::pair(-2500000, "-2.500000")}) {
    sdk.onRun = [this, microseconds = step](const std::string&) {
      world.wallMicroseconds += microseconds;
    };
    EXPECT_EQ(Execute(), 60);
    const Lines log = TakeLog();
    const std::string line = std::string("RunAsync elapsed time = ") + elapsed + " seconds";
    EXPECT_THAT(log, Contains("Inner " + line));
    EXPECT_THAT(log, Contains(line));
  }
  EXPECT_THAT(world.expiredWaits, ElementsAre(10.0, 10.0));
}

TEST_F(InvocationTest, RunStartIsLocalTime) {
  setenv("TZ", "XXX-2", 1);
  tzset();
  EXPECT_EQ(Execute(), 60);
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_THAT(TakeLog(), Contains("Run async starts at Wed Nov 15 00:13:20 2023"));
}

TEST_F(InvocationTest, RunStartBeyondTheCalendar) {
  world.secondsAhead = std::int64_t{1} << 60;
  EXPECT_EQ(Execute(), 60);
  world.secondsAhead = 0;
  EXPECT_THAT(TakeLog(), Contains("Cannot retrieve time! Run async starts at "));
}

TEST_F(InvocationTest, SuccessWithoutAnInstanceIsAFailure) {
  world.libraries[fake::Sdk::LibraryPath()]["AgentSDK_GetInstance"] =
      reinterpret_cast<void*>(+[](void**, int) { return 0; });
  EXPECT_EQ(Execute(), 13);
  EXPECT_EQ(apiError, 0);
  EXPECT_EQ(TakeLog().back(), "Failed to get AgentSDK instance. Error code : 0");
}

TEST_F(InvocationTest, TimeOutReportsTheUnregistration) {
  sdk.unregisterStatuses = {21};
  EXPECT_EQ(Execute(), 60);
  EXPECT_EQ(apiError, 21);
  EXPECT_EQ(TakeLog().back(), "Instance unregistered with exit code : 21");
}

TEST_F(InvocationTest, AnswerOfAnEarlierCallIsForgotten) {
  sdk.answers = {Answer("{}")};
  EXPECT_EQ(Execute(), 0);
  sdk.answers.clear();
  TakeLog();
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(TakeLog(), Not(Contains(Answer("{}"))));
}

TEST_F(InvocationTest, LimitOfAWatchedScanIsFollowedByOneMoreWait) {
  MakeTool({"-startFullScan", "30"});
  Tool().scanTimeout = 30;
  stopThread = false;
  sdk.unregisterStatuses = {5};
  bool wasStopped = true;
  world.whenWaiting = {nullptr, [&] { wasStopped = stopThread; }};
  EXPECT_EQ(Execute(), 60);
  EXPECT_FALSE(wasStopped);
  EXPECT_TRUE(stopThread);
  EXPECT_EQ(apiError, 5);
  EXPECT_THAT(world.expiredWaits, ElementsAre(30.0));
  EXPECT_EQ(world.untimedWaits, 1);
}

TEST_F(InvocationTest, BatchContextIsFreshAndTerminated) {
  std::fill(std::begin(Tool().batchContext), std::end(Tool().batchContext), 'x');
  for (const std::uint64_t number : {1U, 2U}) {
    Tool().CreateBatchContext();
    EXPECT_EQ(std::string(Tool().batchContext), fake::UuidText(number));
  }
}

}  // namespace
}  // namespace sdk
