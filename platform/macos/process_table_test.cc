// Answers of the kernel that the stand-in for it does not give.

#include "platform/process_table.h"

#include <gtest/gtest.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int kArgumentAreaSize = 4096;

/// The kernel's answers.
struct Kernel {
  std::vector<kinfo_proc> table;
  std::map<int, std::string> argumentAreas;
  std::set<const void*> areaBuffers;  ///< where argument areas were wanted
  bool refusesSize = false;
  bool refusesTable = false;
};

Kernel kernel;

kinfo_proc Process(int processId, const char* shortName) {
  kinfo_proc process{};
  process.kp_proc.p_pid = processId;
  std::strncpy(process.kp_proc.p_comm, shortName, sizeof(process.kp_proc.p_comm) - 1);
  return process;
}

/// The argument area of a process: a count, the path and what follows it.
std::string Area(const std::string& path) {
  const int count = 1;
  std::string area(reinterpret_cast<const char*>(&count), sizeof(count));
  return area + path + std::string(3, '\0') + "argument" + '\0' + "PATH=/bin" + '\0';
}

int Answer(const void* bytes, std::size_t available, void* buffer, std::size_t* size) {
  if (*size < available) {
    errno = ENOMEM;
    return -1;
  }
  if (available > 0) std::memcpy(buffer, bytes, available);
  *size = available;
  return 0;
}

int Refuse() {
  errno = EPERM;
  return -1;
}

int AnswerTable(void* buffer, std::size_t* size) {
  const std::size_t available = kernel.table.size() * sizeof(kinfo_proc);
  if (buffer == nullptr) {
    *size = available;
    return kernel.refusesSize ? Refuse() : 0;
  }
  return kernel.refusesTable ? Refuse() : Answer(kernel.table.data(), available, buffer, size);
}

}  // namespace

// In the place of the kernel's.
extern "C" int sysctl(int* name, unsigned length, void* buffer, std::size_t* size, void*,
                      std::size_t) {
  const std::vector<int> words(name, name + length);
  if (words == std::vector<int>{1, 14, 0, 0}) return AnswerTable(buffer, size);
  if (words == std::vector<int>{1, 8}) {
    return Answer(&kArgumentAreaSize, sizeof(kArgumentAreaSize), buffer, size);
  }
  if (words.size() == 3 && words[0] == 1 && words[1] == 49) {
    kernel.areaBuffers.insert(buffer);
    const auto area = kernel.argumentAreas.find(words[2]);
    if (area == kernel.argumentAreas.end() || *size != kArgumentAreaSize) return Refuse();
    return Answer(area->second.data(), area->second.size(), buffer, size);
  }
  ADD_FAILURE() << "an unknown name of " << length << " words";
  return Refuse();
}

namespace platform {
namespace {

class KernelProcessTableTest : public testing::Test {
 protected:
  KernelProcessTableTest() { kernel = Kernel(); }
};

TEST_F(KernelProcessTableTest, AnEmptyTableIsOne) {
  std::vector<ProcessRecord> records = {ProcessRecord(5, "old")};
  EXPECT_TRUE(ListProcesses(records));
  EXPECT_TRUE(records.empty());
}

TEST_F(KernelProcessTableTest, FailsWhenTheKernelRefuses) {
  kernel.table = {Process(1, "launchd")};
  std::vector<ProcessRecord> records;
  kernel.refusesSize = true;
  EXPECT_FALSE(ListProcesses(records));
  kernel.refusesSize = false;
  kernel.refusesTable = true;
  EXPECT_FALSE(ListProcesses(records));
}

TEST_F(KernelProcessTableTest, AllLooksShareOneArea) {
  kernel.argumentAreas = {{7, Area("/a")}, {8, Area("/b")}};
  std::string path;
  for (const int process : {7, 9, 8}) ExecutablePath(process, path);
  EXPECT_EQ(kernel.areaBuffers.size(), 1u);
}

TEST_F(KernelProcessTableTest, StaysInsideTheArea) {
  kernel.argumentAreas = {{1, Area(std::string(100, 'p')).substr(0, 50)}};
  std::string path;
  ASSERT_TRUE(ExecutablePath(1, path));
  EXPECT_EQ(path, std::string(46, 'p'));
}

TEST_F(KernelProcessTableTest, AnAreaWithoutAPathGivesAnEmptyOne) {
  kernel.argumentAreas = {{2, Area("").substr(0, 4)}, {3, ""}, {4, Area("")}};
  for (const int process : {2, 3, 4}) {
    std::string path = "old";
    EXPECT_TRUE(ExecutablePath(process, path)) << process;
    EXPECT_EQ(path, "") << process;
  }
}

}  // namespace
}  // namespace platform
