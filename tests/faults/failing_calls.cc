// The linker's --wrap redirects calls to NAME to __wrap_NAME, and calls to __real_NAME to NAME.

#include "tests/faults/failing_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

namespace failing_calls {
namespace {

struct State {
  const std::string* name = nullptr;  ///< of the call that is to fail; null for none
  std::size_t countdown = 0;          ///< up to and including the one that fails
  Fault fault = Fault::kError;
  bool hasFailed = false;
};
thread_local State state;

/// One of the calls that can fail.
struct Call {
  explicit Call(const char* callName);

  bool isMade;  ///< false in the earliest calls, which sanitizers make; they never fail
  std::string name;
  std::atomic<std::size_t> count = 0;
};

std::vector<Call*>& Calls() {
  static auto& calls = *new std::vector<Call*>;
  return calls;
}

Call::Call(const char* callName) : isMade(true), name(callName) { Calls().push_back(this); }

/// Whether this call is the one that the fault is for. If so, sets `errno`.
bool MeetsFault(Call& call) {
  if (!call.isMade) return false;
  ++call.count;
  if (state.name == nullptr || *state.name != call.name || --state.countdown > 0) return false;
  state.name = nullptr;
  state.hasFailed = true;
  errno = state.fault == Fault::kInterrupted ? EINTR : EIO;
  return true;
}

}  // namespace

std::vector<std::string> Names() {
  std::vector<std::string> names;
  for (const Call* call : Calls()) names.push_back(call->name);
  return names;
}

std::size_t Count(const std::string& name) {
  const auto call = std::find_if(Calls().begin(), Calls().end(),
                                 [&](const Call* each) { return each->name == name; });
  return call == Calls().end() ? 0 : (*call)->count.load();
}

void Arm(const std::string& name, std::size_t number, Fault fault) {
  state = {&name, number, fault, false};
}

bool Disarm() { return std::exchange(state, {}).hasFailed; }

}  // namespace failing_calls

// A call that gives `failure` when it fails.
#define KX_CALL(name, Result, failure, parameters, arguments)                         \
  extern "C" Result __real_##name parameters;                                         \
  extern "C" Result __wrap_##name parameters;                                         \
  static failing_calls::Call name##Call(#name);                                       \
  Result __wrap_##name parameters {                                                   \
    return failing_calls::MeetsFault(name##Call) ? failure : __real_##name arguments; \
  }

// A call that reads or writes.
#define KX_TRANSFER(name, parameters, cut, whole)                                             \
  extern "C" ssize_t __real_##name parameters;                                                \
  extern "C" ssize_t __wrap_##name parameters;                                                \
  static failing_calls::Call name##Call(#name);                                               \
  ssize_t __wrap_##name parameters {                                                          \
    if (!failing_calls::MeetsFault(name##Call)) return __real_##name whole;                   \
    return failing_calls::state.fault == failing_calls::Fault::kCut ? __real_##name cut : -1; \
  }

KX_CALL(access, int, -1, (const char* path, int mode), (path, mode))
KX_CALL(eaccess, int, -1, (const char* path, int mode), (path, mode))
KX_CALL(fchmod, int, -1, (int file, mode_t mode), (file, mode))
KX_CALL(fcntl, int, -1, (int file, int command, long argument), (file, command, argument))
KX_CALL(fdopendir, DIR*, nullptr, (int file), (file))
KX_CALL(fstat, int, -1, (int file, struct stat* status), (file, status))
KX_CALL(fstatat, int, -1, (int directory, const char* path, struct stat* status, int flags),
        (directory, path, status, flags))
KX_CALL(fts_open, FTS*, nullptr,
        (char* const* paths, int options, int (*compare)(const FTSENT**, const FTSENT**)),
        (paths, options, compare))
// fts_close() assumes that the first entry exists. fts_read() creates it even if it fails.
KX_CALL(fts_read, FTSENT*, (__real_fts_read(walk), nullptr), (FTS * walk), (walk))
KX_CALL(futimens, int, -1, (int file, const timespec* times), (file, times))
KX_CALL(lstat, int, -1, (const char* path, struct stat* status), (path, status))
KX_CALL(mkdirat, int, -1, (int directory, const char* path, mode_t mode), (directory, path, mode))
KX_CALL(open, int, -1, (const char* path, int flags, mode_t mode), (path, flags, mode))
KX_CALL(openat, int, -1, (int directory, const char* path, int flags, mode_t mode),
        (directory, path, flags, mode))
KX_CALL(opendir, DIR*, nullptr, (const char* path), (path))
KX_CALL(pipe2, int, -1, (int* ends, int flags), (ends, flags))
KX_CALL(poll, int, -1, (pollfd * files, nfds_t count, int timeout), (files, count, timeout))
KX_CALL(posix_spawn, int, EIO,
        (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions,
         const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment),
        (child, path, actions, attributes, arguments, environment))
KX_CALL(posix_spawn_file_actions_addclosefrom_np, int, EIO,
        (posix_spawn_file_actions_t * actions, int first), (actions, first))
KX_CALL(posix_spawn_file_actions_adddup2, int, EIO,
        (posix_spawn_file_actions_t * actions, int from, int to), (actions, from, to))
KX_CALL(readdir, dirent*, nullptr, (DIR * directory), (directory))
KX_CALL(readlink, ssize_t, -1, (const char* path, char* buffer, std::size_t size),
        (path, buffer, size))
KX_CALL(readlinkat, ssize_t, -1, (int directory, const char* path, char* buffer, std::size_t size),
        (directory, path, buffer, size))
KX_CALL(stat, int, -1, (const char* path, struct stat* status), (path, status))
KX_CALL(symlinkat, int, -1, (const char* target, int directory, const char* path),
        (target, directory, path))
KX_CALL(utimensat, int, -1, (int directory, const char* path, const timespec* times, int flags),
        (directory, path, times, flags))
KX_CALL(waitpid, pid_t, -1, (pid_t child, int* status, int options), (child, status, options))

KX_TRANSFER(pread, (int file, void* buffer, std::size_t size, off_t offset),
            (file, buffer, 1, offset), (file, buffer, size, offset))
KX_TRANSFER(read, (int file, void* buffer, std::size_t size), (file, buffer, 1),
            (file, buffer, size))
KX_TRANSFER(write, (int file, const void* buffer, std::size_t size), (file, buffer, 1),
            (file, buffer, size))
