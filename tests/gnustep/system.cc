// Stands in for functions of libSystem: sysctl() and the relative wait. Configures the leak
// sanitizer.

#include <pthread.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/process_table.h"
#include "tests/gnustep/require.h"

namespace {

constexpr int kArgumentAreaSize = 1 << 20;
/// Room for processes that start between the call for the size and the call for the table.
constexpr std::size_t kSpareRecords = 64;
constexpr time_t kLongestWait = 30;
constexpr long kNanosecondsPerSecond = 1000000000;

int Answer(const void* bytes, std::size_t count, void* buffer, std::size_t* size) {
  if (*size < count) {
    errno = ENOMEM;
    return -1;
  }
  std::memcpy(buffer, bytes, count);
  *size = count;
  return 0;
}

int AnswerTable(void* buffer, std::size_t* size) {
  std::vector<linux_platform::ProcessRecord> records;
  if (!linux_platform::ListProcesses(records)) {
    errno = EPERM;
    return -1;
  }
  if (buffer == nullptr) {
    *size = (records.size() + kSpareRecords) * sizeof(kinfo_proc);
    return 0;
  }
  std::vector<kinfo_proc> table(records.size());
  for (std::size_t index = 0; index < table.size(); ++index) {
    auto& process = table[index].kp_proc;
    process.p_pid = records[index].ProcessId();
    const std::string name = records[index].ShortName();
    name.copy(process.p_comm, sizeof(process.p_comm) - 1);
  }
  return Answer(table.data(), table.size() * sizeof(kinfo_proc), buffer, size);
}

/// Gives the count of the arguments, the path, and an argument.
int AnswerArguments(int processId, void* buffer, std::size_t* size) {
  std::string path;
  if (!linux_platform::ExecutablePath(processId, path)) {
    errno = EINVAL;
    return -1;
  }
  const std::int32_t count = 1;
  std::string area(reinterpret_cast<const char*>(&count), sizeof(count));
  area += path + '\0' + "argument" + '\0';
  return Answer(area.data(), area.size(), buffer, size);
}

}  // namespace

extern "C" int sysctl(int* name, unsigned length, void* buffer, std::size_t* size, void* newValue,
                      std::size_t newSize) {
  gnustep::Require(size != nullptr && newValue == nullptr && newSize == 0,
                   "sysctl() must not set a value");
  const std::vector<int> words(name, name + length);
  if (words == std::vector<int>{1, 14, 0, 0}) return AnswerTable(buffer, size);
  if (words == std::vector<int>{1, 8}) {
    return Answer(&kArgumentAreaSize, sizeof(kArgumentAreaSize), buffer, size);
  }
  gnustep::Require(length == 3 && words[0] == 1 && words[1] == 49, "the sysctl name must exist");
  return AnswerArguments(words[2], buffer, size);
}

extern "C" int pthread_cond_timedwait_relative_np(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                  const timespec* limit) {
  gnustep::Require(limit->tv_nsec >= 0 && limit->tv_nsec < kNanosecondsPerSecond &&
                       limit->tv_sec >= 0 && limit->tv_sec <= kLongestWait,
                   "waits must be short, because their clock stops while the machine sleeps");
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += limit->tv_sec;
  deadline.tv_nsec += limit->tv_nsec;
  if (deadline.tv_nsec >= kNanosecondsPerSecond) {
    ++deadline.tv_sec;
    deadline.tv_nsec -= kNanosecondsPerSecond;
  }
  return pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &deadline);
}

// The runtime and Foundation never release some of what they allocate. They are recognised by their
// modules, so that no symbolizer has to be started at the end of each run.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc\nleak:libgnustep-base\n";
}
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
extern "C" const char* __asan_default_options() { return "symbolize=0"; }
