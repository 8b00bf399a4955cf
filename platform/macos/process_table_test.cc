// Kernel answers that the GNUstep stand-in does not give.

#include "platform/process_table.h"

#include <gtest/gtest.h>
#include <sys/sysctl.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

/// The number of the call (from 1) that fails; 0 for none.
int failingCall = 0;
/// The argument area of every process.
std::string argumentArea;

std::string BytesOf(int number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

/// What the kernel answers for a name of `length` integers.
std::string Answer(unsigned length) {
  if (length == 2) return BytesOf(4096);  // the size of the largest argument area
  if (length == 3) return argumentArea;
  return std::string(sizeof(kinfo_proc), '\0');  // a table of one process
}

}  // namespace

// Replaces the kernel's.
extern "C" int sysctl(int*, unsigned length, void* buffer, std::size_t* size, void*, std::size_t) {
  if (failingCall > 0 && --failingCall == 0) {
    errno = EPERM;
    return -1;
  }
  const std::string answer = Answer(length);
  if (buffer != nullptr) {
    EXPECT_LE(answer.size(), *size);
    std::memcpy(buffer, answer.data(), answer.size());
  }
  *size = answer.size();
  return 0;
}

namespace platform {
namespace {

TEST(KernelProcessTableTest, FailsWhenTheKernelRefuses) {
  for (const int call : {1, 2}) {
    failingCall = call;
    std::vector<ProcessRecord> records;
    EXPECT_FALSE(ListProcesses(records)) << call;
  }
}

TEST(KernelProcessTableTest, ReadsThePathInsideTheArea) {
  const std::string count = BytesOf(1);
  const std::vector<std::pair<std::string, std::string>> rows = {
      {count + "/a" + std::string(3, '\0') + "argument", "/a"},
      {count + "cut", "cut"},
      {count + std::string(3, '\0'), ""},
      {count, ""},
      {"", ""}};
  for (const auto& [area, expected] : rows) {
    argumentArea = area;
    std::string path = "old";
    EXPECT_TRUE(ExecutablePath(1, path));
    EXPECT_EQ(path, expected);
  }
}

}  // namespace
}  // namespace platform
