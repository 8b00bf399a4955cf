#include "sdk/callbacks.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <thread>

#include "diag/global_logger.h"
#include "sdk/run_state.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Callbacks without an SDK. tests/end_to_end/invocation_test.py checks their logs.
class CallbacksTest : public fake::ToolFixture {
 protected:
  CallbacksTest() {
    Log();
    Tool().CreateBatchContext();
  }
  ~CallbacksTest() override { stopThread = true; }

  const char* Batch() { return Tool().batchContext; }
};

TEST_F(CallbacksTest, CompletionWithoutAText) {
  Tool().sdkResponse = "earlier";
  OnRan(&Tool(), Batch(), -1, nullptr);
  EXPECT_TRUE(isReady);
  EXPECT_EQ(Tool().sdkResponse, "earlier");
  EXPECT_THAT(TakeLog(), ElementsAre("Start OnRan", "Is null batch_context = 0",
                                     "Batch context = 48", "Error = -1", "Is null result = 1",
                                     "OnRun response", "nullptr", "End OnRan"));
}

TEST_F(CallbacksTest, CompletionOfAnotherBatch) {
  const std::string almost = std::string(Batch()) + "0";
  OnRan(&Tool(), almost.c_str(), 0, "text");
  OnRan(&Tool(), std::string(Batch(), 35).c_str(), 0, "text");
  EXPECT_FALSE(isReady);
  EXPECT_THAT(Tool().sdkResponse, IsEmpty());
}

TEST_F(CallbacksTest, CompletionWithoutABatchOrAContext) {
  OnRan(&Tool(), nullptr, 0, "text");
  EXPECT_THAT(TakeLog(), ElementsAre("Start OnRan", "Is null batch_context = 1", "Error = 0",
                                     "Is null result = 0"));
  OnRan(nullptr, Batch(), 0, "text");
  EXPECT_FALSE(isReady);
  EXPECT_THAT(Tool().sdkResponse, IsEmpty());
}

TEST_F(CallbacksTest, FirstCharacterOfTheBatchIsSigned) {
  OnRan(&Tool(), "\x80", 0, nullptr);
  EXPECT_EQ(TakeLog()[2], "Batch context = -128");
  OnRan(&Tool(), "\xFF", 0, nullptr);
  EXPECT_EQ(TakeLog()[2], "Batch context = -1");
  OnRan(&Tool(), "\x7F", 0, nullptr);
  EXPECT_EQ(TakeLog()[2], "Batch context = 127");
}

TEST_F(CallbacksTest, EventWhileScansAreFollowed) {
  stopThread = false;
  OnProductEvent(&Tool(), "name", "data");
  OnProductEvent(&Tool(), "other", nullptr);
  OnProductEvent(&Tool(), nullptr, "data");
  EXPECT_THAT(Tool().productEvents,
              ElementsAre(Pair("name", "data"), Pair("other", ""), Pair("", "data")));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(CallbacksTest, EventsAreDroppedWithoutTakingTheLock) {
  const std::lock_guard<std::mutex> lock(locker);
  OnProductEvent(&Tool(), "name", "data");
  stopThread = false;
  OnProductEvent(nullptr, "name", "data");
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

TEST_F(CallbacksTest, ForeignContextsAreIgnoredWithoutTakingTheLock) {
  const std::lock_guard<std::mutex> lock(locker);
  stopThread = false;
  int foreign = 0;
  OnProductEvent(&foreign, "name", "data");
  OnRan(&foreign, Batch(), 0, "text");
  EXPECT_FALSE(isReady);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

TEST_F(CallbacksTest, NothingReachesADestroyedTool) {
  void* const gone = &Tool();
  const std::string batch = Batch();
  MakeTool();
  CallbackGate::Close(Tool());
  stopThread = false;
  OnRan(gone, batch.c_str(), 0, "text");
  OnProductEvent(gone, "name", "data");
  OnRan(&Tool(), batch.c_str(), 0, "text");
  EXPECT_FALSE(isReady);
  EXPECT_THAT(Tool().productEvents, IsEmpty());
}

// An exception must not reach the SDK, which may not even be C++.
TEST_F(CallbacksTest, NoMemoryEndsTheProcess) {
  logger = nullptr;
  const std::string text(1000, 'x');
  const auto complete = [&] {
    fake::AllocationFailure::Arm(1);
    try {
      OnRan(&Tool(), Batch(), 0, text.c_str());
    } catch (...) {
    }
  };
  const auto raise = [&] {
    stopThread = false;
    fake::AllocationFailure::Arm(1);
    try {
      OnProductEvent(&Tool(), text.c_str(), "data");
    } catch (...) {
    }
  };
  EXPECT_EXIT(complete(), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(raise(), testing::KilledBySignal(SIGABRT), "");
}

// Callbacks that run while the tool is destroyed either finish first or find no tool. The
// sanitizers detect a use after destruction.
TEST_F(CallbacksTest, DestructionWaitsForTheCallbacksInside) {
  for (int round = 0; round < 300; ++round) {
    const char* argv[] = {"KXTool", "-startFullScan"};
    auto tool = std::make_unique<KXTool>(2, argv);
    tool->CreateBatchContext();
    stopThread = false;
    void* const context = tool.get();
    const std::string batch = tool->batchContext;
    std::unique_lock<std::mutex> lock(locker);
    std::thread completion([&] { OnRan(context, batch.c_str(), 0, "text"); });
    std::thread event([&] { OnProductEvent(context, "name", "data"); });
    std::thread destruction([&] { tool.reset(); });
    if (round % 2 == 0) std::this_thread::yield();
    lock.unlock();
    completion.join();
    event.join();
    destruction.join();
  }
}

TEST_F(CallbacksTest, ThoseThatHaveDeliveredCanBeWaitedFor) {
  std::optional<CallbackGate::Pass> early(std::in_place, &Tool());
  std::optional<CallbackGate::Pass> late(std::in_place, &Tool());
  CallbackGate::AwaitDelivered();
  early->SetDelivered();
  std::atomic<bool> isOver = false;
  std::thread waiter([&] {
    CallbackGate::AwaitDelivered();
    isOver = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(isOver);
  early.reset();
  waiter.join();
}

}  // namespace
}  // namespace sdk
