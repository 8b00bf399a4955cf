#include <algorithm>
#include <cctype>
#include <functional>
#include <stdexcept>

#include "app/options.h"
#include "diag/global_logger.h"
#include "sdk/run_state.h"
#include "tests/support/product_fixture.h"

namespace {

using fake::Concat;
using fake::Lines;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

/// What an operation answers.
struct Outcome {
  int code = 0;
  std::string text;
  long long value = 0;
};

using Operation = std::function<Outcome(KXTool& tool, Logger* logger)>;

template <int (KXTool::*Query)(std::string&, Logger*)>
Outcome Ask(KXTool& tool, Logger* logger) {
  Outcome outcome;
  outcome.code = (tool.*Query)(outcome.text, logger);
  return outcome;
}

template <int (KXTool::*Action)(long long&, Logger*)>
Outcome Act(KXTool& tool, Logger* logger) {
  Outcome outcome;
  outcome.code = (tool.*Action)(outcome.value, logger);
  outcome.text = std::to_string(outcome.value);
  return outcome;
}

template <bool PackageMode>
Outcome Install(KXTool& tool, Logger* logger) {
  Outcome outcome;
  outcome.code = tool.ORVEXInstall(outcome.text, tool.arguments.at(2), PackageMode, logger);
  return outcome;
}

Outcome AskUpdateStatus(KXTool& tool, Logger* logger) {
  Outcome outcome;
  outcome.code = tool.GetUpdateStatus(outcome.text, tool.arguments.at(2).c_str(), logger);
  return outcome;
}

Outcome AskIsUpToDate(KXTool& tool, Logger* logger) {
  Outcome outcome;
  bool upToDate = false;
  outcome.code = tool.CheckIsUpToDate(upToDate, logger);
  outcome.value = upToDate ? 1 : 0;
  outcome.text = upToDate ? "1" : "0";
  return outcome;
}

Outcome AskLink(KXTool& tool, Logger* logger) {
  Outcome outcome;
  outcome.code =
      tool.GetInstallationLinks(outcome.text, "https://c", "key", "package", true, logger);
  return outcome;
}

/// One row of the contract, in the words of the table.
struct Row {
  std::string option;
  WordCount words;
  Messages messages;
  Operation operation;
  End end = {};
  std::vector<std::string> arguments = {};
  std::vector<std::string> callLines = {};  ///< right before the operation
};

void PrintTo(const Row& row, std::ostream* stream) { *stream << row.option; }

const std::vector<Row>& Rows() {
  static const auto& rows = *new std::vector<Row>{
      {"-runInstaller",
       WordCount{3},
       Messages{"Starting ORVEX installer with run installer",
                "Bad arguments. <installerPath> is required after \"-runInstaller\" was provided",
                StartTime::kAfterCountTest},
       Install<true>,
       End{},
       {"/x/Setup.pkg"}},
      {"-runSetupDownloader",
       WordCount{3},
       Messages{
           "Starting ORVEX installer with setup downloader",
           "Bad arguments. <setupDownloaderPath> is required after \"-runSetupDownloader\" was "
           "provided",
           StartTime::kAfterCountTest},
       Install<false>,
       End{},
       {"/x/Setup.dmg"}},
      {"-detect", WordCount{2},
       Messages{"Starting ORVEX Detect", "Bad arguments for detect", StartTime::kAfterCountTest},
       Ask<&KXTool::ORVEXDetectInstall>},
      {"-getInstallationLink",
       WordCount{8, 9},
       Messages{"Getting installation link",
                "Bad arguments. More or ignsufficient arguments provided"},
       AskLink,
       End{"Finished retrieving links"},
       {"-slUrl", "https://c", "-apiKey", "key", "-packageName", "package"},
       {"Retrieving installation link"}},
      {"-checkForUpdateErrors", WordCount{2},
       Messages{"Checking for update errors", "Bad arguments. Invalid number of arguments"},
       Ask<&KXTool::GetUpdateErrors>, End{"Finished checking for update errors successfully"}},
      {"-getUpdateStatus",
       WordCount{3},
       Messages{"Getting update status", "Bad arguments. No status provided"},
       AskUpdateStatus,
       End{"Finished getting update status successfully"},
       {"AntiMalware"}},
      {"-hasCriticalIssues", WordCount{2},
       Messages{"Checking for critical issues", "Bad arguments"}, Ask<&KXTool::GetCriticalIssues>,
       End{"Finished to get critical issues successfully"}},
      {"-isUpToDate", WordCount{2}, Messages{"Checking if ORVEX is up to date", "Bad arguments"},
       AskIsUpToDate, End{"Is ORVEX up to date value:", EndNumber::kValue, OnFailure::kStaySilent}},
      {"-getUpdateLocations", WordCount{2}, Messages{"Get update locations", "Bad arguments"},
       Ask<&KXTool::GetUpdateLocations>, End{"Update locations retrieved successfully"}},
      {"-startUpdate", WordCount{2}, Messages{"Start update", "Bad arguments"},
       Act<&KXTool::StartUpdate>,
       End{"Finished to start update with error code:", EndNumber::kValue}},
      {"-getProductVersion", WordCount{2}, Messages{"Get product version", "Bad arguments"},
       Ask<&KXTool::GetProductVersion>,
       End{"Finished to get product version with error code:", EndNumber::kCode}},
      {"-getLastUpdate", WordCount{2}, Messages{"Get last update", "Bad arguments"},
       Ask<&KXTool::GetLastUpdate>,
       End{"Finished to get last update with error code:", EndNumber::kCode}},
      {"-getFeatureStatus", WordCount{2}, Messages{"Get feature status", "Bad arguments"},
       Ask<&KXTool::GetFeatureStatus>,
       End{"Finished to get feature status with error code:", EndNumber::kCode}},
      {"-getLastSystemScan", WordCount{2}, Messages{"Get last system scan", "Bad arguments"},
       Ask<&KXTool::GetLastSystemScan>,
       End{"Finished get last system scan with error code:", EndNumber::kCode,
           OnFailure::kStaySilent}},
      {"-startFullScan", WordCount{2, 3}, Messages{"Starting full scan", "Bad arguments."},
       Act<&KXTool::StartFullScan>,
       End{"Finished starting full scan with error code:", EndNumber::kValue,
           OnFailure::kStaySilent}},
      {"-startQuickScan", WordCount{2, 3}, Messages{"Starting quick scan", "Bad arguments."},
       Act<&KXTool::StartQuickScan>,
       End{"Finished starting quick scan with error code:", EndNumber::kValue,
           OnFailure::kStaySilent}},
      {"-getVersion", WordCount{2}, Messages{"Get RMM tool version", "Bad arguments."},
       Ask<&KXTool::GetVersion>,
       End{"Finished retrieving RMM Tool version with error code:", EndNumber::kCode,
           OnFailure::kStaySilent}},
  };
  return rows;
}

std::string InCase(std::string text, int (*convert)(int)) {
  for (char& letter : text) letter = static_cast<char>(convert(letter));
  return text;
}

constexpr char kStatus[] = R"({"Locations":{
    "Product":{"Version":"7.1","update":{"error":0,"time":1,"lastSucceededTime":2}},
    "AntiMalware":{"update":{"error":-5,"time":1699999999,"lastSucceededTime":1699999998}}},
    "Alerts":{"Disk":{"severity":"critical"}},"LastUpdateTime":1699999000,
    "Features":[{"id":"Firewall","isFunctioning":true}]})";

constexpr char kScanLogs[] = "/Library/Application Support/Halvard/Logs";

class DispatcherTest : public fake::ProductFixture {
 protected:
  DispatcherTest() {
    Log();
    logger = nullptr;
    world.AddFile("/opt/kx/configfile.txt", "Logging=true\n");
  }

  /// Runs the tool for a command line, in a world that `arrange` has made; the log is taken.
  int Run(const std::vector<std::string>& words) {
    TakeLog();
    world.standardOutput.clear();
    text = "";
    return MakeTool(words).Run(text);
  }

  /// Puts the clocks and the numbers of the batches back, so that two runs log the same.
  void Rewind() {
    world.wallMicroseconds = 1700000000LL * 1000000;
    world.monotonicNanoseconds = 1000;
    world.uuids = 0;
    world.looks = 0;
  }

  static int GetLinks(std::string& result, const char*, const char*, const char*, bool) {
    result = "https://link";
    return fake::World::Current().programs["links"].status;
  }

  void InstallLinksLibrary(int code) {
    world.signatures["libsl.dylib"] = fake::Signature::Makers();
    world.libraries["./libsl.dylib"]["GetInstallationLinks"] = reinterpret_cast<void*>(GetLinks);
    world.programs["links"].status = code;
  }

  std::string text;
};

class RowTest : public DispatcherTest, public testing::WithParamInterface<Row> {
 protected:
  const Row& TheRow() const { return GetParam(); }

  std::vector<std::string> Words() const {
    std::vector<std::string> words = {TheRow().option};
    words.insert(words.end(), TheRow().arguments.begin(), TheRow().arguments.end());
    return words;
  }

  /// Runs the option in the world that `arrange` makes, and expects what its operation, called
  /// alone in such a world, answers and logs, in the option's own frame.
  void ExpectFramed(const std::function<void()>& arrange, bool succeeds) {
    arrange();
    Rewind();
    Logger* const log = Log();
    const Outcome outcome = TheRow().operation(MakeTool(Words()), log);
    const Lines operationLog = TakeLog();
    EXPECT_EQ(outcome.code == 0, succeeds) << outcome.code;

    logger = nullptr;
    arrange();
    Rewind();
    EXPECT_EQ(Run(Words()), outcome.code);
    const bool isReported = succeeds || TheRow().end.onFailure == OnFailure::kReport;
    EXPECT_EQ(world.standardOutput, isReported ? outcome.text : "");
    EXPECT_THAT(TakeLog(), ElementsAreArray(Concat({{TheRow().messages.start},
                                                    TheRow().callLines,
                                                    operationLog,
                                                    EndLines(outcome, isReported)})));
  }

 private:
  Lines EndLines(const Outcome& outcome, bool isReported) const {
    Lines lines;
    if (TheRow().option == "-getInstallationLink" && outcome.code != 0) {
      lines.push_back("Failed to retrieve installation links. Exit code:" +
                      std::to_string(outcome.code));
    }
    const End& end = TheRow().end;
    if (!isReported || end.message == nullptr) return lines;
    const std::string numbers[] = {"", std::to_string(outcome.code), std::to_string(outcome.value)};
    lines.push_back(end.message + numbers[static_cast<std::size_t>(end.number)]);
    return lines;
  }
};

INSTANTIATE_TEST_SUITE_P(Options, RowTest, testing::ValuesIn(Rows()),
                         [](const auto& row) { return row.param.option.substr(1); });

TEST_P(RowTest, WrongCounts) {
  for (int count = 2; count <= 9; ++count) {
    if (count >= TheRow().words.least && count <= TheRow().words.most) continue;
    SCOPED_TRACE(count);
    std::vector<std::string> words(static_cast<std::size_t>(count) - 1, "word");
    words[0] = TheRow().option;
    EXPECT_EQ(Run(words), 22);
    EXPECT_EQ(world.standardOutput, "");
    const Messages& messages = TheRow().messages;
    Lines expected = {messages.badArguments};
    if (messages.startTime == StartTime::kBeforeCountTest) {
      expected.insert(expected.begin(), messages.start);
    }
    EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
  }
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_P(RowTest, WithoutAProduct) {
  // Only these have something to say then.
  const bool succeeds = TheRow().option == "-detect" || TheRow().option == "-getVersion";
  ExpectFramed([] {}, succeeds);
}

TEST_P(RowTest, WithAHealthyProduct) {
  const auto arrange = [this] {
    InstallHealthy(1, {kStatus, "{}"});
    sdk.answers = {fake::Answer(TheRow().option == "-detect" ? "{}" : kStatus)};
    if (TheRow().option == "-startUpdate") sdk.answers = {fake::Answer("null", "Update", 12)};
    if (TheRow().option == "-startFullScan" || TheRow().option == "-startQuickScan") {
      sdk.answers = {fake::Answer("null", "FileScan.OnDemand", -4)};
    }
    InstallLinksLibrary(0);
    world.AddDirectory(kScanLogs);
  };
  // Where the product is there, nothing is installed, and a detection answers 16.
  const bool succeeds = TheRow().option.find("-run") != 0 && TheRow().option != "-detect";
  ExpectFramed(arrange, succeeds);
}

TEST_P(RowTest, NoCompletion) {
  const auto arrange = [this] {
    sdk.Install();
    InstallLinksLibrary(300);
    world.mainBundleTexts.clear();
  };
  ExpectFramed(arrange, false);
}

TEST_P(RowTest, LetterCaseDoesNotCount) {
  using Convert = int (*)(int);
  for (const Convert convert : {Convert(std::toupper), Convert(std::tolower)}) {
    std::vector<std::string> words(7, "word");
    words[0] = InCase(TheRow().option, convert);
    if (TheRow().option == "-getInstallationLink") words.resize(4);
    EXPECT_EQ(Run(words), 22);
    EXPECT_EQ(TakeLog().back(), TheRow().messages.badArguments);
  }
}

TEST_P(RowTest, WithoutALog) {
  world.files.erase("/opt/kx/configfile.txt");
  const Outcome outcome = TheRow().operation(MakeTool(Words()), nullptr);
  EXPECT_EQ(Run(Words()), outcome.code);
  const bool isReported = outcome.code == 0 || TheRow().end.onFailure == OnFailure::kReport;
  EXPECT_EQ(world.standardOutput, isReported ? outcome.text : "");
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST(OptionTable, HasTheRowsInTheirOrder) {
  ASSERT_EQ(kOptions.size(), Rows().size());
  for (std::size_t number = 0; number < kOptions.size(); ++number) {
    EXPECT_EQ(kOptions[number].name, Rows()[number].option);
  }
}

// Start of a run.

TEST_F(DispatcherTest, UpToDateIsPrintedAndLogged) {
  sdk.Install();
  sdk.answers = {fake::Answer(R"({"Locations":{}})")};
  EXPECT_EQ(Run({"-isUpToDate"}), 0);
  EXPECT_EQ(world.standardOutput, "1");
  EXPECT_THAT(TakeLog(), testing::Contains("Is ORVEX up to date value:1"));
}

TEST_F(DispatcherTest, UnknownOptions) {
  for (const std::string option : {"", "-", "detect", "--detect", "-detect ", " -detect", "-detec",
                                   "-detects", "-help", "-GETVERSION1"}) {
    SCOPED_TRACE(option);
    EXPECT_EQ(Run({option}), 22);
    EXPECT_EQ(world.standardOutput, "");
    EXPECT_THAT(TakeLog(), ElementsAre("Invalid arguments for running RMM tool"));
  }
}

TEST_F(DispatcherTest, OnlyAsciiLettersHaveTwoCases) {
  EXPECT_EQ(Run({"-ge\xC3\xA4"}), 22);
  EXPECT_EQ(Run({"-GETVERSION"}), 0);
  EXPECT_EQ(world.standardOutput, "1.0.0.206");
  // These differ from letters by the bit that makes the case, but are no letters.
  EXPECT_EQ(Run({"\x0DgetVersion"}), 22);
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

TEST_F(DispatcherTest, ConfigurationThatIsNotThereIsNotOpened) {
  world.files.clear();
  EXPECT_EQ(Run({"-getVersion"}), 0);
  EXPECT_EQ(logger, nullptr);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(DispatcherTest, ConfigurationThatIsADirectory) {
  world.AddDirectory("/opt/kx/configfile.txt");
  EXPECT_EQ(Run({"-getVersion"}), 0);
  EXPECT_EQ(logger, nullptr);
}

// -getVersion

TEST_F(DispatcherTest, Version) {
  EXPECT_EQ(Run({"-getVersion"}), 0);
  EXPECT_EQ(world.standardOutput, "1.0.0.206");
  EXPECT_EQ(text, "1.0.0.206");
  EXPECT_THAT(TakeLog(),
              ElementsAre("Get RMM tool version", "Get file version info size",
                          "RMM Tools version retrieved successfully. Version is:1.0.0.206",
                          "Finished retrieving RMM Tool version with error code:0"));
}

TEST_F(DispatcherTest, NoVersion) {
  world.mainBundleTexts.erase("RMMToolVersion");
  EXPECT_EQ(Run({"-getVersion"}), 2);
  EXPECT_EQ(world.standardOutput, "");
  EXPECT_THAT(TakeLog(), ElementsAre("Get RMM tool version", "Get file version info size",
                                     "Failed to retrieve file version info"));
  std::string before = "before";
  EXPECT_EQ(Tool().GetVersion(before, nullptr), 2);
  EXPECT_EQ(before, "before");
}

// The installers.

TEST_F(DispatcherTest, InstallerIsTheArgument) {
  EXPECT_EQ(Run({"-runInstaller", ""}), 2);
  EXPECT_EQ(world.standardOutput, "0|||");
  world.AddFile("/x/Setup.pkg");
  world.AddFile("/x/installer.xml");
  world.programs["/usr/sbin/installer"].status = 7;
  EXPECT_EQ(Run({"-runInstaller", "/x/Setup.pkg"}), 7);
  EXPECT_EQ(world.standardOutput, "0|||");
  ASSERT_EQ(world.tasks.size(), 1U);
  EXPECT_THAT(world.tasks[0].arguments, ElementsAre("-pkg", "/x/Setup.pkg", "-target", "/"));
}

// -getInstallationLink

class LinkTest : public DispatcherTest {
 protected:
  LinkTest() {
    world.signatures["libsl.dylib"] = fake::Signature::Makers();
    world.libraries["./libsl.dylib"]["GetInstallationLinks"] = reinterpret_cast<void*>(Record);
    call.clear();
  }

  static int Record(std::string& result, const char* consoleUrl, const char* apiKey,
                    const char* packageName, bool setupDownloaderLink) {
    call = {consoleUrl, apiKey, packageName, setupDownloaderLink ? "true" : "false"};
    result = "link";
    return 0;
  }

  /// Runs the option with `arguments` and expects it to refuse them with the log `lines`.
  void ExpectRefusal(std::vector<std::string> arguments, Lines lines) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    arguments.insert(arguments.begin(), "-getInstallationLink");
    lines.insert(lines.begin(), "Getting installation link");
    EXPECT_EQ(Run(arguments), 22);
    EXPECT_EQ(world.standardOutput, "");
    EXPECT_THAT(TakeLog(), ElementsAreArray(lines));
    EXPECT_THAT(call, IsEmpty());
  }

  /// Runs the option with `arguments` and expects it to call the library with `expected`.
  void ExpectCall(std::vector<std::string> arguments, const std::vector<std::string>& expected) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    arguments.insert(arguments.begin(), "-getInstallationLink");
    EXPECT_EQ(Run(arguments), 0);
    EXPECT_EQ(world.standardOutput, "link");
    EXPECT_EQ(call, expected);
    const Lines log = TakeLog();
    EXPECT_EQ(log[0], "Getting installation link");
    EXPECT_EQ(log[1], "Retrieving installation link");
    EXPECT_EQ(log.back(), "Finished retrieving links");
  }

  static std::vector<std::string> call;
};

std::vector<std::string> LinkTest::call;

TEST_F(LinkTest, PairsInAnyOrderAndCase) {
  ExpectCall({"-slUrl", "u", "-apiKey", "k", "-packageName", "p"}, {"u", "k", "p", "true"});
  ExpectCall({"-apiKey", "k", "-slUrl", "u", "-packageName", "p"}, {"u", "k", "p", "true"});
  ExpectCall({"-PACKAGENAME", "P", "-SLURL", "U", "-APIKEY", "K"}, {"U", "K", "P", "true"});
  ExpectCall({"-slurl", "-apiKey", "-apikey", "-packageName", "-packagename", "-slUrl"},
             {"-apiKey", "-packageName", "-slUrl", "true"});
}

TEST_F(LinkTest, SwitchTurnsTheFlagOff) {
  ExpectCall({"-slUrl", "u", "-apiKey", "k", "-packageName", "p", "-setupDownloaderLink"},
             {"u", "k", "p", "false"});
  ExpectCall({"-slUrl", "u", "-apiKey", "k", "-packageName", "p", "-SETUPdownloaderLINK"},
             {"u", "k", "p", "false"});
}

TEST_F(LinkTest, OfARepeatedNameTheLastValueCounts) {
  ExpectCall({"-slUrl", "u", "-slUrl", "v", "-packageName", "p"}, {"v", "", "p", "true"});
  ExpectCall({"-apiKey", "1", "-apiKey", "2", "-apiKey", "3"}, {"", "3", "", "true"});
}

TEST_F(LinkTest, EmptyValuesAreAccepted) {
  ExpectCall({"-slUrl", "", "-apiKey", "", "-packageName", ""}, {"", "", "", "true"});
}

TEST_F(LinkTest, UnknownNames) {
  ExpectRefusal({"-bogus", "x", "-slUrl", "u", "-apiKey", "k"},
                {"Bad arguments provided.", "\"-slUrl\" is missing", "\"-apiKey\" is missing",
                 "\"-packageName\" is empty"});
  ExpectRefusal({"-slUrl", "u", "-bogus", "x", "-packageName", "p"},
                {"Bad arguments provided.", "\"-apiKey\" is missing", "\"-packageName\" is empty"});
  ExpectRefusal({"-packageName", "p", "-apiKey", "k", "-bogus", "x"},
                {"Bad arguments provided.", "\"-slUrl\" is missing"});
  ExpectRefusal({"-apiKey", "", "-slUrl", "u", "", "x"},
                {"Bad arguments provided.", "\"-apiKey\" is missing", "\"-packageName\" is empty"});
  ExpectRefusal({"-slUrl", "u", "-apiKey", "k", "slUrl", "x"},
                {"Bad arguments provided.", "\"-packageName\" is empty"});
}

TEST_F(LinkTest, NamesAreJudgedBeforeTheSwitch) {
  ExpectRefusal({"-bogus", "u", "-apiKey", "k", "-packageName", "p", "-bogus"},
                {"Bad arguments provided.", "\"-slUrl\" is missing", "\"-apiKey\" is missing",
                 "\"-packageName\" is empty"});
}

TEST_F(LinkTest, AnotherSwitch) {
  for (const std::string word : {"", "-setupDownloader", "setupDownloaderLink", "-slUrl"}) {
    ExpectRefusal({"-slUrl", "u", "-apiKey", "k", "-packageName", "p", word},
                  {"Bad arguments provided. \"-setupDownloaderLink\" was expected"});
  }
}

// The time limit of the scans.

class ScanArgumentTest : public DispatcherTest, public testing::WithParamInterface<std::string> {
 protected:
  long long TimeoutAfter(const std::string& argument) {
    EXPECT_EQ(Run({GetParam(), argument}), 20);
    return Tool().scanTimeout;
  }
};

INSTANTIATE_TEST_SUITE_P(BothScans, ScanArgumentTest,
                         testing::Values("-startFullScan", "-startQuickScan"));

TEST_P(ScanArgumentTest, NoArgument) {
  EXPECT_EQ(Run({GetParam()}), 20);
  EXPECT_EQ(Tool().scanTimeout, -1);
}

TEST_P(ScanArgumentTest, AtLeastFive) {
  EXPECT_EQ(TimeoutAfter("0"), 5);
  EXPECT_EQ(TimeoutAfter("3"), 5);
  EXPECT_EQ(TimeoutAfter("4"), 5);
  EXPECT_EQ(TimeoutAfter("5"), 5);
  EXPECT_EQ(TimeoutAfter("6"), 6);
  EXPECT_EQ(TimeoutAfter("12"), 12);
  EXPECT_EQ(TimeoutAfter("0000000000000000000000000000012"), 12);
  EXPECT_EQ(TimeoutAfter("10000000000"), 10000000000);
  EXPECT_EQ(TimeoutAfter("9223372036854775807"), 9223372036854775807);
}

TEST_P(ScanArgumentTest, NothingButDigits) {
  const std::string startLine =
      GetParam() == "-startFullScan" ? "Starting full scan" : "Starting quick scan";
  for (const std::string argument :
       {"-1", "+5", "1a", "a", " 5", "5 ", "5.0", "0x10", "1e3", "\xD9\xA3", "5\n"}) {
    SCOPED_TRACE(argument);
    EXPECT_EQ(Run({GetParam(), argument}), 22);
    EXPECT_EQ(Tool().scanTimeout, -1);
    EXPECT_EQ(world.standardOutput, "");
    EXPECT_THAT(TakeLog(), ElementsAre(startLine, "Bad arguments."));
  }
}

TEST_P(ScanArgumentTest, NumbersThatDoNotConvertEscape) {
  EXPECT_THROW(Run({GetParam(), ""}), std::invalid_argument);
  EXPECT_THROW(Run({GetParam(), "9223372036854775808"}), std::out_of_range);
  EXPECT_THROW(Run({GetParam(), std::string(1000, '9')}), std::out_of_range);
  EXPECT_EQ(world.standardOutput, "");
}

// The tool object.

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

}  // namespace
