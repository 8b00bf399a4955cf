#include "sdk/scan_events.h"

#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";
constexpr char kFailed[] = "FileScan.OnDemand.ScanFailed";

/// Runs the routine on the test's thread, over a queue that needs no wait.
class ScanEventsTest : public fake::ToolFixture {
 protected:
  ScanEventsTest() {
    Tool().scanError = 77;
    stopThread = false;
  }
  ~ScanEventsTest() override { stopThread = true; }

  void Queue(const std::string& name) { Tool().productEvents.emplace_back(name, "data"); }
  void Process() { EXPECT_EQ(ProcessProductEvents(&Tool()), nullptr); }
  void ExpectOutcome(long long scanError, bool isDecided) {
    EXPECT_EQ(Tool().scanError, scanError);
    EXPECT_EQ(hasProductEvent, isDecided);
  }
};

TEST_F(ScanEventsTest, NoToolEndsAtOnce) { EXPECT_EQ(ProcessProductEvents(nullptr), nullptr); }

TEST_F(ScanEventsTest, FirstDecisiveEventCounts) {
  Queue("Update.Finished");
  Queue("FileScan.OnDemand.ScanStartedLater");
  Queue("filescan.ondemand.scanstarted");
  Queue("");
  Queue(kFailed);
  Queue(kStarted);
  Process();
  ExpectOutcome(5023, true);
  ASSERT_EQ(Tool().productEvents.size(), 1U);
  EXPECT_EQ(Tool().productEvents.front().first, kStarted);
}

TEST_F(ScanEventsTest, CompletionEndsItWithoutAnOutcome) {
  Queue(kStarted);
  isReady = true;
  Process();
  ExpectOutcome(77, false);
  EXPECT_FALSE(stopThread);
  EXPECT_EQ(Tool().productEvents.size(), 1U);
}

TEST_F(ScanEventsTest, StopTakesOneMoreEvent) {
  stopThread = true;
  Queue("Update.Finished");
  Queue(kFailed);
  Process();
  ExpectOutcome(77, false);
  EXPECT_EQ(Tool().productEvents.size(), 1U);
  Process();
  ExpectOutcome(5023, true);
}

TEST_F(ScanEventsTest, WaitsForEvents) {
  world.whenWaiting = {[this] { Queue("Update.Finished"); }, [] {}, [this] { Queue(kStarted); }};
  Process();
  ExpectOutcome(0, true);
  EXPECT_EQ(world.untimedWaits, 3);
}

TEST_F(ScanEventsTest, ThreadArmsTheEvents) {
  stopThread = true;
  hasProductEvent = true;
  {
    EventThread thread;
    EXPECT_EQ(thread.Start(Tool()), 0);
    EXPECT_FALSE(stopThread);
    EXPECT_FALSE(hasProductEvent);
    EXPECT_EQ(world.runningThreads, 1);
  }
  EXPECT_TRUE(stopThread);
  EXPECT_EQ(world.runningThreads, 0);
}

TEST_F(ScanEventsTest, ThreadThatDoesNotStartNeedNotBeJoined) {
  world.threadStartError = 11;
  EventThread thread;
  EXPECT_EQ(thread.Join(), 0);
  EXPECT_EQ(thread.Start(Tool()), 11);
  EXPECT_EQ(thread.Join(), 0);
}

TEST_F(ScanEventsTest, JoinReportsItsFailureAndTheOwnerJoinsAgain) {
  world.threadJoinError = 22;
  {
    EventThread thread;
    ASSERT_EQ(thread.Start(Tool()), 0);
    EXPECT_EQ(thread.Join(), 22);
    EXPECT_EQ(world.runningThreads, 1);
  }
  EXPECT_EQ(world.runningThreads, 0);
}

}  // namespace
}  // namespace sdk
