#include "platform/thread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

void* AddOne(void* number) {
  ++*static_cast<int*>(number);
  return nullptr;
}

TEST(ThreadContract, RunsTheRoutineAndStartsAgainAfterJoining) {
  int number = 0;
  Thread thread;
  for (int round = 1; round <= 3; ++round) {
    EXPECT_FALSE(thread.IsJoinable());
    ASSERT_EQ(thread.Start(AddOne, &number), 0);
    EXPECT_TRUE(thread.IsJoinable());
    ASSERT_EQ(thread.Join(), 0);
    EXPECT_EQ(number, round);
  }
  EXPECT_FALSE(thread.IsJoinable());
}

TEST(ThreadContract, JoinWaitsUntilTheRoutineHasEnded) {
  bool ended = false;
  Thread thread;
  ASSERT_EQ(thread.Start(
                [](void* flag) -> void* {
                  const timespec pause{0, 50000000};
                  nanosleep(&pause, nullptr);
                  *static_cast<bool*>(flag) = true;
                  return nullptr;
                },
                &ended),
            0);
  ASSERT_EQ(thread.Join(), 0);
  EXPECT_TRUE(ended);
}

// Only on Linux does the default stack size depend on a limit that a test can set. The test sets it
// larger than the address space.
#if defined(__linux__) && !defined(__SANITIZE_THREAD__)
TEST(ThreadContract, GivesTheSystemsNumberWhenResourcesAreLacking) {
  const int status = contract::RunRole("start-thread", {}, [] {
    rlimit limit;
    getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = rlim_t{1} << 48;
    if (setrlimit(RLIMIT_STACK, &limit) != 0) _exit(EAGAIN);
  });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), EAGAIN);
}
#endif

}  // namespace
}  // namespace platform
