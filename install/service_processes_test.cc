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

TEST(IsGroupRunningTest, OneGroupMustHaveItsNumberOfProcesses) {
  const std::vector<std::vector<std::string>> running = {
      {"x", "KXUpdDaemon", "y", "KXLDaemon", "KXCoreIssues", "z"},
      {"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"},
      // Parts of the other group.
      {"KXCoreIssues", "KXLDaemon", "KXUpdDaemon", "Daemon", "upgrade"},
      {"KXCoreIssues", "PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"},
      // Processes count, not names.
      {"Daemon", "Daemon", "PrivHelperTool", "CoreIssues", "UpdDaemon"},
      {"KXLDaemon", "KXLDaemon", "KXLDaemon"},
      // One too many of the other group.
      {"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade", "upgrade", "KXCoreIssues",
       "KXLDaemon", "KXUpdDaemon"}};
  for (const auto& names : running) {
    EXPECT_TRUE(IsGroupRunning(MakeServiceTable(), names)) << testing::PrintToString(names);
  }
  const std::vector<std::vector<std::string>> notRunning = {
      {},
      {"KXCoreIssues", "KXLDaemon"},
      {"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon"},
      {"KXCoreIssues", "KXLDaemon", "PrivHelperTool", "CoreIssues", "Daemon"},
      {"KXCoreIssues", "KXLDaemon", "KXUpdDaemon", "KXLDaemon"},
      {"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade", "upgrade"},
      {"kxcoreissues", "KXLDaemon", "KXUpdDaemon"},
      {"KXCoreIssues ", "KXLDaemon", "KXUpdDaemon"},
      {"KXCoreIssue", "KXLDaemon", "KXUpdDaemon"},
      {"KXCoreIssuesX", "KXLDaemon", "KXUpdDaemon"},
      {"", "KXLDaemon", "KXUpdDaemon"}};
  for (const auto& names : notRunning) {
    EXPECT_FALSE(IsGroupRunning(MakeServiceTable(), names)) << testing::PrintToString(names);
  }
}

class ServiceProcessesTest : public fake::ToolFixture {};

TEST_F(ServiceProcessesTest, NameOfAProcess) {
  world.processTables = {{{1, "a", "/usr/bin/tool"},
                          {2, "b", "tool"},
                          {3, "c", "/Applications/My Tool.app/Contents/MacOS/My Tool"},
                          {4, "d", "/"},
                          {5, "e", "dir/"},
                          {6, "f", std::nullopt}}};
  std::string name;
  const std::vector<std::string> names = {"tool", "tool", "My Tool", "", ""};
  for (std::size_t index = 0; index < names.size(); ++index) {
    name = "before";
    EXPECT_TRUE(Tool().GetProcessName(name, static_cast<int>(index) + 1));
    EXPECT_EQ(name, names[index]);
  }
  for (const int processId : {6, 99}) {
    name = "before";
    EXPECT_FALSE(Tool().GetProcessName(name, processId));
    EXPECT_EQ(name, "before");
  }
}

TEST_F(ServiceProcessesTest, EachPollFollowsAPause) {
  world.processTables.assign(6, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.polls, 7U);
  std::vector<std::string> calls;
  for (int poll = 0; poll < 7; ++poll) calls.insert(calls.end(), {"sleep 5", "list processes"});
  EXPECT_THAT(world.Calls(), testing::ElementsAreArray(calls));
}

TEST_F(ServiceProcessesTest, PollsTenTimes) {
  world.processTables.assign(9, {{1, "launchd", "/sbin/launchd"}});
  world.processTables.push_back(fake::RunningServices());
  EXPECT_TRUE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.polls, 10U);

  world.polls = 0;
  world.sleeps.clear();
  world.processTables.insert(world.processTables.begin(), {{1, "launchd", "/sbin/launchd"}});
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.polls, 10U);
  EXPECT_EQ(world.sleeps, std::vector<unsigned>(10, 5));
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
}

TEST_F(ServiceProcessesTest, ShortNameIsIgnoredIfThePathCanBeRead) {
  world.processTables = {{{1, "KXCoreIssues", "/bin/sh"},
                          {2, "KXLDaemon", "/x/KXLDaemon"},
                          {3, "KXUpdDaemon", "/x/KXUpdDaemon"}}};
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  world.polls = 0;
  world.processTables = {
      {{1, "sh", "/x/KXCoreIssues"}, {2, "python3", "/x/KXLDaemon"}, {3, "", "KXUpdDaemon"}}};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

TEST_F(ServiceProcessesTest, ProcessThatHasEndedIsSkipped) {
  std::vector<Process> processes = fake::RunningServices();
  processes.push_back({999, "", std::nullopt});
  world.processTables = {processes};
  EXPECT_TRUE(Tool().CheckRunningProcesses());
}

TEST_F(ServiceProcessesTest, PathsAreReadAtMostOncePerPoll) {
  std::vector<Process> processes = fake::RunningServices();
  processes.pop_back();
  for (int number = 0; number < 100; ++number) {
    processes.push_back(ServiceProcess(1000 + number, "Other"));
    processes.push_back({2000 + number, "other", std::nullopt});
  }
  world.processTables = {processes};
  EXPECT_FALSE(Tool().CheckRunningProcesses());
  EXPECT_EQ(world.polls, 10U);
  EXPECT_THAT(world.executableReads, Each(Pair(testing::_, 1)));
  EXPECT_THAT(world.shortNameReads, Each(Pair(Pair(testing::_, testing::Ge(2000)), 1)));
}

}  // namespace
}  // namespace install
