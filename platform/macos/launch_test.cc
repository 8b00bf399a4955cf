#include "platform/macos/launch.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

TEST(OutputErrorTest, IsNeverZero) {
  const contract::TemporaryTree tree;
  EXPECT_EQ(OutputError(tree.Path("nothing")), ENOENT);
  EXPECT_EQ(OutputError(tree.MakeFile("file")), EACCES);
}

TEST(LaunchErrorTest, IsTheNumberThatEndsTheReason) {
  EXPECT_EQ(LaunchError("Couldn't posix_spawn: error 8"), 8);
  EXPECT_EQ(LaunchError("*** -[NSConcreteTask launch]: Couldn't posix_spawn: error 86"), 86);
  EXPECT_EQ(LaunchError("13"), 13);
}

TEST(LaunchErrorTest, IsEnoexecWhenTheReasonNamesNone) {
  EXPECT_EQ(LaunchError("launch path not accessible"), ENOEXEC);
  EXPECT_EQ(LaunchError("error 8 somewhere"), ENOEXEC);
  EXPECT_EQ(LaunchError("error 0"), ENOEXEC);
  EXPECT_EQ(LaunchError("error 4294967304"), ENOEXEC);
  EXPECT_EQ(LaunchError(""), ENOEXEC);
}

}  // namespace
}  // namespace platform
