#ifndef PLATFORM_MACOS_LAUNCH_H_
#define PLATFORM_MACOS_LAUNCH_H_

#include <string>

namespace platform {

/// Checks whether the program at `path` can be started, because a task raises when it cannot.
/// @return 0, or the errno that starting it would give.
int CheckLaunchPath(const std::string& path);

/// @return the errno for which the file at `path` cannot be opened for writing, never 0.
int OutputError(const std::string& path);

/// @return the errno with which NSTask could not start a program, from the reason of its exception
///     ("Couldn't posix_spawn: error 8"); ENOEXEC when the reason names none.
int LaunchError(const std::string& reason);

}  // namespace platform

#endif  // PLATFORM_MACOS_LAUNCH_H_
