#include "sdk/time_limits.h"

#include <gtest/gtest.h>

#include <limits>

namespace sdk {
namespace {

using platform::MonotonicTime;
using std::chrono::nanoseconds;
using std::chrono::seconds;

TEST(TimeLimit, FollowsTheOption) {
  EXPECT_EQ(TimeLimit("-startFullScan", -1), 43200);
  EXPECT_EQ(TimeLimit("-STARTfullSCAN", -1), 43200);
  EXPECT_EQ(TimeLimit("-startQuickScan", -1), 5400);
  EXPECT_EQ(TimeLimit("-startquickscan", -1), 5400);
  EXPECT_EQ(TimeLimit("-startUpdate", -1), 10);
  EXPECT_EQ(TimeLimit("-detect", -1), 10);
  EXPECT_EQ(TimeLimit("startFullScan", -1), 10);
  EXPECT_EQ(TimeLimit("-startFullScans", -1), 10);
  EXPECT_EQ(TimeLimit("", -1), 10);
}

TEST(TimeLimit, IsThatOfTheWatchedScan) {
  EXPECT_EQ(TimeLimit("-startFullScan", 5), 5);
  EXPECT_EQ(TimeLimit("-startQuickScan", 0), 0);
  EXPECT_EQ(TimeLimit("-detect", 1234), 1234);
  EXPECT_EQ(TimeLimit("-startFullScan", std::numeric_limits<long long>::max()),
            std::numeric_limits<long long>::max());
}

TEST(DeadlineAfter, AddsSeconds) {
  const MonotonicTime now(nanoseconds(1234));
  EXPECT_EQ(DeadlineAfter(now, 0), now);
  EXPECT_EQ(DeadlineAfter(now, 5), now + seconds(5));
}

TEST(DeadlineAfter, SaturatesAtTheEndOfTheClock) {
  const MonotonicTime now(seconds(100));
  const long long last = std::chrono::duration_cast<seconds>(MonotonicTime::max() - now).count();
  EXPECT_EQ(DeadlineAfter(now, last - 1), now + seconds(last - 1));
  EXPECT_EQ(DeadlineAfter(now, last), MonotonicTime::max());
  EXPECT_EQ(DeadlineAfter(now, last + 1), MonotonicTime::max());
  EXPECT_EQ(DeadlineAfter(now, 10000000000), MonotonicTime::max());
  EXPECT_EQ(DeadlineAfter(now, std::numeric_limits<long long>::max()), MonotonicTime::max());
  EXPECT_EQ(DeadlineAfter(MonotonicTime::max(), 1), MonotonicTime::max());
}

}  // namespace
}  // namespace sdk
