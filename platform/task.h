#ifndef PLATFORM_TASK_H_
#define PLATFORM_TASK_H_

#include <string>
#include <vector>

namespace platform {

/// A program to run as a child process. It gets the descriptors 0 to 2 and no other. On Linux it
/// inherits the tool's ignored and blocked signals, except that SIGPIPE and SIGCHLD have their
/// default handling, and its exit status is collected even if the tool was started with SIGCHLD
/// ignored. On macOS NSTask's own rules apply.
struct Task {
  std::string launchPath;              ///< path of the executable; no search, no shell
  std::vector<std::string> arguments;  ///< after the program name
  /// Existing file that receives standard output; empty for a pipe. Standard input and error are
  /// always pipes. Nothing writes to these pipes or reads from them, and they stay open until the
  /// child has ended. So a child that writes more than a pipe can hold blocks forever.
  std::string standardOutputPath;
};

/// Runs `task` and waits until it has ended; there is no time limit.
/// @return its exit status; the signal's number when a signal ended it; the `errno` of the failure
///     when it could not be started.
int RunTask(const Task& task);

}  // namespace platform

#endif  // PLATFORM_TASK_H_
