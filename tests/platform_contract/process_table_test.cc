#include "platform/process_table.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/files.h"
#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::TemporaryTree;

std::vector<ProcessRecord>::const_iterator Find(const std::vector<ProcessRecord>& records,
                                                pid_t process) {
  return std::find_if(records.begin(), records.end(),
                      [&](const ProcessRecord& record) { return record.ProcessId() == process; });
}

/// A copy of the test program, so that it can be renamed and deleted.
std::string CopyOfProgram(const TemporaryTree& tree, const std::string& name) {
  const std::string path = tree.MakeFile(name, contract::ReadAll(contract::OwnProgram()));
  contract::SetMode(path, S_IRWXU);
  return path;
}

TEST(ProcessTableContract, ListsThisProcessAndReplacesTheRecords) {
  std::vector<ProcessRecord> records = {ProcessRecord(-5, "none")};
  ASSERT_TRUE(ListProcesses(records));
  EXPECT_EQ(Find(records, -5), records.end());
  ASSERT_NE(Find(records, getpid()), records.end());
  EXPECT_EQ(
      std::count_if(records.begin(), records.end(),
                    [](const ProcessRecord& record) { return record.ProcessId() == getpid(); }),
      1);
}

TEST(ProcessTableContract, ShortNameBeginsTheProgramsName) {
  const std::string name = LastPathComponent(contract::OwnProgram());
  std::vector<ProcessRecord> records;
  ASSERT_TRUE(ListProcesses(records));
  const auto own = Find(records, getpid());
  ASSERT_NE(own, records.end());
  const std::string shortName = own->ShortName();
  EXPECT_GE(shortName.size(), std::min<std::size_t>(name.size(), 15));
  EXPECT_LE(shortName.size(), 16u);
  EXPECT_EQ(name.compare(0, shortName.size(), shortName), 0) << shortName;
}

TEST(ProcessTableContract, ExecutablePathIsThePathOfTheProgram) {
  std::string path = "old";
  ASSERT_TRUE(ExecutablePath(getpid(), path));
  EXPECT_EQ(path, contract::OwnProgram());
}

TEST(ProcessTableContract, ExecutablePathIsWholeWhateverTheNameHolds) {
  const TemporaryTree tree;
  const std::string flag = tree.Path("flag");
  for (const char* const name : {"KX Contract \"it's\" \xC3\xA4 a very long name", "(deleted)"}) {
    const std::string program = CopyOfProgram(tree, name);
    const pid_t child = contract::StartRole(program, "live-while", {flag});
    ASSERT_TRUE(contract::Eventually([&] { return FileExists(flag); }));
    std::string path;
    EXPECT_TRUE(ExecutablePath(child, path));
    EXPECT_EQ(path, program);
    unlink(flag.c_str());
    contract::Await(child);
  }
}

TEST(ProcessTableContract, ADeletedExecutableKeepsItsPath) {
  const TemporaryTree tree;
  const std::string flag = tree.Path("flag");
  const std::string program = CopyOfProgram(tree, "program");
  const pid_t child = contract::StartRole(program, "live-while", {flag});
  ASSERT_TRUE(contract::Eventually([&] { return FileExists(flag); }));
  unlink(program.c_str());
  std::string path;
  EXPECT_TRUE(ExecutablePath(child, path));
  EXPECT_EQ(path, program);
  unlink(flag.c_str());
  contract::Await(child);
}

TEST(ProcessTableContract, AZombieHasNoExecutablePath) {
  const pid_t child = contract::StartRole(contract::OwnProgram(), "exit", {"0"});
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  std::string path = "untouched";
  EXPECT_FALSE(ExecutablePath(child, path));
  EXPECT_EQ(path, "untouched");
  std::vector<ProcessRecord> records;
  ASSERT_TRUE(ListProcesses(records));
  EXPECT_NE(Find(records, child), records.end());
  contract::Await(child);
}

TEST(ProcessTableContract, AProcessThatHasEndedIsGone) {
  const pid_t child = contract::StartRole(contract::OwnProgram(), "exit", {"0"});
  contract::Await(child);
  std::string path = "untouched";
  EXPECT_FALSE(ExecutablePath(child, path));
  EXPECT_EQ(path, "untouched");
  std::vector<ProcessRecord> records;
  ASSERT_TRUE(ListProcesses(records));
  EXPECT_EQ(Find(records, child), records.end());
}

#ifdef KX_LINUX_ADAPTERS
TEST(ProcessTableContract, TheShortNameOfAProcessThatHasEndedIsEmpty) {
  const pid_t child = contract::StartRole(contract::OwnProgram(), "exit", {"0"});
  const ProcessRecord record(child, nullptr);
  contract::Await(child);
  EXPECT_EQ(record.ShortName(), "");
}

TEST(ProcessTableContract, AKernelThreadHasOnlyAShortName) {
  constexpr pid_t kKernelThreads = 2;
  if (ProcessRecord(kKernelThreads, nullptr).ShortName() != "kthreadd") {
    GTEST_SKIP() << "no kernel thread in this process table";
  }
  std::string path = "untouched";
  EXPECT_FALSE(ExecutablePath(kKernelThreads, path));
  EXPECT_EQ(path, "untouched");
}

TEST(ProcessTableContract, AnotherUsersProcessHasOnlyAShortName) {
  const pid_t process = getpid();
  const contract::OrdinaryUser user;
  if (!user.IsOne() || getuid() == 0) GTEST_SKIP() << "root only";
  if (kill(1, 0) == 0) GTEST_SKIP() << "process 1 is ours";
  std::string path = "untouched";
  EXPECT_FALSE(ExecutablePath(1, path));
  EXPECT_EQ(path, "untouched");
  EXPECT_NE(ProcessRecord(1, nullptr).ShortName(), "");
  EXPECT_NE(ProcessRecord(process, nullptr).ShortName(), "");
}
#else
TEST(ProcessTableContract, TheRecordKeepsItsShortName) {
  EXPECT_EQ(ProcessRecord(1, "launchd").ShortName(), "launchd");
  EXPECT_EQ(ProcessRecord(1, "a name of more than sixteen").ShortName(), "a name of more t");
}
#endif

}  // namespace
}  // namespace platform
