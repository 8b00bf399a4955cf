// Tests updates and scans in cases that simulated endpoints cannot produce.
// tests/end_to_end/actions_test.py checks complete logs.

#include <thread>

#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

using fake::Answer;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";
constexpr char kFailed[] = "FileScan.OnDemand.ScanFailed";

class StartUpdateTest : public fake::ToolFixture {
 protected:
  StartUpdateTest() {
    MakeTool({"-startUpdate"});
    sdk.Install();
  }

  int Start() { return Tool().StartUpdate(result, Log()); }

  long long result = -1;
};

TEST_F(StartUpdateTest, ErrorsOfTheProductHave64Bits) {
  sdk.answers = {Answer("null", "Update", 9223372036854775807)};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 9223372036854775807);
}

TEST_F(StartUpdateTest, CodeOfTheCallComesBeforeTheSdksStatus) {
  sdk.registerStatuses = {9};
  EXPECT_EQ(Start(), 45);
  EXPECT_EQ(TakeLog().back(), "Failed to execute method. Error code: 45");
}

TEST_F(StartUpdateTest, StatusOfTheUnregistrationComesBeforeTheProductsError) {
  sdk.answers = {Answer("null", "Update", 12)};
  sdk.unregisterStatuses = {8};
  EXPECT_EQ(Start(), 8);
  EXPECT_EQ(result, 12);
}

/// One of the two scans.
struct Scan {
  const char* option;
  int (KXTool::*start)(long long&, Logger*);
  const char* name;
  const char* nameInEnd;
  double unwatchedLimit;
};

class ScanTest : public fake::ToolFixture, public testing::WithParamInterface<Scan> {
 protected:
  ScanTest() {
    MakeTool({GetParam().option});
    sdk.Install();
  }

  void Watch() {
    MakeTool({GetParam().option, "30"});
    Tool().scanTimeout = 30;
  }

  int Start() {
    const int code = (Tool().*GetParam().start)(result, Log());
    EXPECT_EQ(world.runningThreads, 0);
    return code;
  }

  std::string ScanAnswer(long long error = 0) { return Answer("null", "FileScan.OnDemand", error); }

  long long result = -1;
};

INSTANTIATE_TEST_SUITE_P(
    Scans, ScanTest,
    testing::Values(Scan{"-startFullScan", &KXTool::StartFullScan, "full", "Full", 43200.0},
                    Scan{"-startQuickScan", &KXTool::StartQuickScan, "quick", "Quick", 5400.0}),
    [](const auto& scan) { return scan.param.nameInEnd; });

TEST_P(ScanTest, UnwatchedWithoutACompletion) {
  EXPECT_EQ(Start(), 60);
  EXPECT_THAT(world.expiredWaits, ElementsAre(GetParam().unwatchedLimit));
  EXPECT_EQ(TakeLog().back(), "Could not execute method. Error code: 60");
}

TEST_P(ScanTest, UnwatchedIgnoresTheFinalUnregistration) {
  sdk.answers = {ScanAnswer()};
  sdk.unregisterStatuses = {8};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
}

TEST_P(ScanTest, UnwatchedDropsEvents) {
  world.whenWaiting = {[this] { sdk.Raise(kFailed); },
                       [this] { sdk.Complete(sdk.Batch().c_str(), 0, ScanAnswer().c_str()); }};
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

TEST_P(ScanTest, CompletionAfterTheEventGivesTheResult) {
  for (const long long error : {0, 12}) {
    Watch();
    world.whenWaiting = {[this, error] {
      sdk.RaiseAndSettle(kFailed);
      sdk.Complete(sdk.Batch().c_str(), 0, ScanAnswer(error).c_str());
    }};
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(result, error);
  }
}

TEST_P(ScanTest, EventDuringThePauseOfARetry) {
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
}

TEST_P(ScanTest, EarlyFailureEndsTheEventThread) {
  Watch();
  sdk.runStatuses = {1, 1, 1, 1, 1};
  EXPECT_EQ(Start(), 45);
  EXPECT_TRUE(stopThread);
}

TEST_P(ScanTest, ThreadCannotBeStarted) {
  Watch();
  world.threadStartError = 11;
  EXPECT_EQ(Start(), 11);
  EXPECT_EQ(result, -1);
  EXPECT_THAT(TakeLog(), ElementsAre(std::string("Start ") + GetParam().name + " scan",
                                     std::string("Create ") + GetParam().name +
                                         " scan thread with ProcessProductEvents",
                                     "Failed to create thread. Error code:11"));
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_P(ScanTest, ThreadCannotBeJoined) {
  Watch();
  world.threadJoinError = 22;
  world.whenWaiting = {[this] { sdk.RaiseAndSettle(kStarted); }};
  EXPECT_EQ(Start(), 22);
  EXPECT_EQ(TakeLog().back(),
            std::string("Failed to wait for ") + GetParam().name + " scan thread. Error code: 22");
}

TEST_P(ScanTest, StoppedWithoutAnOutcome) {
  Watch();
  world.whenWaiting = {[] {
    stopThread = true;
    cv.notify_all();
  }};
  EXPECT_EQ(Start(), 60);
  const fake::Lines log = TakeLog();
  EXPECT_EQ(log[log.size() - 2], "Scan failed. Timeout error");
  EXPECT_EQ(log.back(),
            std::string("Finished starting ") + GetParam().nameInEnd + " scan with error code: 60");
}

}  // namespace
}  // namespace sdk
