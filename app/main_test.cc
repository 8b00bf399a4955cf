#include <csignal>

#include "tests/support/allocation_failure.h"
#include "tests/support/tool_fixture.h"

// The program's main(), which the build renames.
int ToolMain(int argc, const char** argv);

namespace {

class MainTest : public fake::ToolFixture {
 protected:
  int Main(std::vector<const char*> words) {
    words.insert(words.begin(), "/opt/kx/KXTool");
    return ToolMain(static_cast<int>(words.size()), words.data());
  }
};

TEST_F(MainTest, FromOneToEightWords) {
  EXPECT_EQ(ToolMain(0, nullptr), 22);
  EXPECT_EQ(Main({}), 22);
  EXPECT_EQ(Main({"-getVersion", "2", "3", "4", "5", "6", "7", "8", "9"}), 22);
  EXPECT_EQ(world.standardOutput, "");
  EXPECT_THAT(world.Calls(), testing::IsEmpty());
  // Eight words reach the options, which refuse them with a log line of their own.
  world.AddFile("/opt/kx/configfile.txt", "Logging=true");
  Log();
  EXPECT_EQ(Main({"-detect", "2", "3", "4", "5", "6", "7", "8"}), 22);
  EXPECT_THAT(TakeLog(), testing::ElementsAre("Bad arguments for detect"));
  EXPECT_EQ(Main({}), 22);
  EXPECT_EQ(Main({"-detect", "2", "3", "4", "5", "6", "7", "8", "9"}), 22);
  EXPECT_THAT(TakeLog(), testing::IsEmpty());
}

TEST_F(MainTest, ResultIsPrintedAndTheCodeReturned) {
  EXPECT_EQ(Main({"-getVersion"}), 0);
  EXPECT_EQ(world.standardOutput, "1.0.0.206");
  EXPECT_EQ(Main({"-getProductVersion"}), 20);
  sdk.Install();
  world.signatures.clear();
  EXPECT_EQ(Main({"-getProductVersion"}), -67068);
}

TEST_F(MainTest, NoMemoryForTheTool) {
  const char* words[] = {"/opt/kx/KXTool", "-getVersion"};
  fake::AllocationFailure::Arm(1);
  EXPECT_EQ(ToolMain(2, words), 12);
  EXPECT_TRUE(fake::AllocationFailure::Disarm());
  EXPECT_EQ(world.standardOutput, "");
}

TEST_F(MainTest, TimeLimitsThatDoNotConvertEndTheProcess) {
  for (const char* const limit : {"", "9223372036854775808", "99999999999999999999999999"}) {
    EXPECT_EXIT(
        [&]() noexcept {
          Main({"-startQuickScan", limit});
        }(),
        testing::KilledBySignal(SIGABRT), "");
  }
}

}  // namespace
