#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/clock.h"

namespace {

/// What the wait was asked for, and what it answers.
struct RelativeWait {
  int calls = 0;
  timespec limit{};
  int result = 0;
  bool takesItsTime = false;
};

RelativeWait relativeWait;

}  // namespace

// macOS has it in its C library. This one notes its arguments.
extern "C" int pthread_cond_timedwait_relative_np(pthread_cond_t*, pthread_mutex_t*,
                                                  const timespec* limit) {
  ++relativeWait.calls;
  relativeWait.limit = *limit;
  if (relativeWait.takesItsTime) nanosleep(limit, nullptr);
  return relativeWait.result;
}

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class RelativeWaitTest : public testing::Test {
 protected:
  RelativeWaitTest() { relativeWait = RelativeWait(); }

  bool WaitFor(MonotonicTime deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    return WaitUntil(condition_, lock, deadline);
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
};

TEST_F(RelativeWaitTest, WaitsForWhatIsLeft) {
  EXPECT_TRUE(WaitFor(MonotonicNow() + seconds(90) + milliseconds(500)));
  EXPECT_EQ(relativeWait.calls, 1);
  EXPECT_EQ(relativeWait.limit.tv_sec, 90);
  EXPECT_GT(relativeWait.limit.tv_nsec, 0);
  EXPECT_LE(relativeWait.limit.tv_nsec, 500000000);
}

TEST_F(RelativeWaitTest, DoesNotWaitAfterTheDeadline) {
  EXPECT_FALSE(WaitFor(MonotonicNow() - seconds(1)));
  EXPECT_FALSE(WaitFor(MonotonicTime::min()));
  EXPECT_EQ(relativeWait.calls, 0);
}

TEST_F(RelativeWaitTest, ATimeOutAtTheDeadlineEndsTheWait) {
  relativeWait.result = ETIMEDOUT;
  relativeWait.takesItsTime = true;
  EXPECT_FALSE(WaitFor(MonotonicNow() + milliseconds(20)));
}

TEST_F(RelativeWaitTest, ATimeOutBeforeAFarDeadlineIsAnEarlyReturn) {
  relativeWait.result = ETIMEDOUT;
  EXPECT_TRUE(WaitFor(MonotonicTime::max()));
  EXPECT_GT(relativeWait.limit.tv_sec, 3600);
  EXPECT_LE(relativeWait.limit.tv_sec, 24 * 3600);
}

}  // namespace
}  // namespace platform
