#ifndef TESTS_PLATFORM_CONTRACT_SUPPORT_H_
#define TESTS_PLATFORM_CONTRACT_SUPPORT_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// Set for tests of what only the Linux adapters promise.
#if defined(__linux__) && !defined(KX_GNUSTEP)
#define KX_LINUX_ADAPTERS
#endif

/// Helpers of the contract tests. They use only POSIX, so that the adapters never test themselves.
namespace contract {

/// Mode of a read-only directory.
inline constexpr mode_t kReadOnly = S_IRUSR | S_IXUSR | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;

/// The classic signals end here; real-time ones follow.
inline constexpr int kHighestSignal = 31;

/// An empty directory, removed with everything in it. Its name has a blank, quotes and UTF-8.
class TemporaryTree {
 public:
  TemporaryTree();
  ~TemporaryTree();
  TemporaryTree(const TemporaryTree&) = delete;
  TemporaryTree& operator=(const TemporaryTree&) = delete;

  const std::string& Root() const { return root_; }
  std::string Path(const std::string& relativePath) const { return root_ + "/" + relativePath; }

  /// Each makes something below the root and returns its path.
  std::string MakeDirectory(const std::string& relativePath) const;
  std::string MakeFile(const std::string& relativePath, const std::string& contents = "") const;
  std::string MakeLink(const std::string& relativePath, const std::string& target) const;
  std::string MakePipe(const std::string& relativePath) const;

 private:
  std::string root_;
};

std::string ReadAll(const std::string& path);
bool NothingAt(const std::string& path);
void SetMode(const std::string& path, mode_t mode);
void SetModificationTime(const std::string& path, long seconds, long nanoseconds);

/// Makes `path` the working directory until the object is destroyed.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path);
  ~WorkingDirectory();
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  int previous_;
};

/// Sets an environment variable until the object is destroyed, or unsets it if `value` is null.
class Environment {
 public:
  Environment(const char* name, const char* value);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::string name_;
  std::string previous_;
  bool wasSet_;
};

/// Turns root into an ordinary user until the object is destroyed. Has no effect on ordinary users.
class OrdinaryUser {
 public:
  OrdinaryUser();
  ~OrdinaryUser();
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

  /// False for root on a host where root cannot become an ordinary user and return.
  bool IsOne() const { return isOne_; }

 private:
  bool isOne_;
  [[maybe_unused]] bool changed_ = false;  ///< whether root became an ordinary user
};

/// Absolute path of the test program.
const std::string& OwnProgram();

/// The arguments with which the test program plays `role` (see child_roles.cc).
std::vector<std::string> RoleArguments(const std::string& role,
                                       const std::vector<std::string>& arguments = {});

/// Runs the test program in `role` without the adapters and waits for it.
/// @param prepare runs in the child, before the program is replaced.
/// @return its wait status.
int RunRole(
    const std::string& role, const std::vector<std::string>& arguments = {},
    const std::function<void()>& prepare = [] {});

/// Starts the test program in `role`. @return its process id.
pid_t StartRole(
    const std::string& program, const std::string& role,
    const std::vector<std::string>& arguments = {}, const std::function<void()>& prepare = [] {});

/// Waits for a child. @return its wait status.
int Await(pid_t child);

/// Waits until `condition` holds, 20 seconds at most. @return whether it does.
bool Eventually(const std::function<bool()>& condition);

/// Plays the role that the command line asks for.
/// @return the exit status; -1 when the command line asks for none.
int PlayRole(int argc, char** argv);

/// Stores the path of the test program. Call first.
void SetOwnProgram(const char* name);

}  // namespace contract

#endif  // TESTS_PLATFORM_CONTRACT_SUPPORT_H_
