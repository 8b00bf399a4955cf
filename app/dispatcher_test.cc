// Tests the front end in cases that simulated endpoints cannot produce.
// tests/end_to_end/command_line_test.py covers the rest.

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <sstream>

#include "app/kx_tool.h"
#include "app/options.h"
#include "diag/global_logger.h"
#include "sdk/run_state.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/tool_fixture.h"

// The program's main(), which the build renames.
int ToolMain(int argc, const char** argv);

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DispatcherTest : public fake::ToolFixture {
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

std::vector<std::string> Split(const std::string& call) {
  std::istringstream words(call);
  return {std::istream_iterator<std::string>(words), {}};
}

/// One option, its messages, and how it ends without a product and without a version.
struct Row {
  std::string call;
  int minimum;  ///< of the argument count
  int maximum;
  std::string start;  ///< empty when it is logged after the count check
  std::string badArguments;
  int code;
  std::string output;
  std::string lastLine;
};

const Row kRows[] = {
    {"-runInstaller /x.pkg", 3, 3, "",
     "Bad arguments. <installerPath> is required after \"-runInstaller\" was provided", 2, "0|||",
     "Invalid file attributes or Installer is a directory"},
    {"-runSetupDownloader /x.dmg", 3, 3, "",
     "Bad arguments. <setupDownloaderPath> is required after \"-runSetupDownloader\" was provided",
     2, "0|||", "Invalid file attributes or Installer is a directory"},
    {"-detect", 2, 2, "", "Bad arguments for detect", 0, "0|||", "ORVEX directory not found"},
    {"-getInstallationLink -slUrl u -apiKey k -packageName p", 8, 9, "Getting installation link",
     "Bad arguments. More or ignsufficient arguments provided", -67068, "",
     "Finished retrieving links"},
    {"-checkForUpdateErrors", 2, 2, "Checking for update errors",
     "Bad arguments. Invalid number of arguments", 20, "",
     "Finished checking for update errors successfully"},
    {"-getUpdateStatus a", 3, 3, "Getting update status", "Bad arguments. No status provided", 20,
     "", "Finished getting update status successfully"},
    {"-hasCriticalIssues", 2, 2, "Checking for critical issues", "Bad arguments", 20, "",
     "Finished to get critical issues successfully"},
    {"-isUpToDate", 2, 2, "Checking if ORVEX is up to date", "Bad arguments", 20, "",
     "Failed to execute method. Error code: 20"},
    {"-getUpdateLocations", 2, 2, "Get update locations", "Bad arguments", 20, "",
     "Update locations retrieved successfully"},
    {"-startUpdate", 2, 2, "Start update", "Bad arguments", 20, "0",
     "Finished to start update with error code:0"},
    {"-getProductVersion", 2, 2, "Get product version", "Bad arguments", 20, "",
     "Finished to get product version with error code:20"},
    {"-getLastUpdate", 2, 2, "Get last update", "Bad arguments", 20, "",
     "Finished to get last update with error code:20"},
    {"-getFeatureStatus", 2, 2, "Get feature status", "Bad arguments", 20, "",
     "Finished to get feature status with error code:20"},
    {"-getLastSystemScan", 2, 2, "Get last system scan", "Bad arguments", 2, "",
     "Get last system scan"},
    {"-startFullScan", 2, 3, "Starting full scan", "Bad arguments.", 20, "",
     "Could not execute method. Error code: 20"},
    {"-startQuickScan", 2, 3, "Starting quick scan", "Bad arguments.", 20, "",
     "Could not execute method. Error code: 20"},
    {"-getVersion", 2, 2, "Get RMM tool version", "Bad arguments.", 2, "",
     "Failed to retrieve file version info"},
};

TEST(OptionTable, HasTheRowsInTheirOrder) {
  ASSERT_EQ(kOptions.size(), std::size(kRows));
  for (std::size_t i = 0; i < kOptions.size(); ++i) {
    EXPECT_EQ(kOptions[i].name, Split(kRows[i].call)[0]);
  }
}

TEST_F(DispatcherTest, OutcomesWithoutAProduct) {
  world.mainBundleTexts.clear();
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.call);
    text.clear();
    EXPECT_EQ(Run(Split(row.call)), row.code);
    EXPECT_EQ(world.standardOutput, row.output);
    EXPECT_EQ(TakeLog().back(), row.lastLine);
  }
}

TEST_F(DispatcherTest, WrongCountsInAnyLetterCase) {
  for (const Row& row : kRows) {
    for (int count = 2; count <= 9; ++count) {
      if (count >= row.minimum && count <= row.maximum) continue;
      std::vector<std::string> words(static_cast<std::size_t>(count) - 1, "word");
      words[0] = Split(row.call)[0];
      if (count % 2 == 0)
        std::transform(words[0].begin(), words[0].end(), words[0].begin(), toupper);
      SCOPED_TRACE(testing::PrintToString(words));
      fake::Lines expected = {row.start, row.badArguments};
      if (row.start.empty()) expected.erase(expected.begin());
      EXPECT_EQ(Run(words), 22);
      EXPECT_EQ(world.standardOutput, "");
      EXPECT_EQ(TakeLog(), expected);
    }
  }
}

TEST_F(DispatcherTest, UnknownOptions) {
  for (const char* const option :
       {"", "-", "detect", "--detect", "-detect ", " -detect", "-detec", "-detects"}) {
    EXPECT_EQ(Run({option}), 22) << option;
    EXPECT_THAT(TakeLog(), ElementsAre("Invalid arguments for running RMM tool"));
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
  EXPECT_EQ(Run({"-getInstallationLink", "-packageName", "p", "-bogus", "u", "-apiKey", "k", "-x"}),
            22);
  EXPECT_THAT(TakeLog(), ElementsAre("Getting installation link", "Bad arguments provided.",
                                     "\"-slUrl\" is missing", "\"-apiKey\" is missing"));
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

TEST_F(DispatcherTest, ScanTimeoutHasOnlyDigits) {
  for (const char* const argument :
       {"-1", "+5", "1a", "a", " 5", "5 ", "5.0", "0x10", "1e3", "\xD9\xA3", "5\n"}) {
    EXPECT_EQ(Run({"-startQuickScan", argument}), 22) << argument;
    EXPECT_EQ(Tool().scanTimeout, -1) << argument;
    EXPECT_THAT(TakeLog(), ElementsAre("Starting quick scan", "Bad arguments."));
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
