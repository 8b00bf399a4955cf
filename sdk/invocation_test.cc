#include <thread>

#include "product/install_locations.h"
#include "sdk/json_document.h"
#include "sdk/method_catalogue.h"
#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

using fake::AcceptedSignatureLog;
using fake::Answer;
using fake::CompletionLog;
using fake::Concat;
using fake::Lines;
using fake::LoadedLibraryLog;
using fake::StartedCallLog;
using fake::UuidText;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kMethod[] = "Product.GetStatus";

const std::string kLoadCall = "load /Library/Corvane/XQP/product/lib/agentsdk.dylib now";

/// The lines that open a run.
const Lines kRunStart = {"Start RunAsync", "Run async starts at Tue Nov 14 22:13:20 2023", ""};

/// The lines that close it, `elapsed` being its seconds.
Lines RunEnd(int status, const std::string& elapsed = "0.000000") {
  return {"RunAsync elapsed time = " + elapsed + " seconds",
          "RunAsync error code = " + std::to_string(status), "End RunAsync", "AgentSDK response",
          ""};
}

/// The lines of the `number`th try in a world where no batch came before the first.
Lines Try(int number, int status) {
  Lines lines = fake::TryLog(number, status);
  lines[5] = "Batch context = " + UuidText(static_cast<std::uint64_t>(number));
  return lines;
}

/// The lines between a try that ended with `status` and the next one.
Lines Retry(int status) {
  Lines lines;
  if (status == 1) lines.push_back("AgentSDK error internal. Sleep 30 seconds");
  lines.push_back("RunAsync unregister instance notifications");
  return lines;
}

/// Tries 1 to `count`, all ending with `status`, and what leads to the next one.
Lines FailedTries(int count, int status) {
  Lines lines;
  for (int number = 1; number <= count; ++number) {
    lines = Concat({lines, Try(number, status), Retry(status)});
  }
  return lines;
}

/// The SDK calls of a try that is followed by another one.
Lines RetryCalls(int status) {
  Lines lines = {"get instance", "register", "run"};
  if (status == 1) lines.push_back("sleep 30");
  return Concat({lines, {"unregister", "release instance"}});
}

Lines Repeat(int count, const Lines& lines) {
  Lines all;
  for (int number = 0; number < count; ++number) all = Concat({all, lines});
  return all;
}

/// The lines of a good answer's unpacking and of the ending.
const Lines kGoodAnswerEnd = {"Parse AgentSDK response",
                              "Parse \"response\" member",
                              "Parse \"data\" member",
                              "Find method key",
                              "Parse \"error\" member",
                              "Response error code : 0",
                              "Parse \"output\" member",
                              "Instance unregistered with exit code : 0",
                              "Finished executing AgentSDK method"};

const Lines kEmptyAnswerEnd = {"Failed to receive AgentSDK response. JSON is empty",
                               "Instance unregistered with exit code : 0",
                               "Finished executing AgentSDK method"};

class InvocationTest : public fake::ToolFixture {
 protected:
  /// Runs `method`; the outcomes are in the members.
  int Execute(const std::string& method = kMethod) {
    Logger* const log = Log();
    return Tool().ExecuteAgentSDKMethod(method, output, apiError, sdkError, log);
  }

  /// Everything but the return value of a call that never reached the SDK's instance.
  void ExpectNothingAnswered() {
    EXPECT_EQ(apiError, 0);
    EXPECT_EQ(sdkError, 0);
    EXPECT_TRUE(output.IsNull());
  }

  rapidjson::Document output;
  int apiError = -1;
  long long sdkError = -1;
};

TEST_F(InvocationTest, AnsweredCall) {
  sdk.Install();
  const std::string answer = Answer(R"({"a":1})");
  sdk.answers = {answer};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(apiError, 0);
  EXPECT_EQ(sdkError, 0);
  EXPECT_EQ(output["a"].GetInt(), 1);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({StartedCallLog(kMethod),
                                                  {"Set run async timeout"},
                                                  CompletionLog(answer),
                                                  kGoodAnswerEnd})));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall, "get instance", "register", "run", "unregister",
                                         "release instance", "unload"));
  EXPECT_THAT(sdk.Requests(), ElementsAre(agentsdkMethods.at(kMethod)));
  EXPECT_EQ(sdk.LastRegistered().context, &Tool());
}

TEST_F(InvocationTest, NullLoggerChangesNothing) {
  sdk.Install();
  sdk.answers = {Answer(R"({"a":1})")};
  sdk.runStatuses = {1, 2, 0};
  EXPECT_EQ(Tool().ExecuteAgentSDKMethod(kMethod, output, apiError, sdkError, nullptr), 0);
  EXPECT_EQ(output["a"].GetInt(), 1);
  EXPECT_THAT(world.sleeps, ElementsAre(30U));
  Log();
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(InvocationTest, EachMethodSendsItsOwnRequest) {
  sdk.Install();
  for (const auto& [method, request] : agentsdkMethods) {
    EXPECT_EQ(Tool().ExecuteAgentSDKMethod(method, output, apiError, sdkError, nullptr), 60);
    EXPECT_EQ(sdk.Requests().back(), request);
  }
}

TEST_F(InvocationTest, UsesTheLayoutThatIsInstalled) {
  for (const int layout : {3, 2, 1}) {
    sdk.Install(layout);
    EXPECT_EQ(Tool().ExecuteAgentSDKMethod(kMethod, output, apiError, sdkError, nullptr), 60);
    const Lines calls = world.Calls();
    EXPECT_EQ(calls[calls.size() - 7], "load " + fake::Sdk::LibraryPath(layout) + " now");
  }
}

// Before the library is loaded.

TEST_F(InvocationTest, ProductNotInstalled) {
  EXPECT_EQ(Execute(), 20);
  ExpectNothingAnswered();
  EXPECT_THAT(TakeLog(),
              ElementsAre("Executing AgentSDK method: Product.GetStatus",
                          "Retrieving ORVEX directory path", "GetDirectory error code = 20",
                          "Failed to retrieve ORVEX directory path. Error code : 20"));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(InvocationTest, SignatureCannotBeChecked) {
  sdk.Install();
  const std::string path = fake::Sdk::LibraryPath();
  world.signatures[path].createStatus = -67062;
  EXPECT_EQ(Execute(), -67062);
  ExpectNothingAnswered();
  EXPECT_THAT(TakeLog(),
              ElementsAre("Executing AgentSDK method: Product.GetStatus",
                          "Retrieving ORVEX directory path", "GetDirectory error code = 0",
                          "Validate " + path + " binary", "Retrieve Sec static code for " + path,
                          "Failed to retrieve static code. Error code: -67062",
                          "Failed to validate binary. Error code : -67062"));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(InvocationTest, AdHocSignature) {
  sdk.Install();
  world.signatures[fake::Sdk::LibraryPath()].commonNames.reset();
  EXPECT_EQ(Execute(), 2);
  ExpectNothingAnswered();
  EXPECT_EQ(TakeLog().back(), "Failed to validate binary. Error code : 2");
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(InvocationTest, UnsignedLibrary) {
  sdk.Install();
  const std::string path = fake::Sdk::LibraryPath();
  world.signatures[path].validity = -67062;
  EXPECT_EQ(Execute(), 22);
  ExpectNothingAnswered();
  EXPECT_THAT(TakeLog(),
              ElementsAre("Executing AgentSDK method: Product.GetStatus",
                          "Retrieving ORVEX directory path", "GetDirectory error code = 0",
                          "Validate " + path + " binary", "Retrieve Sec static code for " + path,
                          "Check code validity", "Code is not valid", "Binary is not valid"));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(InvocationTest, LibraryOfAnotherSigner) {
  sdk.Install();
  const std::string path = fake::Sdk::LibraryPath();
  world.signatures[path].teamIdentifier = "AAAAAAAAAA";
  Lines check = AcceptedSignatureLog(path);
  check.back() = "Check complete. File is not signed by Corvane";
  EXPECT_EQ(Execute(), 22);
  ExpectNothingAnswered();
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat(
          {{"Executing AgentSDK method: Product.GetStatus", "Retrieving ORVEX directory path",
            "GetDirectory error code = 0", "Validate " + path + " binary"},
           check,
           {"Binary is not valid"}})));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

// Loading.

TEST_F(InvocationTest, LibraryCannotBeLoaded) {
  sdk.Install();
  world.libraries.clear();
  EXPECT_EQ(Execute(), 35);
  ExpectNothingAnswered();
  Lines expected = LoadedLibraryLog(kMethod);
  expected.resize(expected.size() - 4);
  expected.back() = "Failed to load library";
  expected.insert(expected.end() - 1, "Loading library from: " + fake::Sdk::LibraryPath());
  EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall));
}

TEST_F(InvocationTest, GetInstanceIsNotExported) {
  sdk.Install();
  world.libraries[fake::Sdk::LibraryPath()].erase("AgentSDK_GetInstance");
  EXPECT_EQ(Execute(), 14);
  ExpectNothingAnswered();
  Lines expected = LoadedLibraryLog(kMethod);
  expected.resize(expected.size() - 3);
  expected.push_back("Failed to set get instance");
  EXPECT_EQ(expected[expected.size() - 2], "Set AgentSDK get instance");
  EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall, "unload"));
}

TEST_F(InvocationTest, ReleaseInstanceIsNotExported) {
  sdk.Install();
  world.libraries[fake::Sdk::LibraryPath()].erase("AgentSDK_ReleaseInstance");
  EXPECT_EQ(Execute(), 14);
  ExpectNothingAnswered();
  Lines expected = LoadedLibraryLog(kMethod);
  expected.back() = "Failed to set release instance";
  EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall, "unload"));
}

TEST_F(InvocationTest, UnknownMethods) {
  sdk.Install();
  for (const std::string method :
       {"product.getstatus", "Product.GetStatus ", "", "FileScan.OnDemand.RunScanTask"}) {
    EXPECT_EQ(Execute(method), 22);
    ExpectNothingAnswered();
    EXPECT_THAT(TakeLog(),
                ElementsAreArray(Concat({LoadedLibraryLog(method),
                                         {"Method not found. Unregistering instance",
                                          "Instance unregistered with exit code : 0"}})));
  }
  EXPECT_THAT(world.Calls(), ElementsAreArray(Repeat(4, {kLoadCall, "unload"})));
}

// The run and its retries.

/// Try number and status of the tries before it.
class FailingTryTest : public InvocationTest,
                       public testing::WithParamInterface<std::tuple<int, int>> {
 protected:
  FailingTryTest() {
    sdk.Install();
    sdk.runStatuses.assign(static_cast<std::size_t>(EarlierTries()), EarlierStatus());
  }

  int TryNumber() const { return std::get<0>(GetParam()); }
  int EarlierTries() const { return TryNumber() - 1; }
  int EarlierStatus() const { return std::get<1>(GetParam()); }
};

TEST_P(FailingTryTest, NoInstance) {
  sdk.getInstanceStatuses.assign(static_cast<std::size_t>(EarlierTries()), 0);
  sdk.getInstanceStatuses.push_back(-7);
  EXPECT_EQ(Execute(), 13);
  EXPECT_EQ(apiError, -7);
  EXPECT_EQ(sdkError, 0);
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                       kRunStart,
                                       FailedTries(EarlierTries(), EarlierStatus()),
                                       {"Get AgentSDK instance",
                                        "Failed to get AgentSDK instance. Error code : -7"}})));
  EXPECT_THAT(world.Calls(),
              ElementsAreArray(Concat({{kLoadCall},
                                       Repeat(EarlierTries(), RetryCalls(EarlierStatus())),
                                       {"get instance", "unload"}})));
}

TEST_P(FailingTryTest, NotRegistered) {
  sdk.registerStatuses.assign(static_cast<std::size_t>(EarlierTries()), 0);
  sdk.registerStatuses.push_back(9);
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 9);
  EXPECT_EQ(sdkError, 0);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                               kRunStart,
                               FailedTries(EarlierTries(), EarlierStatus()),
                               {"Get AgentSDK instance", "Instance retrieved successfully",
                                "RunAsync register instance notifications",
                                "Failed to register instance notifications. Error code : 9"}})));
  EXPECT_THAT(
      world.Calls(),
      ElementsAreArray(Concat({{kLoadCall},
                               Repeat(EarlierTries(), RetryCalls(EarlierStatus())),
                               {"get instance", "register", "release instance", "unload"}})));
}

TEST_P(FailingTryTest, RunFailsForGood) {
  sdk.runStatuses.push_back(-3);
  sdk.unregisterStatuses.assign(static_cast<std::size_t>(EarlierTries()), 0);
  sdk.unregisterStatuses.push_back(6);
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 6);
  EXPECT_EQ(sdkError, 0);
  const std::string elapsed = std::to_string(EarlierStatus() == 1 ? 30.0 * EarlierTries() : 0.0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  FailedTries(EarlierTries(), EarlierStatus()),
                                                  Try(TryNumber(), -3),
                                                  RunEnd(-3, elapsed),
                                                  {"Failed to run instance. Error code : -3",
                                                   "Instance unregistered with exit code : 6"}})));
  EXPECT_THAT(world.Calls(),
              ElementsAreArray(Concat({{kLoadCall},
                                       Repeat(EarlierTries(), RetryCalls(EarlierStatus())),
                                       {"get instance", "register", "run", "unregister",
                                        "release instance", "unload"}})));
}

TEST_P(FailingTryTest, RunSucceedsInTheEnd) {
  const std::string answer = Answer("{}");
  sdk.answers = {answer};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(apiError, 0);
  EXPECT_EQ(sdkError, 0);
  const int pauses = EarlierStatus() == 1 ? EarlierTries() : 0;
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  FailedTries(EarlierTries(), EarlierStatus()),
                                                  Try(TryNumber(), 0),
                                                  RunEnd(0, std::to_string(30.0 * pauses)),
                                                  {"Set run async timeout"},
                                                  CompletionLog(answer),
                                                  kGoodAnswerEnd})));
  EXPECT_EQ(world.sleeps, std::vector<unsigned>(static_cast<std::size_t>(pauses), 30));
}

INSTANTIATE_TEST_SUITE_P(EachTry, FailingTryTest,
                         testing::Combine(testing::Range(1, 6), testing::Values(1, 2)));

TEST_F(InvocationTest, InternalErrorFiveTimes) {
  sdk.Install();
  sdk.runStatuses = {1, 1, 1, 1, 1};
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 0);
  EXPECT_THAT(world.sleeps, ElementsAre(30U, 30U, 30U, 30U, 30U));
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  FailedTries(4, 1),
                                                  Try(5, 1),
                                                  {"AgentSDK error internal. Sleep 30 seconds"},
                                                  RunEnd(1, "150.000000"),
                                                  {"Failed to run instance. Error code : 1",
                                                   "Instance unregistered with exit code : 0"}})));
  EXPECT_THAT(world.Calls(),
              ElementsAreArray(Concat({{kLoadCall},
                                       Repeat(4, RetryCalls(1)),
                                       {"get instance", "register", "run", "sleep 30", "unregister",
                                        "release instance", "unload"}})));
}

TEST_F(InvocationTest, TryAgainFiveTimes) {
  sdk.Install();
  sdk.runStatuses = {2, 2, 2, 2, 2};
  EXPECT_EQ(Execute(), 45);
  EXPECT_THAT(world.sleeps, IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  FailedTries(4, 2),
                                                  Try(5, 2),
                                                  RunEnd(2),
                                                  {"Failed to run instance. Error code : 2",
                                                   "Instance unregistered with exit code : 0"}})));
  EXPECT_EQ(sdk.Requests().size(), 5U);
}

TEST_F(InvocationTest, BothTransientStatusesMixed) {
  sdk.Install();
  sdk.runStatuses = {2, 1, 2, 1, 0};
  const std::string answer = Answer("{}");
  sdk.answers = {answer};
  EXPECT_EQ(Execute(), 0);
  EXPECT_THAT(world.sleeps, ElementsAre(30U, 30U));
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  Try(1, 2),
                                                  Retry(2),
                                                  Try(2, 1),
                                                  Retry(1),
                                                  Try(3, 2),
                                                  Retry(2),
                                                  Try(4, 1),
                                                  Retry(1),
                                                  Try(5, 0),
                                                  RunEnd(0, "60.000000"),
                                                  {"Set run async timeout"},
                                                  CompletionLog(answer),
                                                  kGoodAnswerEnd})));
}

class FailingUnregistrationTest : public InvocationTest, public testing::WithParamInterface<int> {};

TEST_P(FailingUnregistrationTest, EndsTheRetriesAndKeepsTheRunsStatus) {
  const int runStatus = GetParam();
  sdk.Install();
  sdk.runStatuses = {2, runStatus};
  sdk.unregisterStatuses = {0, 8, 4};
  EXPECT_EQ(Execute(), 45);
  EXPECT_EQ(apiError, 4);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                               kRunStart,
                               Try(1, 2),
                               Retry(2),
                               Try(2, runStatus),
                               Retry(runStatus),
                               {"Failed to unregister instance notifications. Error code : 8"},
                               RunEnd(runStatus, runStatus == 1 ? "30.000000" : "0.000000"),
                               {"Failed to run instance. Error code : " + std::to_string(runStatus),
                                "Instance unregistered with exit code : 4"}})));
  Lines lastTry = RetryCalls(runStatus);
  lastTry.insert(lastTry.end() - 1, "unregister");
  EXPECT_THAT(world.Calls(),
              ElementsAreArray(Concat({{kLoadCall}, RetryCalls(2), lastTry, {"unload"}})));
}

INSTANTIATE_TEST_SUITE_P(BothTransientStatuses, FailingUnregistrationTest, testing::Values(1, 2));

TEST_F(InvocationTest, ElapsedTimesComeFromTheWallClock) {
  sdk.Install();
  sdk.onRun = [this](const std::string&) { world.wallMicroseconds += 1234567; };
  EXPECT_EQ(Execute(), 60);
  const Lines log = TakeLog();
  EXPECT_THAT(log, testing::Contains("Inner RunAsync elapsed time = 1.234567 seconds"));
  EXPECT_THAT(log, testing::Contains("RunAsync elapsed time = 1.234567 seconds"));
}

TEST_F(InvocationTest, WallClockStepsBack) {
  sdk.Install();
  sdk.onRun = [this](const std::string&) { world.wallMicroseconds -= 2500000; };
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(TakeLog(), testing::Contains("Inner RunAsync elapsed time = -2.500000 seconds"));
  EXPECT_THAT(world.expiredWaits, ElementsAre(10.0));
}

TEST_F(InvocationTest, RunStartIsLocalTime) {
  setenv("TZ", "XXX-2", 1);
  tzset();
  sdk.Install();
  EXPECT_EQ(Execute(), 60);
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_THAT(TakeLog(), testing::Contains("Run async starts at Wed Nov 15 00:13:20 2023"));
}

TEST_F(InvocationTest, RunStartBeyondTheCalendar) {
  sdk.Install();
  world.secondsAhead = std::int64_t{1} << 60;
  EXPECT_EQ(Execute(), 60);
  world.secondsAhead = 0;
  EXPECT_THAT(TakeLog(), testing::Contains("Cannot retrieve time! Run async starts at "));
}

TEST_F(InvocationTest, StatusOfTheFinalUnregistration) {
  sdk.Install();
  sdk.answers = {Answer("{}")};
  sdk.unregisterStatuses = {17};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(apiError, 17);
  const Lines log = TakeLog();
  EXPECT_EQ(log[log.size() - 2], "Instance unregistered with exit code : 17");
  EXPECT_EQ(log.back(), "Finished executing AgentSDK method");
}

TEST_F(InvocationTest, SuccessWithoutAnInstanceIsAFailure) {
  sdk.Install();
  world.libraries[fake::Sdk::LibraryPath()]["AgentSDK_GetInstance"] =
      reinterpret_cast<void*>(+[](void**, int) { return 0; });
  EXPECT_EQ(Execute(), 13);
  EXPECT_EQ(apiError, 0);
  EXPECT_EQ(TakeLog().back(), "Failed to get AgentSDK instance. Error code : 0");
}

// The wait.

struct Limit {
  const char* option;
  double seconds;
};

class TimeOutTest : public InvocationTest, public testing::WithParamInterface<Limit> {};

TEST_P(TimeOutTest, GivesUpAfterTheLimitOfTheOption) {
  sdk.Install();
  MakeTool({GetParam().option});
  EXPECT_EQ(Execute(), 60);
  EXPECT_EQ(sdkError, 0);
  EXPECT_THAT(world.expiredWaits, ElementsAre(GetParam().seconds));
  EXPECT_EQ(world.untimedWaits, 0);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({StartedCallLog(kMethod),
                               {"Set run async timeout", "Failed to run instance due to timeout",
                                "Instance unregistered with exit code : 0"}})));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall, "get instance", "register", "run", "unregister",
                                         "release instance", "unload"));
}

INSTANTIATE_TEST_SUITE_P(
    Options, TimeOutTest,
    testing::Values(Limit{"-startFullScan", 43200.0}, Limit{"-STARTFULLSCAN", 43200.0},
                    Limit{"-startQuickScan", 5400.0}, Limit{"-StArTqUiCkScAn", 5400.0},
                    Limit{"-getUpdateStatus", 10.0}, Limit{"-startUpdate", 10.0},
                    Limit{"-startFullScan ", 10.0}, Limit{"", 10.0}));

TEST_F(InvocationTest, TimeOutReportsTheUnregistration) {
  sdk.Install();
  sdk.unregisterStatuses = {21};
  EXPECT_EQ(Execute(), 60);
  EXPECT_EQ(apiError, 21);
  EXPECT_EQ(TakeLog().back(), "Instance unregistered with exit code : 21");
}

TEST_F(InvocationTest, ForeignBatchesDoNotEndTheWait) {
  sdk.Install();
  sdk.runStatuses = {2, 0};
  const std::string answer = Answer("{}");
  world.whenWaiting = {[this] { sdk.Complete(UuidText(1).c_str(), 0, "{}"); },
                       [this] { sdk.Complete(nullptr, -5, nullptr); },
                       [this] { sdk.Complete("\xE9xyz", 3, "x"); },
                       [this] { sdk.Complete("", 0, "x"); },
                       [this, answer] { sdk.Complete(UuidText(2).c_str(), 0, answer.c_str()); }};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(sdkError, 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({LoadedLibraryLog(kMethod),
                                                  kRunStart,
                                                  Try(1, 2),
                                                  Retry(2),
                                                  Try(2, 0),
                                                  RunEnd(0),
                                                  {"Set run async timeout",
                                                   "Start OnRan",
                                                   "Is null batch_context = 0",
                                                   "Batch context = 48",
                                                   "Error = 0",
                                                   "Is null result = 0",
                                                   "Start OnRan",
                                                   "Is null batch_context = 1",
                                                   "Error = -5",
                                                   "Is null result = 1",
                                                   "Start OnRan",
                                                   "Is null batch_context = 0",
                                                   "Batch context = -23",
                                                   "Error = 3",
                                                   "Is null result = 0",
                                                   "Start OnRan",
                                                   "Is null batch_context = 0",
                                                   "Batch context = 0",
                                                   "Error = 0",
                                                   "Is null result = 0"},
                                                  CompletionLog(answer),
                                                  kGoodAnswerEnd})));
}

TEST_F(InvocationTest, ForeignBatchInsideTheRunCallReturns) {
  sdk.Install();
  sdk.onRun = [this](const std::string&) { sdk.Complete("another", 0, "{}"); };
  sdk.answers = {Answer("{}")};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(sdkError, 0);
}

TEST_F(InvocationTest, LateCompletionOfAnEarlierTryIsIgnored) {
  sdk.Install();
  sdk.runStatuses = {1, 0};
  std::string firstBatch;
  std::thread late;
  sdk.onRun = [&](const std::string& batch) {
    if (firstBatch.empty()) {
      firstBatch = batch;
      return;
    }
    late = std::thread([&] { sdk.Complete(firstBatch.c_str(), 0, Answer("1").c_str()); });
  };
  sdk.answers = {Answer(R"({"a":2})")};
  world.whenWaiting = {[&] { late.join(); }};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(output["a"].GetInt(), 2);
}

TEST_F(InvocationTest, CompletionWithoutAText) {
  sdk.Install();
  world.whenWaiting = {[this] { sdk.Complete(sdk.Batch().c_str(), 5, nullptr); }};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(sdkError, 3);
  EXPECT_EQ(apiError, 0);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({StartedCallLog(kMethod),
                               {"Set run async timeout", "Start OnRan", "Is null batch_context = 0",
                                "Batch context = 48", "Error = 5", "Is null result = 1",
                                "OnRun response", "nullptr", "End OnRan"},
                               kEmptyAnswerEnd})));
}

TEST_F(InvocationTest, ErrorOfTheCompletionIsOnlyLogged) {
  sdk.Install();
  const std::string answer = Answer("{}");
  world.whenWaiting = {[&] { sdk.Complete(sdk.Batch().c_str(), -2147483647 - 1, answer.c_str()); }};
  Lines completion = CompletionLog(answer);
  completion[3] = "Error = -2147483648";
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(sdkError, 0);
  EXPECT_EQ(apiError, 0);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat(
          {StartedCallLog(kMethod), {"Set run async timeout"}, completion, kGoodAnswerEnd})));
}

TEST_F(InvocationTest, SecondCompletionBeforeTheWaitEndsReplacesTheFirst) {
  sdk.Install();
  world.whenWaiting = {[this] {
    sdk.Complete(sdk.Batch().c_str(), 0, Answer(R"({"a":1})").c_str());
    sdk.Complete(sdk.Batch().c_str(), 0, Answer(R"({"a":2})").c_str());
  }};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(output["a"].GetInt(), 2);
}

TEST_F(InvocationTest, AnswerOfAnEarlierCallIsForgotten) {
  sdk.Install();
  sdk.answers = {Answer("{}")};
  EXPECT_EQ(Execute(), 0);
  sdk.answers.clear();
  TakeLog();
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(TakeLog(), testing::Not(testing::Contains(Answer("{}"))));
}

TEST_F(InvocationTest, EventsAreDiscarded) {
  sdk.Install();
  world.whenWaiting = {[this] { sdk.Raise("FileScan.OnDemand.ScanStarted", "data"); }};
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
  EXPECT_FALSE(hasProductEvent);
}

// The wait of a watched scan, here without its event thread.

class WatchedInvocationTest : public InvocationTest {
 protected:
  WatchedInvocationTest() {
    sdk.Install();
    MakeTool({"-startFullScan", "30"});
    Tool().scanTimeout = 30;
    stopThread = false;
  }
  ~WatchedInvocationTest() override { stopThread = true; }
};

TEST_F(WatchedInvocationTest, EndsWithStopThread) {
  world.whenWaiting = {[] { stopThread = true; }};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(sdkError, 3);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({StartedCallLog(kMethod), kEmptyAnswerEnd})));
  EXPECT_THAT(world.expiredWaits, IsEmpty());
}

TEST_F(WatchedInvocationTest, CompletionAloneDoesNotEndTheWait) {
  const std::string answer = Answer("{}");
  sdk.unregisterStatuses = {5};
  world.whenWaiting = {[&] { sdk.Complete(sdk.Batch().c_str(), 0, answer.c_str()); }, nullptr,
                       [] {}};
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(world.expiredWaits, ElementsAre(30.0));
  EXPECT_TRUE(output.IsNull());
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({StartedCallLog(kMethod),
                                                  CompletionLog(answer),
                                                  {"Failed to run instance due to timeout",
                                                   "Instance unregistered with code : 5"}})));
}

TEST_F(WatchedInvocationTest, SecondWaitHasNoLimit) {
  EXPECT_DEATH(Execute(), "a wait that would never end");
}

TEST_F(WatchedInvocationTest, LimitIsFollowedByOneMoreWait) {
  sdk.unregisterStatuses = {5};
  bool wasStopped = true;
  world.whenWaiting = {nullptr, [&] { wasStopped = stopThread; }};
  EXPECT_EQ(Execute(), 60);
  EXPECT_FALSE(wasStopped);
  EXPECT_TRUE(stopThread);
  EXPECT_EQ(apiError, 5);
  EXPECT_EQ(sdkError, 0);
  EXPECT_THAT(world.expiredWaits, ElementsAre(30.0));
  EXPECT_EQ(world.untimedWaits, 1);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({StartedCallLog(kMethod),
                                                  {"Failed to run instance due to timeout",
                                                   "Instance unregistered with code : 5"}})));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoadCall, "get instance", "register", "run", "unregister",
                                         "release instance", "unload"));
}

TEST_F(WatchedInvocationTest, LateCompletionIsLoggedAndStillTimesOut) {
  const std::string answer = Answer("{}");
  world.whenWaiting = {nullptr, [&] { sdk.Complete(sdk.Batch().c_str(), 0, answer.c_str()); }};
  EXPECT_EQ(Execute(), 60);
  EXPECT_TRUE(isReady);
  EXPECT_TRUE(output.IsNull());
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({StartedCallLog(kMethod),
                                                  {"Failed to run instance due to timeout"},
                                                  CompletionLog(answer),
                                                  {"Instance unregistered with code : 0"}})));
}

TEST_F(WatchedInvocationTest, LimitIsTheScansWhateverTheOption) {
  MakeTool({"-getUpdateStatus"});
  Tool().scanTimeout = 7;
  stopThread = false;
  world.whenWaiting = {nullptr, [] {}};
  EXPECT_EQ(Execute(), 60);
  EXPECT_THAT(world.expiredWaits, ElementsAre(7.0));
}

TEST_F(WatchedInvocationTest, HugeLimitsSaturate) {
  for (const long long limit : {10000000000LL, 9223372036854775807LL}) {
    MakeTool({"-startFullScan", "1"});
    Tool().scanTimeout = limit;
    stopThread = false;
    world.whenWaiting = {[] {}, [] { stopThread = true; }};
    EXPECT_EQ(Execute(), 0);
  }
  EXPECT_THAT(world.expiredWaits, IsEmpty());
}

TEST_F(InvocationTest, BatchContextIsFreshAndTerminated) {
  std::fill(std::begin(Tool().batchContext), std::end(Tool().batchContext), 'x');
  Tool().CreateBatchContext();
  EXPECT_EQ(std::string(Tool().batchContext), UuidText(1));
  EXPECT_EQ(Tool().batchContext[36], '\0');
  Tool().CreateBatchContext();
  EXPECT_EQ(std::string(Tool().batchContext), UuidText(2));
}

}  // namespace
}  // namespace sdk
