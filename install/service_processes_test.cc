#include "install/service_processes.h"

#include "tests/support/product_fixture.h"

namespace install {
namespace {

using fake::Process;
using fake::ServiceProcess;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(ServiceTableTest, TwoGroups) {
  EXPECT_THAT(MakeServiceTable(),
              UnorderedElementsAre(
                  Pair(1, UnorderedElementsAre("PrivHelperTool", "CoreIssues", "UpdDaemon",
                                               "Daemon", "upgrade")),
                  Pair(2, UnorderedElementsAre("KXCoreIssues", "KXLDaemon", "KXUpdDaemon"))));
}

bool IsRunning(const std::vector<std::string>& names) {
  return IsGroupRunning(MakeServiceTable(), names);
}

TEST(IsGroupRunningTest, WholeGroups) {
  EXPECT_TRUE(IsRunning({"KXCoreIssues", "KXLDaemon", "KXUpdDaemon"}));
  EXPECT_TRUE(IsRunning({"x", "KXUpdDaemon", "y", "KXLDaemon", "KXCoreIssues", "z"}));
  EXPECT_TRUE(IsRunning({"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"}));
}

TEST(IsGroupRunningTest, PartsOfGroups) {
  EXPECT_FALSE(IsRunning({}));
  EXPECT_FALSE(IsRunning({"KXCoreIssues", "KXLDaemon"}));
  EXPECT_FALSE(IsRunning({"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon"}));
  EXPECT_FALSE(IsRunning({"KXCoreIssues", "KXLDaemon", "PrivHelperTool", "CoreIssues", "Daemon"}));
}

TEST(IsGroupRunningTest, OneWholeGroupIsEnough) {
  EXPECT_TRUE(IsRunning({"KXCoreIssues", "KXLDaemon", "KXUpdDaemon", "Daemon", "upgrade"}));
  EXPECT_TRUE(IsRunning(
      {"KXCoreIssues", "PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"}));
}

TEST(IsGroupRunningTest, ProcessesAreCountedNotNames) {
  EXPECT_TRUE(IsRunning({"Daemon", "Daemon", "PrivHelperTool", "CoreIssues", "UpdDaemon"}));
  EXPECT_TRUE(IsRunning({"KXLDaemon", "KXLDaemon", "KXLDaemon"}));
  EXPECT_TRUE(IsRunning({"upgrade", "upgrade", "upgrade", "upgrade", "upgrade"}));
}

TEST(IsGroupRunningTest, OneTooManyIsWrong) {
  EXPECT_FALSE(IsRunning({"KXCoreIssues", "KXLDaemon", "KXUpdDaemon", "KXLDaemon"}));
  EXPECT_FALSE(
      IsRunning({"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade", "upgrade"}));
  EXPECT_TRUE(IsRunning({"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade",
                         "upgrade", "KXCoreIssues", "KXLDaemon", "KXUpdDaemon"}));
}

TEST(IsGroupRunningTest, NamesAreComparedExactly) {
  EXPECT_FALSE(IsRunning({"kxcoreissues", "KXLDaemon", "KXUpdDaemon"}));
  EXPECT_FALSE(IsRunning({"KXCoreIssues ", "KXLDaemon", "KXUpdDaemon"}));
  EXPECT_FALSE(IsRunning({"KXCoreIssue", "KXLDaemon", "KXUpdDaemon"}));
  EXPECT_FALSE(IsRunning({"KXCoreIssuesX", "KXLDaemon", "KXUpdDaemon"}));
  EXPECT_FALSE(IsRunning({"", "KXLDaemon", "KXUpdDaemon"}));
}

class ServiceProcessesTest : public fake::ToolFixture {
 protected:
  static constexpr unsigned kPause = 5;
};

TEST_F(ServiceProcessesTest, NameOfAProcess) {
  world.processTables = {{{1, "a", "/usr/bin/tool"},
                          {2, "b", "tool"},
                          {3, "c", "/Applications/My Tool.app/Contents/MacOS/My Tool"},
                          {4, "d", "/"},
                          {5, "e", ""},
                          {6, "f", std::nullopt},
                          {7, "g", "dir/"}}};
  std::string name = "before";
  EXPECT_TRUE(Tool().GetProcessName(name, 1));
  EXPECT_EQ(name, "tool");
  name.clear();
  EXPECT_TRUE(Tool().GetProcessName(name, 2));
  EXPECT_EQ(name, "tool");
  EXPECT_TRUE(Tool().GetProcessName(name, 3));
  EXPECT_EQ(name, "My Tool");
  for (const int processId : {4, 5, 7}) {
    name = "before";
    EXPECT_TRUE(Tool().GetProcessName(name, processId));
    EXPECT_EQ(name, "");
  }
  for (const int processId : {6, 99}) {
    name = "before";
    EXPECT_FALSE(Tool().GetProcessName(name, processId));
    EXPECT_EQ(name, "before");
  }
}

TEST_F(ServiceProcessesTest, RunningServicesAreFoundAfterOnePause) {
  world.processTables = {fake::RunningServices()};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_THAT(world.Calls(), ElementsAre("sleep 5", "list processes"));
}

TEST_F(ServiceProcessesTest, EachLookFollowsAPause) {
  world.processTables.assign(6, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.looks, 7U);
  std::vector<std::string> calls;
  for (int look = 0; look < 7; ++look) calls.insert(calls.end(), {"sleep 5", "list processes"});
  EXPECT_THAT(world.Calls(), testing::ElementsAreArray(calls));
}

TEST_F(ServiceProcessesTest, TenthLookIsTheLast) {
  world.processTables.assign(9, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.looks, 10U);

  world.looks = 0;
  world.sleeps.clear();
  world.processTables.insert(world.processTables.begin(), {{1, "launchd", "/sbin/launchd"}});
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.looks, 10U);
  EXPECT_EQ(world.sleeps, std::vector<unsigned>(10, kPause));
}

TEST_F(ServiceProcessesTest, TableThatCannotBeReadEndsTheCheck) {
  world.processTables = {fake::RunningServices()};
  world.processTableFails = true;
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_THAT(world.Calls(), ElementsAre("sleep 5", "list processes"));
}

TEST_F(ServiceProcessesTest, EmptyTableEndsTheCheck) {
  world.processTables = {{{1, "launchd", "/sbin/launchd"}}, {}, fake::RunningServices()};
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_THAT(world.Calls(), ElementsAre("sleep 5", "list processes", "sleep 5", "list processes"));
}

TEST_F(ServiceProcessesTest, ShortNameStandsInForAnUnreadablePath) {
  world.processTables = {{{1, "KXCoreIssues", std::nullopt},
                          {2, "KXLDaemon", "/x/KXLDaemon"},
                          {3, "KXUpdDaemon", std::nullopt}}};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  world.processTables = {{{1, "PrivHelperTool", std::nullopt},
                          {2, "CoreIssues", std::nullopt},
                          {3, "UpdDaemon", std::nullopt},
                          {4, "Daemon", std::nullopt},
                          {5, "upgrade", std::nullopt}}};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

TEST_F(ServiceProcessesTest, ReadablePathCountsAloneWhateverTheShortName) {
  world.processTables = {{{1, "KXCoreIssues", "/bin/sh"},
                          {2, "KXLDaemon", "/x/KXLDaemon"},
                          {3, "KXUpdDaemon", "/x/KXUpdDaemon"}}};
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  world.looks = 0;
  world.processTables = {
      {{1, "sh", "/x/KXCoreIssues"}, {2, "python3", "/x/KXLDaemon"}, {3, "", "KXUpdDaemon"}}};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

TEST_F(ServiceProcessesTest, ProcessThatVanishedIsPassedOver) {
  std::vector<Process> processes = fake::RunningServices();
  processes.push_back({999, "", std::nullopt});
  world.processTables = {processes};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

TEST_F(ServiceProcessesTest, ShortNamesAreReadOnlyWherePathsCannotBe) {
  std::vector<Process> processes = fake::RunningServices();
  processes.push_back({999, "kernel_task", std::nullopt});
  world.processTables = {processes};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_THAT(world.shortNameReads, ElementsAre(Pair(Pair(1U, 999), 1)));
}

TEST_F(ServiceProcessesTest, PathsAreReadAtMostOncePerLook) {
  std::vector<Process> processes = fake::RunningServices();
  processes.pop_back();
  for (int number = 0; number < 100; ++number) {
    processes.push_back(ServiceProcess(1000 + number, "Other"));
    processes.push_back({2000 + number, "other", std::nullopt});
  }
  world.processTables = {processes};
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.looks, 10U);
  EXPECT_THAT(world.executableReads, Each(Pair(testing::_, 1)));
  EXPECT_THAT(world.shortNameReads, Each(Pair(testing::_, 1)));
}

TEST_F(ServiceProcessesTest, ManyProcesses) {
  std::vector<Process> processes;
  for (int number = 1000; number < 6000; ++number) {
    processes.push_back({number, "other", "/usr/bin/other" + std::to_string(number)});
  }
  const std::vector<Process> services = fake::RunningServices();
  processes.insert(processes.end(), services.begin(), services.end());
  world.processTables = {processes};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

}  // namespace
}  // namespace install
