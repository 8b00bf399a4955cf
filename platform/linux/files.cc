#include "platform/files.h"

#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "platform/linux/tree_copier.h"
#include "platform/posix/paths.h"

namespace platform {
namespace {

struct CloseWalk {
  void operator()(FTS* walk) const { fts_close(walk); }
};

/// Whether the walk reaches `entry` for the first time. It returns to a directory after its
/// contents, or instead of them when it cannot read the directory.
bool IsFirstVisit(const FTSENT& entry) {
  return entry.fts_info != FTS_DP && entry.fts_info != FTS_DNR;
}

}  // namespace

bool CopyTree(const std::string& source, const std::string& destination) {
  const std::string target = WithoutTrailingSlashes(destination);
  TreeCopier copier;
  if (copier.Copy(WithoutTrailingSlashes(source), target)) return true;
  if (copier.HasCreated()) RemoveTree(target);
  return false;
}

bool RemoveTree(const std::string& path) {
  std::error_code error;
  const std::uintmax_t count = std::filesystem::remove_all(WithoutTrailingSlashes(path), error);
  return !error && count > 0;
}

bool IsDeletable(const std::string& path) {
  const std::string item = WithoutTrailingSlashes(path);
  struct stat status;
  if (lstat(item.c_str(), &status) != 0) return false;
  const std::string directory = ParentPath(item);
  const char* const parent = directory.empty() ? "." : directory.c_str();
  struct stat parentStatus;
  if (stat(parent, &parentStatus) != 0 || eaccess(parent, W_OK | X_OK) != 0) return false;
  const uid_t user = geteuid();
  return (parentStatus.st_mode & S_ISVTX) == 0 || user == 0 || user == status.st_uid ||
         user == parentStatus.st_uid;
}

int ModificationTime(const std::string& path, FileTime& time) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return errno;
  time = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return 0;
}

void WalkTree(const std::string& root,
              const std::function<bool(const std::string& relativePath)>& visit) {
  std::string path = root;
  char* const roots[] = {path.data(), nullptr};
  const std::unique_ptr<FTS, CloseWalk> walk(
      fts_open(roots, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, nullptr));
  if (!walk) return;
  while (const FTSENT* const entry = fts_read(walk.get())) {
    if (entry->fts_level == FTS_ROOTLEVEL || !IsFirstVisit(*entry)) continue;
    const char* relative = entry->fts_path + path.size();
    while (*relative == '/') ++relative;
    if (!visit(relative)) return;
  }
}

std::optional<std::string> TemporaryDirectory() {
  const char* const chosen = std::getenv("TMPDIR");
  for (const char* const directory : {chosen, "/tmp"}) {
    if (directory != nullptr && DirectoryExists(directory)) return WithTrailingSlash(directory);
  }
  return std::nullopt;
}

}  // namespace platform
