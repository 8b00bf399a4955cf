#include <functional>
#include <thread>

#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

using fake::Answer;
using fake::CompletionLog;
using fake::Concat;
using fake::Lines;
using fake::StartedCallLog;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";
constexpr char kFailed[] = "FileScan.OnDemand.ScanFailed";

/// The lines of unpacking an answer whose error is `error`, and of the call's ending.
Lines AnswerLog(long long error) {
  Lines lines = {"Parse AgentSDK response", "Parse \"response\" member",
                 "Parse \"data\" member",   "Find method key",
                 "Parse \"error\" member",  "Response error code : " + std::to_string(error)};
  if (error == 0) lines.push_back("Parse \"output\" member");
  return Concat(
      {lines, {"Instance unregistered with exit code : 0", "Finished executing AgentSDK method"}});
}

const Lines kNoAnswerLog = {"Failed to receive AgentSDK response. JSON is empty",
                            "Instance unregistered with exit code : 0",
                            "Finished executing AgentSDK method"};

class StartUpdateTest : public fake::ToolFixture {
 protected:
  StartUpdateTest() { MakeTool({"-startUpdate"}); }

  int Start() {
    Logger* const log = Log();
    return Tool().StartUpdate(result, log);
  }

  const std::string method = "Update.StartUpdate";
  long long result = -1;
};

TEST_F(StartUpdateTest, Accepted) {
  sdk.Install();
  const std::string answer = Answer("null", "Update");
  sdk.answers = {answer};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({{"Execute Update.StartUpdate method"},
                                                  StartedCallLog(method),
                                                  {"Set run async timeout"},
                                                  CompletionLog(answer),
                                                  AnswerLog(0),
                                                  {"Finished to Start update with error code: "
                                                   "0"}})));
}

TEST_F(StartUpdateTest, RefusedByTheProduct) {
  sdk.Install();
  const std::string answer = Answer("null", "Update", 12);
  sdk.answers = {answer};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 12);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({{"Execute Update.StartUpdate method"},
                                                  StartedCallLog(method),
                                                  {"Set run async timeout"},
                                                  CompletionLog(answer),
                                                  AnswerLog(12),
                                                  {"Finished to Start update with error code: "
                                                   "0"}})));
}

TEST_F(StartUpdateTest, BigErrorOfTheProduct) {
  sdk.Install();
  sdk.answers = {Answer("null", "Update", 9223372036854775807)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 9223372036854775807);
}

TEST_F(StartUpdateTest, UnusableAnswer) {
  sdk.Install();
  sdk.answers = {"[]"};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 3);
  EXPECT_EQ(TakeLog().back(), "Finished to Start update with error code: 0");
}

TEST_F(StartUpdateTest, NoProduct) {
  EXPECT_EQ(Start(), 20);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(TakeLog(),
              ElementsAre("Execute Update.StartUpdate method",
                          "Executing AgentSDK method: Update.StartUpdate",
                          "Retrieving ORVEX directory path", "GetDirectory error code = 20",
                          "Failed to retrieve ORVEX directory path. Error code : 20",
                          "Failed to execute method. Error code: 20"));
}

TEST_F(StartUpdateTest, NoCompletion) {
  sdk.Install();
  EXPECT_EQ(Start(), 60);
  EXPECT_THAT(world.expiredWaits, ElementsAre(10.0));
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({{"Execute Update.StartUpdate method"},
                               StartedCallLog(method),
                               {"Set run async timeout", "Failed to run instance due to timeout",
                                "Instance unregistered with exit code : 0",
                                "Failed to execute method. Error code: 60"}})));
}

TEST_F(StartUpdateTest, FailingCodeComesBeforeTheSdksStatus) {
  sdk.Install();
  sdk.registerStatuses = {9};
  EXPECT_EQ(Start(), 45);
  EXPECT_EQ(TakeLog().back(), "Failed to execute method. Error code: 45");
}

TEST_F(StartUpdateTest, StatusOfTheFinalUnregistration) {
  sdk.Install();
  sdk.answers = {Answer("null", "Update", 12)};
  sdk.unregisterStatuses = {8};
  EXPECT_EQ(Start(), 8);
  EXPECT_EQ(result, 12);
  EXPECT_EQ(TakeLog().back(), "Failed to execute method. Error code: 8");
}

/// One of the two scans.
struct Scan {
  const char* option;
  int (KXTool::*start)(long long&, Logger*);
  const char* method;
  const char* name;
  const char* nameInEnd;
  double unwatchedLimit;
};

class ScanTest : public fake::ToolFixture, public testing::WithParamInterface<Scan> {
 protected:
  ScanTest() { MakeTool({GetParam().option}); }

  void Watch(long long seconds = 30) {
    MakeTool({GetParam().option, std::to_string(seconds)});
    Tool().scanTimeout = seconds;
  }

  int Start() {
    Logger* const log = Log();
    const int code = (Tool().*GetParam().start)(result, log);
    EXPECT_EQ(world.runningThreads, 0);
    return code;
  }

  Lines UnwatchedStartLog() const {
    return {std::string("Start ") + GetParam().name + " scan",
            std::string("Execute ") + GetParam().method + " method"};
  }
  Lines WatchedStartLog() const {
    return {std::string("Start ") + GetParam().name + " scan",
            std::string("Create ") + GetParam().name + " scan thread with ProcessProductEvents",
            std::string("Execute ") + GetParam().method + " method"};
  }
  Lines CallLog() const { return StartedCallLog(GetParam().method); }
  std::string EndLine(int code) const {
    return std::string("Finished starting ") + GetParam().nameInEnd +
           " scan with error code: " + std::to_string(code);
  }
  Lines NoProductLog() const {
    return {std::string("Executing AgentSDK method: ") + GetParam().method,
            "Retrieving ORVEX directory path", "GetDirectory error code = 20",
            "Failed to retrieve ORVEX directory path. Error code : 20",
            "Could not execute method. Error code: 20"};
  }

  /// A step of the main thread's wait.
  auto Raising(const char* event) {
    return [this, event] { sdk.RaiseAndSettle(event); };
  }
  auto Completing(const std::string& answer) {
    return [this, answer] { sdk.Complete(sdk.Batch().c_str(), 0, answer.c_str()); };
  }

  std::string ScanAnswer(long long error = 0) { return Answer("null", "FileScan.OnDemand", error); }

  long long result = -1;
};

INSTANTIATE_TEST_SUITE_P(
    Scans, ScanTest,
    testing::Values(Scan{"-startFullScan", &KXTool::StartFullScan, "FileScan.OnDemand.RunFullScan",
                         "full", "Full", 43200.0},
                    Scan{"-startQuickScan", &KXTool::StartQuickScan,
                         "FileScan.OnDemand.RunQuickScan", "quick", "Quick", 5400.0}),
    [](const auto& scan) { return scan.param.nameInEnd; });

// Not watched.

TEST_P(ScanTest, UnwatchedAndAccepted) {
  sdk.Install();
  sdk.answers = {ScanAnswer()};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({UnwatchedStartLog(),
                                                  CallLog(),
                                                  {"Set run async timeout"},
                                                  CompletionLog(ScanAnswer()),
                                                  AnswerLog(0),
                                                  {"Could not execute method. Error code: 0"}})));
}

TEST_P(ScanTest, UnwatchedAndRefused) {
  sdk.Install();
  sdk.answers = {ScanAnswer(12)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 12);
  EXPECT_EQ(TakeLog().back(), "Could not execute method. Error code: 0");
}

TEST_P(ScanTest, UnwatchedWithAnUnusableAnswer) {
  sdk.Install();
  sdk.answers = {"{"};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 3);
}

TEST_P(ScanTest, UnwatchedIgnoresTheFinalUnregistration) {
  sdk.Install();
  sdk.answers = {ScanAnswer()};
  sdk.unregisterStatuses = {8};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
}

TEST_P(ScanTest, UnwatchedWithoutACompletion) {
  sdk.Install();
  EXPECT_EQ(Start(), 60);
  EXPECT_THAT(world.expiredWaits, ElementsAre(GetParam().unwatchedLimit));
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({UnwatchedStartLog(),
                               CallLog(),
                               {"Set run async timeout", "Failed to run instance due to timeout",
                                "Instance unregistered with exit code : 0",
                                "Could not execute method. Error code: 60"}})));
}

TEST_P(ScanTest, UnwatchedWithoutAProduct) {
  EXPECT_EQ(Start(), 20);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({UnwatchedStartLog(), NoProductLog()})));
}

TEST_P(ScanTest, UnwatchedDropsEvents) {
  sdk.Install();
  world.whenWaiting = {[this] { sdk.Raise(kFailed); }, Completing(ScanAnswer())};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

// Watched.

TEST_P(ScanTest, ScanStarted) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising(kStarted)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(Concat({WatchedStartLog(),
                                       CallLog(),
                                       kNoAnswerLog,
                                       {"Product has an event. Scan error: 0", EndLine(0)}})));
}

TEST_P(ScanTest, ScanFailed) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising(kFailed)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 5023);
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(Concat({WatchedStartLog(),
                                       CallLog(),
                                       kNoAnswerLog,
                                       {"Product has an event. Scan error: 5023", EndLine(0)}})));
}

TEST_P(ScanTest, UnrelatedEventsThenStarted) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising("Update.Finished"), Raising("FileScan.OnDemand.ScanStopped"),
                       Raising(""), Raising(kStarted)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(TakeLog().back(), EndLine(0));
}

TEST_P(ScanTest, FirstDecisiveEventCounts) {
  sdk.Install();
  Watch();
  world.whenWaiting = {[this] {
    sdk.RaiseAndSettle(kFailed);
    sdk.Raise(kStarted);
  }};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 5023);
}

TEST_P(ScanTest, EventThenCompletion) {
  for (const long long error : {0, 12}) {
    sdk.Install();
    Watch();
    const std::string answer = ScanAnswer(error);
    world.whenWaiting = {[this, answer] {
      sdk.RaiseAndSettle(kFailed);
      sdk.Complete(sdk.Batch().c_str(), 0, answer.c_str());
    }};
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(result, error);
    EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({WatchedStartLog(),
                                                    CallLog(),
                                                    CompletionLog(answer),
                                                    AnswerLog(error),
                                                    {EndLine(0)}})));
  }
}

TEST_P(ScanTest, CompletionBeforeAnyEventRunsIntoTheLimit) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Completing(ScanAnswer()), nullptr, [this] { sdk.Raise(kStarted); }};
  EXPECT_EQ(Start(), 60);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(world.expiredWaits, ElementsAre(30.0));
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({WatchedStartLog(),
                                                  CallLog(),
                                                  CompletionLog(ScanAnswer()),
                                                  {"Failed to run instance due to timeout",
                                                   "Instance unregistered with code : 0",
                                                   "Could not execute method. Error code: 60"}})));
}

TEST_P(ScanTest, OnlyUnrelatedEvents) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising("Update.Finished"), nullptr, Raising("Update.Finished")};
  EXPECT_EQ(Start(), 60);
  EXPECT_EQ(world.untimedWaits, 1);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({WatchedStartLog(),
                                                  CallLog(),
                                                  {"Failed to run instance due to timeout",
                                                   "Instance unregistered with code : 0",
                                                   "Could not execute method. Error code: 60"}})));
}

TEST_P(ScanTest, DecisiveEventAfterTheLimit) {
  sdk.Install();
  Watch();
  world.whenWaiting = {nullptr, Raising(kStarted)};
  EXPECT_EQ(Start(), 60);
  EXPECT_EQ(TakeLog().back(), "Could not execute method. Error code: 60");
}

TEST_P(ScanTest, CompletionAfterTheLimit) {
  sdk.Install();
  Watch();
  world.whenWaiting = {nullptr, Completing(ScanAnswer())};
  EXPECT_EQ(Start(), 60);
  EXPECT_EQ(TakeLog().back(), "Could not execute method. Error code: 60");
}

TEST_P(ScanTest, EventDuringThePauseOfARetry) {
  sdk.Install();
  Watch();
  sdk.runStatuses = {1, 0};
  std::thread product;
  sdk.onRun = [&](const std::string&) {
    if (!product.joinable()) product = std::thread([this] { sdk.Raise(kStarted); });
  };
  world.whenWaiting = {[&] {
    product.join();
    while (!stopThread) std::this_thread::yield();
  }};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(TakeLog().back(), EndLine(0));
}

TEST_P(ScanTest, HugeLimits) {
  sdk.Install();
  for (const long long limit : {10000000000LL, 9223372036854775807LL}) {
    Watch(limit);
    world.whenWaiting = {Raising("Update.Finished"), Raising(kStarted)};
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(result, 0);
  }
  EXPECT_THAT(world.expiredWaits, IsEmpty());
}

// Every early end of a watched scan ends its event thread too, without a line of its own.

TEST_P(ScanTest, WatchedWithoutAProduct) {
  Watch();
  EXPECT_EQ(Start(), 20);
  EXPECT_TRUE(stopThread);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({WatchedStartLog(), NoProductLog()})));
}

TEST_P(ScanTest, WatchedWithAnEarlyFailure) {
  const std::string path = fake::Sdk::LibraryPath();
  const std::vector<std::pair<int, std::function<void()>>> failures = {
      {-67062, [&] { world.signatures[path].createStatus = -67062; }},
      {22, [&] { world.signatures[path].validity = -67062; }},
      {35, [&] { world.libraries.clear(); }},
      {14, [&] { world.libraries[path].erase("AgentSDK_GetInstance"); }},
      {14, [&] { world.libraries[path].erase("AgentSDK_ReleaseInstance"); }},
      {13, [&] { sdk.getInstanceStatuses = {1}; }},
      {45, [&] { sdk.registerStatuses = {1}; }},
      {45, [&] { sdk.runStatuses = {3}; }},
      {45,
       [&] {
         sdk.runStatuses = {1, 1, 1, 1, 1};
       }},
  };
  for (const auto& [code, arrange] : failures) {
    sdk.Install();
    Watch();
    arrange();
    EXPECT_EQ(Start(), code);
    EXPECT_TRUE(stopThread);
    EXPECT_EQ(TakeLog().back(), "Could not execute method. Error code: " + std::to_string(code));
  }
}

TEST_P(ScanTest, ThreadCannotBeStarted) {
  sdk.Install();
  Watch();
  world.threadStartError = 11;
  EXPECT_EQ(Start(), 11);
  EXPECT_EQ(result, -1);
  Lines expected = WatchedStartLog();
  expected.back() = "Failed to create thread. Error code:11";
  EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_P(ScanTest, ThreadCannotBeJoined) {
  sdk.Install();
  Watch();
  world.threadJoinError = 22;
  world.whenWaiting = {Raising(kStarted)};
  EXPECT_EQ(Start(), 22);
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(Concat({WatchedStartLog(),
                                       CallLog(),
                                       kNoAnswerLog,
                                       {std::string("Failed to wait for ") + GetParam().name +
                                        " scan thread. Error code: 22"}})));
}

TEST_P(ScanTest, StoppedWithoutAnOutcome) {
  sdk.Install();
  Watch();
  world.whenWaiting = {[] {
    stopThread = true;
    cv.notify_all();
  }};
  EXPECT_EQ(Start(), 60);
  EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({WatchedStartLog(),
                                                  CallLog(),
                                                  kNoAnswerLog,
                                                  {"Scan failed. Timeout error", EndLine(60)}})));
}

TEST_P(ScanTest, NullLogger) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising(kFailed)};
  EXPECT_EQ((Tool().*GetParam().start)(result, nullptr), 0);
  EXPECT_EQ(result, 5023);
}

TEST_P(ScanTest, LateCallbacksAreHarmless) {
  sdk.Install();
  Watch();
  world.whenWaiting = {Raising(kStarted)};
  EXPECT_EQ(Start(), 0);
  sdk.Raise(kFailed);
  Completing(ScanAnswer())();
  Completing(ScanAnswer())();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Tool().scanError, 0);
  MakeTool();
  sdk.Raise(kFailed);
  Completing(ScanAnswer())();
  EXPECT_FALSE(isReady);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

}  // namespace
}  // namespace sdk
