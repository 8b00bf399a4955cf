#ifndef TESTS_SUPPORT_FAKE_PLATFORM_H_
#define TESTS_SUPPORT_FAKE_PLATFORM_H_

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/code_signing.h"
#include "platform/files.h"
#include "platform/property_list.h"
#include "platform/task.h"

namespace fake {

/// The status of a signature check that FailsNow() makes fail.
constexpr platform::OsStatus kFailedCheck = 100005;

/// A file, directory or other entry of the fake file system.
struct Node {
  std::uint32_t mode = S_IFREG | 0644;
  std::string contents;
  platform::FileTime time = {1700000000, 0};
  bool isSymbolicLink = false;  ///< to a target that does not exist

  int statusError = 0;  ///< errno of reading its status (mode, time, existence as seen by access)
  int accessError = 0;  ///< errno of access()
  bool vanishesOnceAccessed = false;
  int openError = 0;            ///< errno of opening it
  int readError = 0;            ///< errno of reading it ...
  std::size_t readErrorAt = 0;  ///< ... from this byte on, or from this entry of a directory
  bool isDeletable = true;
  bool failsToCopy = false;
  bool failsToRemove = false;
  std::function<void()> afterwards;  ///< called when it has been copied or removed; may be empty
};

/// The signature of the code at a path.
struct Signature {
  platform::OsStatus createStatus = 0;
  platform::OsStatus validity = 0;
  platform::OsStatus informationStatus = 0;
  /// Common names of the chain, leaf first; an absent name is a certificate without one. An absent
  /// chain is a signature without certificates.
  std::optional<std::vector<std::optional<std::string>>> commonNames;
  std::optional<std::string> teamIdentifier;

  /// The signature that the tool accepts.
  static Signature Vendors();
};

struct Process {
  int processId = 0;
  std::string shortName;
  std::optional<std::string> executablePath;  ///< absent when it cannot be read
};

/// What happens when the tool runs a program.
struct Program {
  int status = 0;
  std::function<void(const platform::Task& task)> effect;  ///< may be empty
};

/// The fake of platform/, selected at link time: one scripted world per test, which records calls.
/// Threads are real, and so are the waits of all threads except the test's. Its waits run the
/// scripted `whenWaiting` steps; others end at once in virtual time.
class World {
 public:
  /// The world of the running test.
  static World& Current();

  /// Makes a new world: no files, no product, fixed clocks. The caller becomes the test's thread.
  static World& Reset();

  // Files.
  void AddFile(const std::string& path, const std::string& contents = "");
  void AddDirectory(const std::string& path);
  bool Exists(const std::string& path) const { return files.count(path) != 0; }

  std::map<std::string, Node> files;  ///< by path, as the tool names it
  /// The order in which directories yield their entries; by name unless set.
  std::map<std::string, std::vector<std::string>> directoryOrder;
  int directoryOpenError = 0;
  int openDirectories = 0;
  int openFiles = 0;
  std::vector<std::string> timeReads;  ///< paths whose modification time was read
  std::optional<std::string> temporaryDirectory = "/tmp/";
  int createError = 0;
  std::vector<std::string> appendedFiles;  ///< paths that were opened for appending

  // Lookups.
  std::map<std::string, std::string> mainBundleTexts = {{"RMMToolVersion", "1.0.0.206"}};
  std::map<std::string, std::string> applicationExecutables;
  std::map<std::string, Signature> signatures;
  int openPools = 0;
  std::map<std::string, platform::PropertyListValue> propertyLists;

  // Libraries: exported symbols by path. Other paths cannot be loaded.
  std::map<std::string, std::map<std::string, void*>> libraries;
  int openLibraries = 0;

  // Processes: one table per listing; the last one repeats.
  std::vector<std::vector<Process>> processTables = {{{1, "launchd", "/sbin/launchd"}}};
  std::size_t polls = 0;
  bool processTableFails = false;
  /// How often the path and the short name were read, by listing (from 1) and process.
  std::map<std::pair<std::size_t, int>, int> executableReads;
  std::map<std::pair<std::size_t, int>, int> shortNameReads;

  // Programs by launch path; others cannot be started (ENOENT).
  std::map<std::string, Program> programs;
  std::vector<platform::Task> tasks;  ///< run so far

  // Time. Sleeps and waits of the test's thread advance all three clocks.
  std::atomic<std::int64_t> wallMicroseconds = 1700000000LL * 1000000;
  /// The number of seconds by which the clock with whole seconds is ahead. The microsecond clock
  /// cannot represent the last years of the calendar.
  std::int64_t secondsAhead = 0;
  std::atomic<std::int64_t> monotonicNanoseconds = 1000;
  /// Makes the monotonic clock and the waits of the test's thread real; scripted steps do not run.
  bool waitsAreReal = false;
  std::vector<unsigned> sleeps;
  /// Run one by one, with the lock released, when the test's thread waits on the condition
  /// variable. An empty step or an empty queue lets a timed wait end at its deadline.
  std::deque<std::function<void()>> whenWaiting;
  /// Seconds of each wait of the test's thread that ended at its deadline.
  std::vector<double> expiredWaits;
  /// How often the test's thread waited without a deadline. Each wait needs a scripted step, or it
  /// would never end.
  int untimedWaits = 0;

  // Threads.
  int threadStartError = 0;
  int threadJoinError = 0;
  int runningThreads = 0;

  // Standard output.
  std::string standardOutput;

  std::uint64_t uuids = 0;  ///< made so far

  /// Called first by every function that can fail.
  /// @return whether this call must fail: only call number `failingCall`, counted from 1, fails.
  bool FailsNow(const char* call);
  std::size_t failingCall = 0;
  std::size_t fallibleCalls = 0;     ///< so far
  const char* failedCall = nullptr;  ///< once it has failed

  /// SDK calls, sleeps, tasks and library loads, in their order.
  void Record(std::string_view call);
  std::vector<std::string> Calls() const;

 private:
  mutable std::mutex callsLock_;
  std::vector<std::string> calls_;
};

/// The text of the `number`th UUID (from 1) of a world.
std::string UuidText(std::uint64_t number);

}  // namespace fake

#endif  // TESTS_SUPPORT_FAKE_PLATFORM_H_
