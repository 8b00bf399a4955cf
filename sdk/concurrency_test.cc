// Scans with real threads and real waits, and with callbacks at any time.

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <random>
#include <thread>

#include "sdk/run_state.h"
#include "tests/support/tool_fixture.h"

namespace sdk {
namespace {

constexpr char kStarted[] = "FileScan.OnDemand.ScanStarted";
constexpr char kFailed[] = "FileScan.OnDemand.ScanFailed";
constexpr char kUnrelated[] = "Update.Finished";

using Clock = std::chrono::steady_clock;

/// Time limit of a watched scan in these tests, in seconds. A scan takes nearly that long only if a
/// notification is lost.
constexpr int kLimit = 30;

/// How many calls the tests make: `usual`, fewer under the sanitizers, which are slow, or what the
/// environment says.
int CallCount(int usual) {
  if (const char* const count = std::getenv("KX_TEST_CALLS"); count != nullptr) {
    return std::atoi(count);
  }
  return usual / KX_SLOWDOWN;
}

/// The product's side of the calls: a thread that acts once for each run.
class Product {
 public:
  /// @param rescue called again and again when a call has not returned long after its limit
  explicit Product(std::function<void()> rescue)
      : rescue_(std::move(rescue)), thread_([this] { ActForever(); }) {}
  ~Product() {
    {
      const std::lock_guard<std::mutex> lock(lock_);
      isOver_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  /// Makes the thread do `action`. Called once per call to the tool, from within the run.
  void Begin(std::function<void()> action) {
    {
      const std::lock_guard<std::mutex> lock(lock_);
      action_ = std::move(action);
      hasReturned_ = false;
    }
    changed_.notify_all();
  }

  /// To be called when the call to the tool has returned; waits for the end of the action.
  void End() {
    std::unique_lock<std::mutex> lock(lock_);
    hasReturned_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !action_; });
  }

 private:
  void ActForever() {
    std::unique_lock<std::mutex> lock(lock_);
    while (true) {
      changed_.wait(lock, [this] { return action_ || isOver_; });
      if (isOver_) return;
      lock.unlock();
      action_();
      lock.lock();
      auto patience = std::chrono::milliseconds(1000 * (kLimit + 5));
      while (!changed_.wait_for(lock, patience, [this] { return hasReturned_; })) {
        lock.unlock();
        rescue_();
        lock.lock();
        patience = std::chrono::milliseconds(100);
      }
      action_ = nullptr;
      changed_.notify_all();
    }
  }

  const std::function<void()> rescue_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::function<void()> action_;
  bool hasReturned_ = true;
  bool isOver_ = false;
  std::thread thread_;
};

class ConcurrencyTest : public fake::ToolFixture {
 protected:
  ConcurrencyTest() {
    world.waitsAreReal = true;
    sdk.Install();
  }

  /// Spends a random time, from nothing to a few dozen microseconds.
  void Dawdle(std::mt19937& random) {
    const unsigned turns = static_cast<unsigned>(random()) % (1U << (random() % 15));
    for (volatile unsigned turn = 0; turn < turns; turn = turn + 1) {
    }
    if (random() % 8 == 0) std::this_thread::yield();
  }

  void MakeScan() {
    MakeTool({"-startFullScan", std::to_string(kLimit)});
    Tool().scanTimeout = kLimit;
  }

  std::mt19937 random_{20240301};  // the test's thread
  std::mt19937 productRandom_{7};  // the product's
};

TEST_F(ConcurrencyTest, NoWatchedScanMissesItsEvent) {
  Product product([this] { sdk.Raise(kUnrelated); });
  const int count = CallCount(100000);
  for (int number = 0; number < count; ++number) {
    MakeScan();
    const bool fails = random_() % 2 == 0;
    const unsigned unrelated = random_() % 4;
    const bool completes = random_() % 4 == 0;
    const bool isLate = random_() % 4 == 0;
    sdk.onRun = [&](const std::string& batch) {
      product.Begin([=] {
        for (unsigned event = 0; event < unrelated; ++event) {
          Dawdle(productRandom_);
          sdk.Raise(kUnrelated);
        }
        Dawdle(productRandom_);
        sdk.Raise(fails ? kFailed : kStarted);
        if (completes) {
          while (!stopThread) std::this_thread::yield();
          Dawdle(productRandom_);
          sdk.Complete(batch.c_str(), 0, fake::Answer("null", "FileScan.OnDemand", 12).c_str());
        }
        for (int event = 0; isLate && event < 3; ++event) sdk.Raise(kUnrelated);
      });
      Dawdle(random_);
    };
    long long result = -1;
    const Clock::time_point start = Clock::now();
    const int code = Tool().StartFullScan(result, nullptr);
    const Clock::duration elapsed = Clock::now() - start;
    if (isLate) MakeTool();
    product.End();
    ASSERT_EQ(code, 0) << "scan " << number;
    ASSERT_LT(elapsed, std::chrono::seconds(kLimit)) << "scan " << number;
    const long long outcome = fails ? 5023 : 0;
    // A completion may come before or after the call looks for it, and its answer may be unpacked
    // or not.
    ASSERT_TRUE(result == outcome || (completes && (result == 12 || result == 3)))
        << "scan " << number << ": " << result;
  }
}

// The SDK refuses the run, but events arrive all the same: the call has to end the event thread,
// which may be about to wait, busy or done.
TEST_F(ConcurrencyTest, NoRefusedScanLeavesItsEventThread) {
  Product product([this] { sdk.Raise(kUnrelated); });
  const int count = CallCount(20000);
  sdk.runStatuses = std::deque<int>(static_cast<std::size_t>(count), 5);
  for (int number = 0; number < count; ++number) {
    MakeScan();
    const auto events = static_cast<int>(random_() % 3);
    const bool isDecided = random_() % 4 == 0;
    sdk.onRun = [&](const std::string&) {
      product.Begin([=] {
        for (int event = 0; event < events; ++event) {
          Dawdle(productRandom_);
          sdk.Raise(kUnrelated);
        }
        Dawdle(productRandom_);
        if (isDecided) sdk.Raise(kFailed);
      });
      Dawdle(random_);
    };
    long long result = -1;
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(Tool().StartFullScan(result, nullptr), 45) << "scan " << number;
    ASSERT_LT(Clock::now() - start, std::chrono::seconds(kLimit)) << "scan " << number;
    ASSERT_TRUE(stopThread);
    product.End();
  }
}

TEST_F(ConcurrencyTest, NoCallMissesItsCompletion) {
  Product product([] {});
  const int count = CallCount(20000);
  MakeTool({"-getVersion"});  // the limit is 10 seconds
  for (int number = 0; number < count; ++number) {
    const bool isDouble = random_() % 4 == 0;
    sdk.onRun = [&](const std::string& batch) {
      product.Begin([=] {
        Dawdle(productRandom_);
        const std::string answer = fake::Answer("null", "FileScan.OnDemand", 12);
        sdk.Complete("another", 0, "{}");
        sdk.Complete(batch.c_str(), 0, answer.c_str());
        if (isDouble) sdk.Complete(batch.c_str(), 0, answer.c_str());
      });
      Dawdle(random_);
    };
    long long result = -1;
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(Tool().StartFullScan(result, nullptr), 0) << "call " << number;
    ASSERT_LT(Clock::now() - start, std::chrono::seconds(10)) << "call " << number;
    product.End();
    ASSERT_EQ(result, 12) << "call " << number;
  }
}

// A callback that returned into an unloaded library would crash the process.
TEST_F(ConcurrencyTest, CallbacksHaveLeftBeforeTheLibraryIsUnloaded) {
  std::thread completion;
  bool isStillThere = false;
  MakeTool({"-startUpdate"});
  sdk.onRun = [&](const std::string& batch) {
    completion = std::thread([&, batch] {
      CallbackGate::Pass slow(&Tool());
      slow.SetDelivered();
      sdk.Complete(batch.c_str(), 0, "{}");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      isStillThere = sdk.LiveRegistrations() == 1 && sdk.LiveInstances() == 1;
    });
  };
  long long result = -1;
  EXPECT_EQ(Tool().StartUpdate(result, nullptr), 0);
  completion.join();
  EXPECT_TRUE(isStillThere);
}

TEST_F(ConcurrencyTest, StormThatGoesOnAfterTheOutcome) {
  constexpr int kThreads = 4;
  std::atomic<bool> isOver = false;
  std::vector<std::thread> storm;
  MakeScan();
  sdk.onRun = [&](const std::string& batch) {
    for (int number = 0; number < kThreads; ++number) {
      storm.emplace_back([&, batch, number] {
        for (int event = 0; !isOver; ++event) {
          sdk.Raise(event % 100 == 99 ? kStarted : kUnrelated);
          if (number == 0 && stopThread) sdk.Complete(batch.c_str(), 0, "{}");
        }
      });
    }
  };
  long long result = -1;
  EXPECT_EQ(Tool().StartFullScan(result, nullptr), 0);
  MakeTool();
  isOver = true;
  for (std::thread& thread : storm) thread.join();
}

}  // namespace
}  // namespace sdk
