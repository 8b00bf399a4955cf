// Rules and faults of the detection; tests/end_to_end/detection_test.py tests the complete flows.

#include <cerrno>

#include "tests/support/product_fixture.h"

namespace install {
namespace {

using fake::Concat;
using fake::Lines;
using testing::Each;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kIdentity[] = R"({"companyID":"C","endpointID":"E"})";

class DetectionTest : public fake::ProductFixture {
 protected:
  /// Runs the detection of a product that is installed.
  void Expect(const std::string& record, Logger* log = nullptr) {
    std::string result = "before";
    EXPECT_EQ(Tool().ORVEXDetectInstall(result, log), 16);
    EXPECT_EQ(result, record);
  }

  /// Makes the services appear at the given poll, counted from 1.
  void ShowServicesAtPoll(std::size_t number) {
    world.polls = 0;
    world.sleeps.clear();
    world.processTables.assign(number - 1, {{1, "launchd", "/sbin/launchd"}});
    world.processTables.push_back(fake::RunningServices());
    ScriptAnswers({"{}", kIdentity});
  }

  void ExpectPolls(std::size_t polls, std::size_t pauses) {
    EXPECT_EQ(world.polls, polls);
    EXPECT_EQ(world.sleeps.size(), pauses);
    EXPECT_THAT(world.sleeps, Each(5U));
  }
};

TEST_F(DetectionTest, ReplacesTheResultIfThereIsNoProduct) {
  std::string result = "1|a|b|c";
  EXPECT_EQ(Tool().ORVEXDetectInstall(result, nullptr), 0);
  EXPECT_EQ(result, "0|||");
  EXPECT_THAT(world.Calls(), IsEmpty()) << "the process table was read, or the SDK called";
}

TEST_F(DetectionTest, CriticalAlertWithoutANameIsNotAnIssue) {
  InstallHealthy(1, {R"({"Alerts":{"":{"severity":"critical"}}})", kIdentity});
  Expect("1|C||E");
}

TEST_F(DetectionTest, CriticalIssuesCannotBeRead) {
  InstallHealthy(1, {});
  world.libraries.clear();
  Expect("2|||");
}

TEST_F(DetectionTest, NewerFileCannotBeReadToItsEnd) {
  InstallHealthy(1, {"{}", kIdentity});
  world.files[NewerFile()].readError = EIO;
  Expect("2|C||E");
}

TEST_F(DetectionTest, NewerFileThatCannotBeOpenedIsIgnored) {
  InstallHealthy(1, {"{}", kIdentity});
  world.files[NewerFile()].openError = EMFILE;
  Expect("1|C||E");
}

TEST_F(DetectionTest, FailureOfTheOlderFileIsIgnored) {
  InstallHealthy(2, {"{}", kIdentity});
  world.AddFile(OlderFile(2), "{");
  Expect("1|C||E");
  world.files.erase(OlderFile(2));
  ScriptAnswers({"{}", kIdentity});
  Expect("1|C||E");
}

TEST_F(DetectionTest, NothingKnown) {
  sdk.Install(1);
  world.processTableFails = true;
  Expect("2|||", Log());
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat(
          {{"Starting ORVEX Detect. Assign \"0\" to the result", "Get product directory",
            "Found ORVEX directory", "Assign \"2\" to the result", "Check for running services"},
           Lines(4, "Services are not running. Waiting 5 seconds"),
           {"Retrieving endpoint information", "Clearing non nullable values",
            "Cannot access agcfJso file path", "Cannot retrieve endpoint information",
            "Clearing non nullable values", "Cannot access agcfJso file path",
            "ORVEX Already exists", "ORVEX Detect finished"}})));
  EXPECT_THAT(sdk.Requests(), IsEmpty());
  ExpectPolls(5, 9);
}

TEST_F(DetectionTest, ServicesNeverSeen) {
  InstallHealthy(1, {});
  ShowServicesAtPoll(51);
  Expect("2|||");
  std::vector<std::string> calls;
  for (int check = 0; check < 5; ++check) {
    if (check > 0) calls.push_back("sleep 5");
    for (int poll = 0; poll < 10; ++poll) calls.insert(calls.end(), {"sleep 5", "list processes"});
  }
  EXPECT_THAT(world.Calls(), ElementsAreArray(calls));
}

TEST_F(DetectionTest, ServicesThatComeUpLate) {
  InstallHealthy(1, {});
  ShowServicesAtPoll(25);
  Expect("1|C||E");
  ExpectPolls(25, 27);
  ShowServicesAtPoll(50);
  Expect("1|C||E");
  ExpectPolls(50, 54);
}

}  // namespace
}  // namespace install
