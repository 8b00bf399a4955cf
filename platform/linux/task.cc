#include "platform/task.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "platform/posix/descriptor.h"

namespace platform {
namespace {

constexpr int kFirstOtherDescriptor = STDERR_FILENO + 1;

/// The two ends of the child's three standard streams, by descriptor.
struct Streams {
  std::array<Descriptor, kFirstOtherDescriptor> childEnds;
  std::array<Descriptor, kFirstOtherDescriptor> parentEnds;
};

/// Moves `descriptor` above the standard ones. If the caller has closed one of those, a new
/// descriptor can get its number, and the child's standard streams would overwrite it.
Descriptor AboveStandard(Descriptor descriptor) {
  if (!descriptor.IsOpen() || descriptor.Get() >= kFirstOtherDescriptor) return descriptor;
  return Descriptor(fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, kFirstOtherDescriptor));
}

int OpenPipe(Descriptor& readEnd, Descriptor& writeEnd) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  // Both ends need an owner before either moves, or one could take the other's number.
  Descriptor first(ends[0]);
  Descriptor second(ends[1]);
  readEnd = AboveStandard(std::move(first));
  writeEnd = AboveStandard(std::move(second));
  return readEnd.IsOpen() && writeEnd.IsOpen() ? 0 : errno;
}

int OpenStreams(const Task& task, Streams& streams) {
  auto& child = streams.childEnds;
  auto& parent = streams.parentEnds;
  if (const int error = OpenPipe(child[STDIN_FILENO], parent[STDIN_FILENO]); error != 0) {
    return error;
  }
  if (const int error = OpenPipe(parent[STDERR_FILENO], child[STDERR_FILENO]); error != 0) {
    return error;
  }
  if (task.standardOutputPath.empty()) {
    return OpenPipe(parent[STDOUT_FILENO], child[STDOUT_FILENO]);
  }
  child[STDOUT_FILENO] =
      AboveStandard(Descriptor(open(task.standardOutputPath.c_str(), O_WRONLY | O_CLOEXEC)));
  return child[STDOUT_FILENO].IsOpen() ? 0 : errno;
}

/// The changes to the descriptors between fork and exec.
class FileActions {
 public:
  explicit FileActions(const Streams& streams) {
    error_ = posix_spawn_file_actions_init(&actions_);
    for (int number = 0; number < kFirstOtherDescriptor && error_ == 0; ++number) {
      const Descriptor& end = streams.childEnds[static_cast<std::size_t>(number)];
      error_ = posix_spawn_file_actions_adddup2(&actions_, end.Get(), number);
    }
    if (error_ == 0) {
      error_ = posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstOtherDescriptor);
    }
  }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  int Error() const { return error_; }
  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
  int error_;
};

/// Restores the default handling of SIGPIPE in the child. The child inherits everything else about
/// signals, so that an installation under nohup survives its terminal.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigdefault(&attributes_, &defaults);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

/// Restores the default handling of SIGCHLD for as long as it lives: where SIGCHLD is ignored, a
/// child's status is lost. The child inherits the default handling.
class DefaultChildSignal {
 public:
  DefaultChildSignal() {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &action, &previous_);
  }
  ~DefaultChildSignal() { sigaction(SIGCHLD, &previous_, nullptr); }
  DefaultChildSignal(const DefaultChildSignal&) = delete;
  DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;

 private:
  struct sigaction previous_;
};

int Spawn(const Task& task, const Streams& streams, pid_t& child) {
  std::vector<std::string> words = {task.launchPath};
  words.insert(words.end(), task.arguments.begin(), task.arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const FileActions actions(streams);
  if (actions.Error() != 0) return actions.Error();
  const SpawnAttributes attributes;
  return posix_spawn(&child, task.launchPath.c_str(), actions.Get(), attributes.Get(),
                     pointers.data(), environ);
}

int AwaitStatus(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int RunTask(const Task& task) {
  Streams streams;
  if (const int error = OpenStreams(task, streams); error != 0) return error;
  const DefaultChildSignal childSignal;
  pid_t child = 0;
  if (const int error = Spawn(task, streams, child); error != 0) return error;
  for (Descriptor& end : streams.childEnds) end.Reset();
  return AwaitStatus(child);
}

}  // namespace platform
