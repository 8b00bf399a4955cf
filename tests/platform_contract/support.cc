#include "tests/platform_contract/support.h"

#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace contract {
namespace {

[[maybe_unused]] constexpr uid_t kOrdinaryUser = 65534;
constexpr int kOpenDirectories = 64;

std::string& OwnProgramStorage() {
  static std::string program;
  return program;
}

void Check(bool success, const std::string& what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

int RemoveVisited(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

int Unlock(const char* path, const struct stat*, int type, struct FTW*) {
  return type == FTW_D || type == FTW_DNR ? chmod(path, S_IRWXU) : 0;
}

}  // namespace

TemporaryTree::TemporaryTree() {
  const char* const place = std::getenv("TEST_TMPDIR");
  std::string name =
      std::string(place == nullptr ? "/tmp" : place) + "/kx contract \"it's\" \xC3\xA4 XXXXXX";
  Check(mkdtemp(name.data()) != nullptr, name);
  // The host's temporary directory may be a link.
  char resolved[PATH_MAX];
  Check(realpath(name.c_str(), resolved) != nullptr, name);
  root_ = resolved;
  SetMode(root_, S_IRWXU | S_IRWXG | S_IRWXO);
}

TemporaryTree::~TemporaryTree() {
  nftw(root_.c_str(), Unlock, kOpenDirectories, FTW_PHYS);
  nftw(root_.c_str(), RemoveVisited, kOpenDirectories, FTW_DEPTH | FTW_PHYS);
}

std::string TemporaryTree::MakeDirectory(const std::string& relativePath) const {
  const std::string path = Path(relativePath);
  Check(mkdir(path.c_str(), S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) == 0, path);
  return path;
}

std::string TemporaryTree::MakeFile(const std::string& relativePath,
                                    const std::string& contents) const {
  const std::string path = Path(relativePath);
  std::ofstream file(path, std::ios::binary);
  file << contents;
  file.close();
  Check(static_cast<bool>(file), path);
  return path;
}

std::string TemporaryTree::MakeLink(const std::string& relativePath,
                                    const std::string& target) const {
  const std::string path = Path(relativePath);
  Check(symlink(target.c_str(), path.c_str()) == 0, path);
  return path;
}

std::string TemporaryTree::MakePipe(const std::string& relativePath) const {
  const std::string path = Path(relativePath);
  Check(mkfifo(path.c_str(), S_IRUSR | S_IWUSR) == 0, path);
  return path;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Check(file.is_open(), path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool NothingAt(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

void SetMode(const std::string& path, mode_t mode) { Check(chmod(path.c_str(), mode) == 0, path); }

void SetModificationTime(const std::string& path, long seconds, long nanoseconds) {
#ifdef __APPLE__
  // The oldest macOS sets whole microseconds.
  const timeval time{seconds, static_cast<suseconds_t>(nanoseconds / 1000)};
  const timeval times[] = {time, time};
  Check(lutimes(path.c_str(), times) == 0, path);
#else
  const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  Check(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
#endif
}

WorkingDirectory::WorkingDirectory(const std::string& path)
    : previous_(open(".", O_RDONLY | O_CLOEXEC)) {
  Check(previous_ >= 0 && chdir(path.c_str()) == 0, path);
}

WorkingDirectory::~WorkingDirectory() {
  if (fchdir(previous_) != 0) perror("fchdir");
  close(previous_);
}

Environment::Environment(const char* name, const char* value) : name_(name) {
  const char* const previous = getenv(name);
  wasSet_ = previous != nullptr;
  if (wasSet_) previous_ = previous;
  if (value != nullptr) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

Environment::~Environment() {
  if (wasSet_) {
    setenv(name_.c_str(), previous_.c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

OrdinaryUser::OrdinaryUser() : isOne_(geteuid() != 0) {
#ifdef __linux__
  if (!isOne_) changed_ = isOne_ = setresuid(kOrdinaryUser, kOrdinaryUser, 0) == 0;
#endif
}

OrdinaryUser::~OrdinaryUser() {
#ifdef __linux__
  if (changed_ && setresuid(0, 0, 0) != 0) abort();
#endif
}

void SetOwnProgram(const char* name) {
  char resolved[PATH_MAX];
  Check(realpath(name, resolved) != nullptr, name);
  OwnProgramStorage() = resolved;
}

const std::string& OwnProgram() { return OwnProgramStorage(); }

pid_t StartRole(const std::string& program, const std::string& role,
                const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  std::vector<std::string> words = RoleArguments(role, arguments);
  words.insert(words.begin(), program);
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t child = fork();
  Check(child >= 0, "fork");
  if (child == 0) {
    prepare();
    execv(program.c_str(), pointers.data());
    _exit(127);
  }
  return child;
}

int Await(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) Check(errno == EINTR, "waitpid");
  return status;
}

int RunRole(const std::string& role, const std::vector<std::string>& arguments,
            const std::function<void()>& prepare) {
  return Await(StartRole(OwnProgram(), role, arguments, prepare));
}

bool Eventually(const std::function<bool()>& condition) {
  constexpr int kLooks = 20000;
  const timespec pause{0, 1000000};
  for (int look = 0; look < kLooks; ++look) {
    if (condition()) return true;
    nanosleep(&pause, nullptr);
  }
  return condition();
}

}  // namespace contract
