#include "platform/task.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::ReadAll;
using contract::TemporaryTree;

Task RoleTask(const std::string& role, const std::vector<std::string>& arguments = {}) {
  Task task;
  task.launchPath = contract::OwnProgram();
  task.arguments = contract::RoleArguments(role, arguments);
  return task;
}

/// Runs `role`, which reports into a file. @return the report.
std::string Report(const std::string& role, std::vector<std::string> arguments = {}) {
  const TemporaryTree tree;
  arguments.insert(arguments.begin(), tree.Path("report"));
  EXPECT_EQ(RunTask(RoleTask(role, arguments)), 0);
  return ReadAll(tree.Path("report"));
}

class TaskExitStatusContract : public testing::TestWithParam<int> {};

TEST_P(TaskExitStatusContract, IsReturned) {
  EXPECT_EQ(RunTask(RoleTask("exit", {std::to_string(GetParam())})), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Values, TaskExitStatusContract, testing::Values(0, 1, 2, 35, 127, 255));

TEST(TaskContract, ASignalGivesItsNumber) {
  EXPECT_EQ(RunTask(RoleTask("die-by-signal", {std::to_string(SIGKILL)})), SIGKILL);
  EXPECT_EQ(RunTask(RoleTask("die-by-signal", {std::to_string(SIGTERM)})), SIGTERM);
}

TEST(TaskContract, AProgramThatCannotStartGivesItsErrno) {
  const TemporaryTree tree;
  Task task;
  task.launchPath = tree.Path("nothing");
  EXPECT_EQ(RunTask(task), ENOENT);
  task.launchPath = tree.MakeFile("not executable", "text");
  contract::SetMode(task.launchPath, S_IRUSR | S_IWUSR);
  EXPECT_EQ(RunTask(task), EACCES);
  task.launchPath = tree.MakeDirectory("directory");
  EXPECT_EQ(RunTask(task), EACCES);
  task.launchPath = task.launchPath + "/no/way";
  EXPECT_EQ(RunTask(task), ENOENT);
  task.launchPath = "";
  EXPECT_EQ(RunTask(task), ENOENT);
}

TEST(TaskContract, AFileThatIsNotAProgramGivesItsErrno) {
  const TemporaryTree tree;
  Task task;
  task.launchPath = tree.MakeFile("garbage", "\x01\x02 no program");
  contract::SetMode(task.launchPath, S_IRWXU);
  EXPECT_EQ(RunTask(task), ENOEXEC);
}

TEST(TaskContract, ArgumentsArriveAsTheyAre) {
  EXPECT_EQ(Report("list-arguments", {"plain", "two words", "it's \"quoted\"", "", "$HOME;*", "\\",
                                      "\xE2\x82\xAC", "-psn"}),
            "plain\ntwo words\nit's \"quoted\"\n\n$HOME;*\n\\\n\xE2\x82\xAC\n-psn\n");
}

TEST(TaskContract, TheEnvironmentIsInherited) {
  const contract::Environment variable("KX_CONTRACT", "a value");
  EXPECT_EQ(Report("tell-variable", {"KX_CONTRACT"}), "a value");
}

TEST(TaskContract, TheChildGetsOnlyTheStandardDescriptors) {
  EXPECT_EQ(Report("list-descriptors"), " 0 1 2");
}

TEST(TaskContract, DescriptorsThatTheCallerLeavesOpenAreNotInherited) {
  // On a Mac, a process gets 256 descriptors unless it asks for more.
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 1024);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<int> numbers;
  for (const int wanted : {3, 10, 100, 200}) {
    numbers.push_back(fcntl(STDIN_FILENO, F_DUPFD, wanted));
    ASSERT_GE(numbers.back(), wanted);
  }
  EXPECT_EQ(Report("list-descriptors"), " 0 1 2");
  for (const int number : numbers) close(number);
}

class TaskClosedDescriptorsContract : public testing::TestWithParam<int> {};

// Each combination of standard descriptors that the caller has closed, as a bit mask.
TEST_P(TaskClosedDescriptorsContract, TheChildHasAllThree) {
  const TemporaryTree tree;
  int saved[3];
  for (int number = 0; number <= 2; ++number) {
    saved[number] = fcntl(number, F_DUPFD_CLOEXEC, 20);
    if ((GetParam() >> number & 1) != 0) close(number);
  }
  const int kinds = RunTask(RoleTask("list-kinds", {tree.Path("kinds")}));
  Task task = RoleTask("list-descriptors", {tree.Path("descriptors")});
  task.standardOutputPath = tree.MakeFile("output");
  const int descriptors = RunTask(task);
  for (int number = 0; number <= 2; ++number) {
    dup2(saved[number], number);
    close(saved[number]);
  }
  EXPECT_EQ(kinds, 0);
  EXPECT_EQ(ReadAll(tree.Path("kinds")), "ppp");
  EXPECT_EQ(descriptors, 0);
  EXPECT_EQ(ReadAll(tree.Path("descriptors")), " 0 1 2");
}

INSTANTIATE_TEST_SUITE_P(All, TaskClosedDescriptorsContract, testing::Range(0, 8));

TEST(TaskContract, StandardStreamsArePipesByDefault) { EXPECT_EQ(Report("list-kinds"), "ppp"); }

TEST(TaskContract, StandardOutputGoesIntoAnExistingFile) {
  const TemporaryTree tree;
  Task task = RoleTask("speak", {"the answer"});
  task.standardOutputPath = tree.MakeFile("it's \"odd\" \xE2\x82\xAC output");
  EXPECT_EQ(RunTask(task), 0);
  EXPECT_EQ(ReadAll(task.standardOutputPath), "the answer");
  task.arguments = contract::RoleArguments("list-kinds", {tree.Path("kinds")});
  EXPECT_EQ(RunTask(task), 0);
  EXPECT_EQ(ReadAll(tree.Path("kinds")), "pfp");
}

TEST(TaskContract, DoesNotStartWithoutTheOutputFile) {
  const TemporaryTree tree;
  Task task = RoleTask("list-kinds", {tree.Path("kinds")});
  task.standardOutputPath = tree.Path("nothing");
  EXPECT_EQ(RunTask(task), ENOENT);
  EXPECT_TRUE(contract::NothingAt(tree.Path("kinds")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("nothing")));
}

TEST(TaskContract, PipesTakeAShortOutputAndStayOpen) {
  EXPECT_EQ(RunTask(RoleTask("speak", {std::string(4000, 'x')})), 0);
}

TEST(TaskContract, StandardInputHasNoEndWhileTheChildRuns_RealTime) {
  EXPECT_EQ(RunTask(RoleTask("watch-input")), 0);
}

/// Sets a signal's handling until the object is destroyed.
class SignalHandling {
 public:
  SignalHandling(int number, void (*handler)(int)) : number_(number) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(number_, &action, &previous_);
  }
  ~SignalHandling() { sigaction(number_, &previous_, nullptr); }
  SignalHandling(const SignalHandling&) = delete;
  SignalHandling& operator=(const SignalHandling&) = delete;

 private:
  int number_;
  struct sigaction previous_ = {};
};

#ifdef KX_LINUX_ADAPTERS
// NSTask has its own rules.
TEST(TaskContract, TheChildInheritsIgnoredAndBlockedSignalsButForPipesAndChildren) {
  const std::set<int> ignored = {SIGHUP, SIGQUIT, SIGPIPE, SIGCHLD};
  std::deque<SignalHandling> handlings;  // of all signals, whatever the test was started with
  for (int number = 1; number <= contract::kHighestSignal; ++number) {
    handlings.emplace_back(number, ignored.count(number) != 0 ? SIG_IGN : SIG_DFL);
  }
  sigset_t blocked;
  sigset_t previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  pthread_sigmask(SIG_SETMASK, &blocked, &previous);
  const std::string report = Report("list-signals");
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  EXPECT_EQ(report, " 1 3 10") << "not SIGHUP, SIGQUIT and SIGUSR1";
}

TEST(TaskContract, TheStatusArrivesWhenSigchldIsIgnored) {
  const SignalHandling ignored(SIGCHLD, SIG_IGN);
  EXPECT_EQ(RunTask(RoleTask("exit", {"7"})), 7);
  struct sigaction after;
  sigaction(SIGCHLD, nullptr, &after);
  EXPECT_EQ(after.sa_handler, SIG_IGN);
}
#endif

/// Leaves the process just `spare` descriptors until the object is destroyed.
class FewDescriptors {
 public:
  explicit FewDescriptors(int spare) {
    const int next = dup(STDIN_FILENO);
    close(next);
    getrlimit(RLIMIT_NOFILE, &previous_);
    const rlimit limit{static_cast<rlim_t>(next + spare), previous_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &previous_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit previous_;
};

TEST(TaskContract, DoesNotStartWithoutItsPipes) {
  const TemporaryTree tree;
  const Task task = RoleTask("list-kinds", {tree.Path("kinds")});
  ASSERT_EQ(RunTask(task), 0);  // opens what the host keeps open from the first task on
  unlink(tree.Path("kinds").c_str());
  for (int spare = 0; spare < 6; ++spare) {
    const FewDescriptors limit(spare);
    EXPECT_EQ(RunTask(task), EMFILE) << spare;
  }
  EXPECT_TRUE(contract::NothingAt(tree.Path("kinds")));
}

TEST(TaskContract, LeavesNoDescriptorOpen) {
  const int before = dup(STDIN_FILENO);
  close(before);
  RunTask(RoleTask("exit", {"0"}));
  Task missing;
  missing.launchPath = "/nothing";
  RunTask(missing);
  const int after = dup(STDIN_FILENO);
  close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace platform
