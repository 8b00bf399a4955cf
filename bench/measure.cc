// kx_measure ROUNDS COMMAND... [-- COMMAND...]...: runs the commands in alternation and prints a
// line for each run: the command's number, its wall time in seconds, and its peak resident memory
// in kB. The output of the commands is discarded. The program is small because a child's peak
// memory starts from the size of its parent.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Words = std::vector<char*>;  ///< ends in a null pointer

std::vector<Words> SplitCommands(char** words) {
  std::vector<Words> commands(1);
  for (; *words != nullptr; ++words) {
    if (std::strcmp(*words, "--") == 0) {
      commands.emplace_back();
    } else {
      commands.back().push_back(*words);
    }
  }
  for (Words& command : commands) command.push_back(nullptr);
  return commands;
}

/// Runs one command, and prints its measures when `number` is not negative.
bool Run(const Words& command, const posix_spawn_file_actions_t& actions, int number) {
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (posix_spawn(&child, command.front(), &actions, nullptr, command.data(), environ) != 0) {
    std::fprintf(stderr, "kx_measure: cannot run %s\n", command.front());
    return false;
  }
  rusage usage{};
  int status = 0;
  wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (status != 0) {
    std::fprintf(stderr, "kx_measure: %s failed\n", command.front());
    return false;
  }
  if (number >= 0) {
    std::printf("%d %.9f %ld\n", number, elapsed.count(), usage.ru_maxrss);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc < 3 ? 0 : std::atoi(argv[1]);
  if (rounds < 1) {
    std::fprintf(stderr, "usage: %s ROUNDS COMMAND... [-- COMMAND...]...\n", argv[0]);
    return 2;
  }
  const std::vector<Words> commands = SplitCommands(argv + 2);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  const int count = static_cast<int>(commands.size());
  for (int round = 0; round <= rounds; ++round) {
    for (int step = 0; step < count; ++step) {
      const int number = round % 2 == 0 ? step : count - 1 - step;
      const bool isWarmUp = round == 0;
      if (!Run(commands[static_cast<std::size_t>(number)], actions, isWarmUp ? -1 : number)) {
        return 1;
      }
    }
  }
  posix_spawn_file_actions_destroy(&actions);
  return 0;
}
