#include "platform/clock.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using std::chrono::milliseconds;

TEST(ClockContract, SleepTakesItsWholeSecond_RealTime) {
  const MonotonicTime start = MonotonicNow();
  Sleep(1);
  EXPECT_GE(MonotonicNow() - start, milliseconds(1000));
}

// The thread sanitizer's run-time library must be the first one loaded.
#if defined(__linux__) && !defined(__SANITIZE_THREAD__)
TEST(ClockContract, SleepCallsThePreloadedOne) {
  const int status = contract::RunRole(
      "sleep", {"77"}, [] { setenv("LD_PRELOAD", KX_CONTRACT_PRELOADED_SLEEP, 1); });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 77);
}
#endif

TEST(ClockContract, WallClocksAgreeWithTheSystem) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t seconds = WallClockSeconds();
  const std::int64_t microseconds = WallClockMicroseconds();
  const std::int64_t after = std::time(nullptr);
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, after);
  // The coarse clock of time() may lag behind by a tick.
  EXPECT_GE(microseconds / 1000000, before);
  EXPECT_LE(microseconds / 1000000, after + 1);
}

TEST(ClockContract, MonotonicClockNeverGoesBack) {
  MonotonicTime last = MonotonicNow();
  for (int look = 0; look < 10000; ++look) {
    const MonotonicTime now = MonotonicNow();
    ASSERT_GE(now, last);
    last = now;
  }
}

/// A flag that another thread raises under the lock once a thread waits for it.
struct Flag {
  std::mutex mutex;
  std::condition_variable condition;
  bool raised = false;

  std::thread RaiseWhenUnlocked() {
    return std::thread([this] {
      const std::lock_guard<std::mutex> lock(mutex);
      raised = true;
      condition.notify_all();
    });
  }
};

TEST(ClockContract, WaitReleasesTheLockAndReturnsOnNotification) {
  Flag flag;
  std::unique_lock<std::mutex> lock(flag.mutex);
  std::thread raiser = flag.RaiseWhenUnlocked();
  while (!flag.raised) Wait(flag.condition, lock);
  EXPECT_TRUE(lock.owns_lock());
  raiser.join();
}

TEST(ClockContract, WaitUntilReturnsTrueOnNotification) {
  Flag flag;
  std::unique_lock<std::mutex> lock(flag.mutex);
  std::thread raiser = flag.RaiseWhenUnlocked();
  bool inTime = true;
  while (!flag.raised && inTime) {
    inTime = WaitUntil(flag.condition, lock, MonotonicNow() + std::chrono::seconds(60));
  }
  EXPECT_TRUE(inTime);
  EXPECT_TRUE(lock.owns_lock());
  raiser.join();
}

TEST(ClockContract, WaitUntilEndsAtTheDeadlineAndNotBefore) {
  Flag flag;
  std::unique_lock<std::mutex> lock(flag.mutex);
  const MonotonicTime deadline = MonotonicNow() + milliseconds(60);
  while (WaitUntil(flag.condition, lock, deadline)) {
  }
  EXPECT_GE(MonotonicNow(), deadline);
  EXPECT_TRUE(lock.owns_lock());
}

TEST(ClockContract, WaitUntilReturnsFalseAtOnceForAPastDeadline) {
  Flag flag;
  std::unique_lock<std::mutex> lock(flag.mutex);
  EXPECT_FALSE(WaitUntil(flag.condition, lock, MonotonicNow() - std::chrono::hours(1)));
  EXPECT_FALSE(WaitUntil(flag.condition, lock, MonotonicTime::min()));
}

TEST(ClockContract, WaitUntilTheClocksMaximumStillWaits) {
  Flag flag;
  std::unique_lock<std::mutex> lock(flag.mutex);
  std::thread raiser = flag.RaiseWhenUnlocked();
  bool inTime = true;
  while (!flag.raised && inTime) inTime = WaitUntil(flag.condition, lock, MonotonicTime::max());
  EXPECT_TRUE(inTime);
  raiser.join();
}

}  // namespace
}  // namespace platform
