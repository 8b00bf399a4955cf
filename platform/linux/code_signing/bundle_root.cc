#include "platform/linux/code_signing/bundle_root.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>

namespace platform::code_signing {
namespace {

constexpr char kOpenFiles[] = "/proc/self/fd/";

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

/// Returns the current path of an open file; empty when it has none.
std::string LocationOf(int descriptor) {
  char location[PATH_MAX];
  const std::string link = kOpenFiles + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), location, sizeof location);
  const bool isWhole = length >= 0 && length < ssize_t{sizeof location};
  return isWhole ? std::string(location, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

int BundleRoot::Open(const std::string& path) {
  directory_ = OpenAt(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (!directory_.IsOpen()) return errno;
  location_ = LocationOf(directory_.Get());
  return 0;
}

std::optional<std::string> BundleRoot::Locate(int descriptor) const {
  const std::string location = LocationOf(descriptor);
  if (location_.empty() || location.empty()) return std::nullopt;
  if (location == location_) return std::string();
  const std::string prefix = location_ == "/" ? location_ : location_ + "/";
  if (location.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  return location.substr(prefix.size());
}

Descriptor OpenRestricted(int parent, const std::string& path, std::uint64_t resolve) {
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = resolve;
  return Descriptor(static_cast<int>(syscall(SYS_openat2, parent, path.c_str(), &how, sizeof how)));
}

bool IsNeverSealed(const std::string& path) {
  const std::string first = path.substr(0, path.find('/'));
  return first == "_CodeSignature" || first == "CodeResources" || first == "_MASReceipt";
}

bool HasSameIdentity(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string PathOf(const Descriptor& file) { return kOpenFiles + std::to_string(file.Get()); }

int VisitDirectory(int parent, const std::string& path,
                   const std::function<void(const std::string& name)>& visit) {
  Descriptor directory = OpenAt(parent, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (!directory.IsOpen()) return errno;
  const std::unique_ptr<DIR, CloseStream> stream(fdopendir(directory.Get()));
  if (stream == nullptr) return errno;
  directory.Release();  // the stream closes it
  errno = 0;
  while (const dirent* const entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") visit(name);
    errno = 0;
  }
  return errno;
}

}  // namespace platform::code_signing
