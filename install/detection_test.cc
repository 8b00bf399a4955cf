#include <algorithm>
#include <cerrno>

#include "tests/support/product_fixture.h"

namespace install {
namespace {

using fake::Concat;
using fake::Configuration;
using fake::Lines;
using fake::ServiceProcess;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kIdentity[] = R"({"companyID":"C","endpointID":"E"})";
constexpr char kWaiting[] = "Services are not running. Waiting 5 seconds";
constexpr char kCannotAccess[] = "Cannot access agcfJso file path";

class DetectionTest : public fake::ProductFixture {
 protected:
  /// Runs the detection and compares code, record and the whole log, which `makeLines` makes up
  /// afterwards (SDK calls are logged with what they got).
  void Expect(int code, const std::string& record, const std::function<Lines()>& makeLines) {
    std::string result = "before";
    EXPECT_EQ(Tool().ORVEXDetectInstall(result, Log()), code);
    EXPECT_EQ(result, record);
    EXPECT_THAT(TakeLog(), ElementsAreArray(makeLines()));
  }

  /// Runs the detection without a log.
  void ExpectUnlogged(const std::string& record) {
    std::string result = "before";
    EXPECT_EQ(Tool().ORVEXDetectInstall(result, nullptr), 16);
    EXPECT_EQ(result, record);
  }

  /// The log of a detection that finds the product's directory, up to the check for services.
  static Lines FoundLog() {
    return {"Starting ORVEX Detect. Assign \"0\" to the result", "Get product directory",
            "Found ORVEX directory", "Assign \"2\" to the result", "Check for running services"};
  }

  /// ... up to and with the query for critical issues, answered with `status`.
  static Lines RunningLog(const std::string& status = "{}", const Lines& issues = {},
                          int layout = 1) {
    return Concat({FoundLog(),
                   {"Services are running", "Get ORVEX Critical issues"},
                   CriticalIssuesLog(status, issues, layout, 1)});
  }

  /// The log of one reading of the identity up to the configuration file, with an SDK query that is
  /// answered with kIdentity.
  static Lines SdkLog(const Lines& searchLines, std::uint64_t batch, int layout = 1) {
    return Concat({{"Clearing non nullable values", "Get SL Identity"},
                   IdentityLog(kIdentity, searchLines, layout, batch)});
  }

  static Lines BothFound() {
    return {"Search for endpointId in the received response", "HwId found: E",
            "Search for companyID in the received response", "custId found: C"};
  }

  static Lines ReadLog(const Lines& found) {
    return Concat(
        {found, {"Configuration file closed", "Finished reading from Agcf configuration file"}});
  }

  static Lines EndLog() { return {"ORVEX Already exists", "ORVEX Detect finished"}; }

  /// Replaces the process table by one in which these processes of the product run.
  void SetServices(const std::vector<std::string>& names) {
    std::vector<fake::Process> processes = {{1, "launchd", "/sbin/launchd"}};
    for (const std::string& name : names) {
      processes.push_back(ServiceProcess(static_cast<int>(100 + processes.size()), name));
    }
    world.processTables = {processes};
  }

  int SecondsSlept() const {
    int seconds = 0;
    for (const unsigned pause : world.sleeps) seconds += static_cast<int>(pause);
    return seconds;
  }
};

TEST_F(DetectionTest, NoProduct) {
  Expect(0, "0|||", AbsentLog);
  EXPECT_THAT(world.Calls(), IsEmpty()) << "the process table was read, or the SDK asked";
  std::string result = "1|a|b|c";
  EXPECT_EQ(Tool().ORVEXDetectInstall(result, nullptr), 0);
  EXPECT_EQ(result, "0|||");
}

TEST_F(DetectionTest, FileInPlaceOfTheDirectory) {
  world.AddFile("/Library/Corvane/XQP/product/lib");
  Expect(0, "0|||", AbsentLog);
}

TEST_F(DetectionTest, HealthyProduct) {
  InstallTypical();
  Expect(16, kTypicalRecord, [] { return TypicalDetectionLog(); });
  EXPECT_THAT(world.sleeps, ElementsAre(5U));
  EXPECT_EQ(world.looks, 1U);
}

TEST_F(DetectionTest, WithoutALog) {
  InstallTypical();
  ExpectUnlogged(kTypicalRecord);
  EXPECT_THAT(world.sleeps, ElementsAre(5U));
}

TEST_F(DetectionTest, CurrentLayoutHasNoOlderFile) {
  InstallHealthy(1, {"{}", kIdentity});
  Expect(16, "1|C||E", [] {
    return Concat({RunningLog(),
                   {"Retrieving endpoint information"},
                   SdkLog(BothFound(), 2),
                   ReadLog({}),
                   SdkLog({}, 3),
                   {kCannotAccess},
                   EndLog()});
  });
}

TEST_F(DetectionTest, OlderLayoutsHaveAnOlderFile) {
  for (const int layout : {2, 3}) {
    SCOPED_TRACE(layout);
    world.files.clear();
    world.uuids = 0;
    world.looks = 0;
    InstallHealthy(layout, {"{}", kIdentity});
    world.AddFile(OlderFile(layout), Configuration("h", "c", "G2"));
    Expect(16, "1|C|G2|E", [&] {
      return Concat({RunningLog("{}", {}, layout),
                     {"Retrieving endpoint information"},
                     SdkLog(BothFound(), 2, layout),
                     ReadLog({}),
                     SdkLog({}, 3, layout),
                     ReadLog({"Group id is: G2"}),
                     EndLog()});
    });
  }
}

TEST_F(DetectionTest, OlderFileFillsOnlyWhatIsStillEmpty) {
  sdk.Install(2);
  world.AddFile(NewerFile(2), R"({"id":{"hwid":"H1"}})");
  world.AddFile(OlderFile(2), Configuration("H2", "C2", "G2"));
  world.processTableFails = true;
  Expect(16, "2|C2|G2|H1", [] {
    return Concat({FoundLog(),
                   Lines(4, kWaiting),
                   {"Retrieving endpoint information", "Clearing non nullable values"},
                   ReadLog({"Hardware id is: H1"}),
                   {"Clearing non nullable values"},
                   ReadLog({"Group id is: G2", "Company id is: C2"}),
                   EndLog()});
  });
}

TEST_F(DetectionTest, FirstLayoutThatIsThereIsTaken) {
  sdk.Install(3);
  InstallHealthy(2, {"{}", kIdentity});
  world.AddFile(OlderFile(2), Configuration("h", "c", "second"));
  world.AddFile(OlderFile(3), Configuration("h", "c", "third"));
  ExpectUnlogged("1|C|second|E");
}

TEST_F(DetectionTest, CriticalIssues) {
  const std::string status =
      R"({"Alerts":{"a":{"severity":"critical"},"b":{"severity":"Critical"}}})";
  InstallHealthy(1, {status, kIdentity});
  Expect(16, "2|C||E", [&] {
    return Concat({RunningLog(status, {"Critical issue found: a", "Critical issue found: b"}),
                   {"Critical issues found: a|b", "Retrieving endpoint information"},
                   SdkLog(BothFound(), 2),
                   ReadLog({}),
                   SdkLog({}, 3),
                   {kCannotAccess},
                   EndLog()});
  });
}

TEST_F(DetectionTest, AlertsThatAreNotCritical) {
  InstallHealthy(1, {R"({"Alerts":{"a":{"severity":"warning"}}})", kIdentity});
  ExpectUnlogged("1|C||E");
}

TEST_F(DetectionTest, CriticalAlertWithoutNameIsNoIssue) {
  InstallHealthy(1, {R"({"Alerts":{"":{"severity":"critical"}}})", kIdentity});
  ExpectUnlogged("1|C||E");
}

TEST_F(DetectionTest, QueryForCriticalIssuesFails) {
  InstallHealthy(1, {});
  world.AddFile(NewerFile(), Configuration("H", "C", "G"));
  world.libraries.clear();
  const auto failedCall = [](const std::string& method) {
    return Concat(
        {{"Executing AgentSDK Wrapper method: " + method, "Executing AgentSDK method: " + method,
          "Retrieving ORVEX directory path", "GetDirectory error code = 0",
          "Validate " + fake::Sdk::LibraryPath() + " binary"},
         fake::AcceptedSignatureLog(fake::Sdk::LibraryPath()),
         {"Binary is valid", "Loading library from: " + fake::Sdk::LibraryPath(),
          "Failed to load library", "Return error: 35", "API error = 0", "Agent SDK Error = 0",
          "AgentSDK Method returned with error code: 35"}});
  };
  Expect(16, "2|C|G|H", [&] {
    return Concat(
        {FoundLog(),
         {"Services are running", "Get ORVEX Critical issues", "Execute Product.GetStatus method"},
         failedCall("Product.GetStatus"),
         {"Failed to execute Product.GetStatus method", "Critical issues found: ",
          "Retrieving endpoint information", "Clearing non nullable values", "Get SL Identity",
          "Getting SL Identity using the wrapper method"},
         failedCall("kx.Product.Configuration.GetSkyloftIdentity"),
         {"Failed to retrieve SL Identity with wrapper method: 35"},
         ReadLog({"Group id is: G", "Hardware id is: H", "Company id is: C"}),
         {"Empty values are entered"},
         EndLog()});
  });
}

TEST_F(DetectionTest, NewerFileIsMissing) {
  InstallHealthy(2, {"{}", kIdentity});
  world.files.erase(NewerFile(2));
  world.AddFile(OlderFile(2), Configuration("h", "c", "G"));
  Expect(16, "2|C|G|E", [] {
    return Concat({RunningLog("{}", {}, 2),
                   {"Retrieving endpoint information"},
                   SdkLog(BothFound(), 2, 2),
                   {kCannotAccess, "Cannot retrieve endpoint information"},
                   SdkLog({}, 3, 2),
                   ReadLog({"Group id is: G"}),
                   EndLog()});
  });
}

TEST_F(DetectionTest, NewerFileIsInvalid) {
  InstallHealthy(2, {"{}", R"({"endpointID":"E"})"});
  world.AddFile(NewerFile(2), "{");
  world.AddFile(OlderFile(2), Configuration("h", "C", "G"));
  ExpectUnlogged("2|C|G|E");
}

TEST_F(DetectionTest, NewerFileCannotBeReadToItsEnd) {
  InstallHealthy(1, {"{}", kIdentity});
  world.files[NewerFile()].readError = EIO;
  Expect(16, "2|C||E", [] {
    return Concat({RunningLog(),
                   {"Retrieving endpoint information"},
                   SdkLog(BothFound(), 2),
                   {"Exception happened while configuration file was opened. Read fault",
                    "Cannot retrieve endpoint information"},
                   SdkLog({}, 3),
                   {kCannotAccess},
                   EndLog()});
  });
}

TEST_F(DetectionTest, NewerFileThatCannotBeOpenedDemotesNothing) {
  InstallHealthy(1, {"{}", kIdentity});
  world.files[NewerFile()].openError = EMFILE;
  ExpectUnlogged("1|C||E");
}

TEST_F(DetectionTest, OlderFilesFailureIsIgnored) {
  InstallHealthy(2, {"{}", kIdentity});
  world.AddFile(OlderFile(2), "{");
  ExpectUnlogged("1|C||E");
  world.files.erase(OlderFile(2));
  ScriptAnswers({"{}", kIdentity});
  ExpectUnlogged("1|C||E");
}

TEST_F(DetectionTest, IdentifiersAreCopiedAsTheyAre) {
  InstallHealthy(1, {"{}", R"({"companyID":"a|b","endpointID":" \"é\" "})"});
  world.AddFile(NewerFile(), Configuration("h", "c", "x|y=z"));
  ExpectUnlogged("1|a|b|x|y=z| \"é\" ");
}

TEST_F(DetectionTest, ServicesNeverSeen) {
  InstallHealthy(1, {"{}", kIdentity});
  world.AddFile(NewerFile(), Configuration("H", "C", "G"));
  SetServices({"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon"});
  Expect(16, "2|C|G|H", [] {
    return Concat({FoundLog(),
                   Lines(4, kWaiting),
                   {"Retrieving endpoint information", "Clearing non nullable values"},
                   ReadLog({"Group id is: G", "Hardware id is: H", "Company id is: C"}),
                   {"Empty values are entered"},
                   EndLog()});
  });
  EXPECT_THAT(sdk.Requests(), IsEmpty());
  EXPECT_EQ(world.looks, 50U);
  EXPECT_EQ(world.sleeps.size(), 54U);
  EXPECT_EQ(SecondsSlept(), 270);

  std::vector<std::string> calls;
  for (int check = 0; check < 5; ++check) {
    if (check > 0) calls.push_back("sleep 5");
    for (int look = 0; look < 10; ++look) calls.insert(calls.end(), {"sleep 5", "list processes"});
  }
  EXPECT_THAT(world.Calls(), ElementsAreArray(calls));
}

TEST_F(DetectionTest, NothingKnown) {
  sdk.Install(1);
  world.processTableFails = true;
  Expect(16, "2|||", [] {
    return Concat(
        {FoundLog(),
         Lines(4, kWaiting),
         {"Retrieving endpoint information", "Clearing non nullable values", kCannotAccess,
          "Cannot retrieve endpoint information", "Clearing non nullable values", kCannotAccess},
         EndLog()});
  });
}

TEST_F(DetectionTest, ServicesThatComeUpLate) {
  InstallHealthy(1, {"{}", kIdentity});
  world.processTables.assign(24, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  Expect(16, "1|C||E", [] {
    Lines lines = Concat({RunningLog(),
                          {"Retrieving endpoint information"},
                          SdkLog(BothFound(), 2),
                          ReadLog({}),
                          SdkLog({}, 3),
                          {kCannotAccess},
                          EndLog()});
    const Lines waits(2, kWaiting);
    lines.insert(std::find(lines.begin(), lines.end(), "Services are running"), waits.begin(),
                 waits.end());
    return lines;
  });
  // The fifth look of the third check, and two pauses between the checks.
  EXPECT_EQ(world.looks, 25U);
  EXPECT_EQ(SecondsSlept(), 27 * 5);
}

TEST_F(DetectionTest, ServicesInTheVeryLastLook) {
  InstallHealthy(1, {"{}", kIdentity});
  world.processTables.assign(49, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  ExpectUnlogged("1|C||E");
  EXPECT_EQ(world.looks, 50U);
  EXPECT_EQ(SecondsSlept(), 270);

  world.looks = 0;
  world.processTables.insert(world.processTables.begin(), {{1, "launchd", "/sbin/launchd"}});
  ScriptAnswers({"{}", kIdentity});
  ExpectUnlogged("2|||");
}

TEST_F(DetectionTest, UnreadableProcessTableIsLookedAtFiveTimes) {
  InstallHealthy(1, {"{}", kIdentity});
  world.processTableFails = true;
  ExpectUnlogged("2|||");
  EXPECT_EQ(world.looks, 5U);
  EXPECT_EQ(SecondsSlept(), 9 * 5);
}

TEST_F(DetectionTest, EitherGroupOfServicesWill) {
  for (const std::vector<std::string>& names :
       {std::vector<std::string>{"KXCoreIssues", "KXLDaemon", "KXUpdDaemon"},
        std::vector<std::string>{"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"},
        std::vector<std::string>{"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon",
                                 "Daemon"}}) {
    world.looks = 0;
    InstallHealthy(1, {"{}", kIdentity});
    SetServices(names);
    ExpectUnlogged("1|C||E");
  }
}

TEST_F(DetectionTest, TooManyServicesAreAsWrongAsTooFew) {
  for (const std::vector<std::string>& names :
       {std::vector<std::string>{"KXCoreIssues", "KXLDaemon", "KXUpdDaemon", "KXUpdDaemon"},
        std::vector<std::string>{"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade",
                                 "upgrade"},
        std::vector<std::string>{"kxcoreissues", "kxldaemon", "kxupddaemon"}}) {
    world.looks = 0;
    InstallHealthy(1, {"{}", kIdentity});
    SetServices(names);
    ExpectUnlogged("2|||");
    EXPECT_EQ(world.looks, 50U);
  }
}

}  // namespace
}  // namespace install
