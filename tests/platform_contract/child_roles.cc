// What the test program does as its own child. A role reports through its exit status or into the
// file that its first argument names.

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/standard_streams.h"
#include "platform/thread.h"
#include "tests/platform_contract/support.h"

namespace contract {
namespace {

constexpr const char* kRoleOption = "--play-role";
constexpr int kHighestLook = 4096;

using Arguments = std::vector<std::string>;

int Exit(const Arguments& arguments) { return std::stoi(arguments.at(0)); }

int DieBySignal(const Arguments& arguments) {
  raise(std::stoi(arguments.at(0)));
  return 0;
}

/// Writes the numbers of the open descriptors, each after a blank.
int ListDescriptors(const Arguments& arguments) {
  std::string open;
  for (int number = 0; number < kHighestLook; ++number) {
    if (fcntl(number, F_GETFD) >= 0) open += ' ' + std::to_string(number);
  }
  std::ofstream(arguments.at(0)) << open;
  return 0;
}

/// Writes what kind of file each standard descriptor is: p for a pipe, f for a regular file.
int ListKinds(const Arguments& arguments) {
  std::string kinds;
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    struct stat status = {};
    fstat(number, &status);
    kinds += S_ISFIFO(status.st_mode) ? 'p' : S_ISREG(status.st_mode) ? 'f' : '?';
  }
  std::ofstream(arguments.at(0)) << kinds;
  return 0;
}

/// Writes the arguments after the first, each on a line.
int ListArguments(const Arguments& arguments) {
  std::ofstream file(arguments.at(0));
  for (std::size_t index = 1; index < arguments.size(); ++index) file << arguments[index] << '\n';
  return 0;
}

/// Writes the numbers of the signals that are blocked or ignored. Handlers do not survive the start
/// of a program.
int ListSignals(const Arguments& arguments) {
  std::string odd;
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number <= kHighestSignal; ++number) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler == SIG_IGN || sigismember(&blocked, number) == 1) {
      odd += ' ' + std::to_string(number);
    }
  }
  std::ofstream(arguments.at(0)) << odd;
  return 0;
}

/// Writes the value of an environment variable.
int TellVariable(const Arguments& arguments) {
  const char* const value = std::getenv(arguments.at(1).c_str());
  std::ofstream(arguments.at(0)) << (value == nullptr ? "(none)" : value);
  return 0;
}

/// Writes a string to standard output and to standard error.
int Speak(const Arguments& arguments) {
  const std::string& text = arguments.at(0);
  const auto size = static_cast<ssize_t>(text.size());
  return write(STDOUT_FILENO, text.data(), text.size()) == size &&
                 write(STDERR_FILENO, text.data(), text.size()) == size
             ? 0
             : errno;
}

/// Exits with 0 when, after half a second, standard input has no data and has not ended.
int WatchInput(const Arguments&) {
  constexpr int kMilliseconds = 500;
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, kMilliseconds);
}

/// Creates the file and keeps running until it is gone again.
int LiveWhile(const Arguments& arguments) {
  std::ofstream(arguments.at(0)).close();
  Eventually([&] { return NothingAt(arguments.at(0)); });
  return 0;
}

int SleepSeconds(const Arguments& arguments) {
  platform::Sleep(static_cast<unsigned>(std::stoul(arguments.at(0))));
  return 0;
}

/// Exits with the number of standard descriptors that are not open afterwards.
int EnsureDescriptors(const Arguments& arguments) {
  platform::EnsureStandardDescriptors();
  int missing = 0;
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) < 0) ++missing;
  }
  // The next file must not become a standard stream.
  std::ofstream file(arguments.at(0));
  return file ? missing : 100;
}

/// Writes as many bytes to standard output as requested, and then exits with 5.
int WriteOutput(const Arguments& arguments) {
  platform::WriteStandardOutput(std::string(std::stoul(arguments.at(0)), 'x'));
  return 5;
}

/// Exits with the error number of starting a thread, or 0.
int StartThread(const Arguments&) {
  platform::Thread thread;
  const int error = thread.Start([](void*) -> void* { return nullptr; }, nullptr);
  if (error != 0) return thread.IsJoinable() ? 101 : error;
  return thread.Join();
}

struct Role {
  const char* name;
  int (*play)(const Arguments& arguments);
};

constexpr Role kRoles[] = {
    {"exit", Exit},
    {"die-by-signal", DieBySignal},
    {"list-descriptors", ListDescriptors},
    {"list-kinds", ListKinds},
    {"list-arguments", ListArguments},
    {"list-signals", ListSignals},
    {"tell-variable", TellVariable},
    {"speak", Speak},
    {"watch-input", WatchInput},
    {"live-while", LiveWhile},
    {"sleep", SleepSeconds},
    {"ensure-descriptors", EnsureDescriptors},
    {"write-output", WriteOutput},
    {"start-thread", StartThread},
};

}  // namespace

std::vector<std::string> RoleArguments(const std::string& role,
                                       const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {kRoleOption, role};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

int PlayRole(int argc, char** argv) {
  if (argc < 3 || std::strcmp(argv[1], kRoleOption) != 0) return -1;
  for (const Role& role : kRoles) {
    if (std::strcmp(role.name, argv[2]) == 0) return role.play(Arguments(argv + 3, argv + argc));
  }
  return 126;
}

}  // namespace contract
