// What simulated endpoints cannot show of the front end. tests/end_to_end/command_line_test.py has
// the rest.

#include "app/options.h"
#include "diag/global_logger.h"
#include "sdk/run_state.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/tool_test.h"

// The program's main(), which the build renames.
int ToolMain(int argc, const char** argv);

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DispatcherTest : public fake::ToolTest {
 protected:
  DispatcherTest() {
    Log();
    logger = nullptr;
    world.AddFile("/opt/kx/configfile.txt", "Logging=true\n");
  }

  int Run(const std::vector<std::string>& words) {
    TakeLog();
    world.standardOutput.clear();
    return MakeTool(words).Run(text);
  }

  std::string text;
};

/// How an option fails when there is neither a product nor a version.
struct Failure {
  std::vector<std::string> words;
  int code;
  std::string output;
  std::string lastLine;
};

TEST_F(DispatcherTest, FailedOptionsReportOrStaySilent) {
  world.mainBundleTexts.clear();
  const std::string noProduct = "Failed to execute method. Error code: 20";
  const std::string noScan = "Could not execute method. Error code: 20";
  const std::vector<Failure> failures = {
      {{"-runInstaller", "/x.pkg"},
       2,
       "0|||",
       "Invalid file attributes or Installer is a directory"},
      {{"-runSetupDownloader", "/x.dmg"},
       2,
       "0|||",
       "Invalid file attributes or Installer is a directory"},
      {{"-getInstallationLink", "-slUrl", "u", "-apiKey", "k", "-packageName", "p"},
       -67068,
       "",
       "Finished retrieving links"},
      {{"-checkForUpdateErrors"}, 20, "", "Finished checking for update errors successfully"},
      {{"-getUpdateStatus", "a"}, 20, "", "Finished getting update status successfully"},
      {{"-hasCriticalIssues"}, 20, "", "Finished to get critical issues successfully"},
      {{"-isUpToDate"}, 20, "", noProduct},
      {{"-getUpdateLocations"}, 20, "", "Update locations retrieved successfully"},
      {{"-startUpdate"}, 20, "0", "Finished to start update with error code:0"},
      {{"-getProductVersion"}, 20, "", "Finished to get product version with error code:20"},
      {{"-getLastUpdate"}, 20, "", "Finished to get last update with error code:20"},
      {{"-getFeatureStatus"}, 20, "", "Finished to get feature status with error code:20"},
      {{"-getLastSystemScan"}, 2, "", "Get last system scan"},
      {{"-startFullScan"}, 20, "", noScan},
      {{"-startQuickScan"}, 20, "", noScan},
      {{"-getVersion"}, 2, "", "Failed to retrieve file version info"},
  };
  for (const Failure& row : failures) {
    SCOPED_TRACE(row.words[0]);
    text.clear();
    EXPECT_EQ(Run(row.words), row.code);
    EXPECT_EQ(world.standardOutput, row.output);
    EXPECT_EQ(TakeLog().back(), row.lastLine);
  }
}

TEST_F(DispatcherTest, LetterCaseDoesNotCount) {
  for (const Option& option : kOptions) {
    SCOPED_TRACE(option.name);
    std::vector<std::string> words(4, "word");  // too many, or too few
    words[0] = option.name;
    for (char& letter : words[0]) letter = static_cast<char>(std::toupper(letter));
    EXPECT_EQ(Run(words), 22);
    EXPECT_EQ(TakeLog().back(), option.messages.badArguments);
  }
}

TEST_F(DispatcherTest, MissingVersionLeavesTheResult) {
  world.mainBundleTexts.clear();
  text = "before";
  EXPECT_EQ(Tool().GetVersion(text, nullptr), 2);
  EXPECT_EQ(text, "before");
}

TEST_F(DispatcherTest, ConfigurationLiesBesideTheProgram) {
  const std::vector<std::pair<std::string, std::string>> programs = {
      {"/opt/kx/KXTool", "/opt/kx/configfile.txt"},
      {"./KXTool", "./configfile.txt"},
      {"../a/b/KXTool", "../a/b/configfile.txt"},
      {"KXTool", "configfile.txt"},
      {"/KXTool", "/configfile.txt"},
      {"dir/", "dir/configfile.txt"},
      {"", "configfile.txt"}};
  for (const auto& [program, configuration] : programs) {
    SCOPED_TRACE(program);
    world.files.clear();
    logger = nullptr;
    const char* argv[] = {program.c_str(), "-getVersion"};
    EXPECT_EQ(KXTool(2, argv).Run(text), 0);
    EXPECT_EQ(logger, nullptr);
    world.AddFile(configuration, "Logging=true");
    EXPECT_EQ(KXTool(2, argv).Run(text), 0);
    EXPECT_NE(logger, nullptr);
  }
}

TEST_F(DispatcherTest, ConfigurationThatIsADirectory) {
  world.AddDirectory("/opt/kx/configfile.txt");
  EXPECT_EQ(Run({"-getVersion"}), 0);
  EXPECT_EQ(logger, nullptr);
}

TEST_F(DispatcherTest, LinkNamesAreCheckedBeforeTheSwitch) {
  EXPECT_EQ(Run({"-getInstallationLink", "-bogus", "u", "-apiKey", "", "-packageName", "p", "-x"}),
            22);
  EXPECT_THAT(TakeLog(), ElementsAre("Getting installation link", "Bad arguments provided.",
                                     "\"-slUrl\" is missing", "\"-apiKey\" is missing",
                                     "\"-packageName\" is empty"));
}

TEST_F(DispatcherTest, ScanTimeoutIsAtLeastFive) {
  for (const std::string option : {"-startFullScan", "-startQuickScan"}) {
    EXPECT_EQ(Run({option}), 20);
    EXPECT_EQ(Tool().scanTimeout, -1);
    for (const auto& [argument, timeout] :
         std::map<std::string, long long>{{"0", 5},
                                          {"4", 5},
                                          {"5", 5},
                                          {"6", 6},
                                          {"0000000000000000000000000000012", 12},
                                          {"10000000000", 10000000000},
                                          {"9223372036854775807", 9223372036854775807}}) {
      EXPECT_EQ(Run({option, argument}), 20);
      EXPECT_EQ(Tool().scanTimeout, timeout) << argument;
    }
  }
}

TEST_F(DispatcherTest, NewTool) {
  const char* argv[] = {"a", "b", ""};
  stopThread = false;
  hasProductEvent = true;
  isReady = true;
  const KXTool tool(3, argv);
  EXPECT_EQ(tool.argc, 3);
  EXPECT_EQ(tool.scanTimeout, -1);
  EXPECT_EQ(tool.scanError, 0);
  EXPECT_THAT(tool.arguments, ElementsAre("a", "b", ""));
  EXPECT_EQ(tool.sdkResponse, "");
  EXPECT_THAT(tool.productEvents, IsEmpty());
  EXPECT_TRUE(stopThread);
  EXPECT_FALSE(hasProductEvent);
  EXPECT_FALSE(isReady);
}

TEST_F(DispatcherTest, MainWithoutAProgramName) {
  EXPECT_EQ(ToolMain(0, nullptr), 22);
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(DispatcherTest, MainWithoutMemoryForTheTool) {
  const char* words[] = {"/opt/kx/KXTool", "-getVersion"};
  fake::AllocationFailure::Arm(1);
  EXPECT_EQ(ToolMain(2, words), 12);
  EXPECT_TRUE(fake::AllocationFailure::Disarm());
  EXPECT_EQ(world.standardOutput, "");
}

}  // namespace
