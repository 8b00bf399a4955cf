// Copying, removing and walking directory trees.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "platform/files.h"
#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::OrdinaryUser;
using contract::ReadAll;
using contract::TemporaryTree;

constexpr const char* kOddName = "it's \"odd\" \xE2\x82\xAC name";
constexpr int kDepth = 300;

struct stat Status(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

std::string LinkTarget(const std::string& path) {
  char target[1000];
  const ssize_t length = readlink(path.c_str(), target, sizeof(target));
  return length < 0 ? "(none)" : std::string(target, static_cast<std::size_t>(length));
}

void ExpectSameModeAndTime(const std::string& copy, const std::string& original) {
  const struct stat expected = Status(original);
  const struct stat actual = Status(copy);
  EXPECT_EQ(actual.st_mode, expected.st_mode) << copy;
  FileTime copyTime;
  FileTime originalTime;
  ASSERT_EQ(ModificationTime(copy, copyTime), 0);
  ASSERT_EQ(ModificationTime(original, originalTime), 0);
  EXPECT_EQ(copyTime.seconds, originalTime.seconds) << copy;
  // Foundation may convert the time to a floating-point number.
  EXPECT_NEAR(static_cast<double>(copyTime.nanoseconds),
              static_cast<double>(originalTime.nanoseconds), 1000)
      << copy;
}

/// An application bundle with everything that a copy has to keep, as "App.app".
std::string MakeApplication(const TemporaryTree& tree) {
  tree.MakeDirectory("App.app");
  tree.MakeDirectory("App.app/Contents");
  tree.MakeFile("App.app/Contents/tool", std::string(300000, 'b'));
  contract::SetMode(tree.Path("App.app/Contents/tool"), S_IRWXU | S_IXGRP);
  tree.MakeFile(std::string("App.app/Contents/") + kOddName, "odd");
  tree.MakeFile("App.app/empty");
  contract::SetMode(tree.Path("App.app/empty"), S_IRUSR);
  tree.MakeLink("App.app/inside", "Contents/tool");
  tree.MakeLink("App.app/dangling", "/nothing/at/all");
  tree.MakeLink("App.app/folder", "Contents");
  contract::SetModificationTime(tree.Path("App.app/Contents/tool"), 1000000000, 250000000);
  contract::SetModificationTime(tree.Path("App.app/Contents"), 1100000000, 0);
  contract::SetModificationTime(tree.Path("App.app/dangling"), 1200000000, 0);
  return tree.Path("App.app");
}

TEST(CopyTreeContract, KeepsContentsModesLinksAndTimes) {
  const TemporaryTree tree;
  const std::string source = MakeApplication(tree);
  const std::string copy = tree.Path(kOddName);
  ASSERT_TRUE(CopyTree(source, copy));
  EXPECT_EQ(ReadAll(copy + "/Contents/tool"), std::string(300000, 'b'));
  EXPECT_EQ(ReadAll(copy + "/Contents/" + kOddName), "odd");
  EXPECT_EQ(LinkTarget(copy + "/inside"), "Contents/tool");
  EXPECT_EQ(LinkTarget(copy + "/dangling"), "/nothing/at/all");
  EXPECT_EQ(LinkTarget(copy + "/folder"), "Contents");
  for (const char* const name : {"/Contents", "/Contents/tool", "/empty"}) {
    ExpectSameModeAndTime(copy + name, source + name);
  }
#ifdef KX_LINUX_ADAPTERS
  // NSFileManager does not promise the time of a link.
  EXPECT_EQ(Status(copy + "/dangling").st_mtime, 1200000000);
#endif
}

TEST(CopyTreeContract, CopiesAFile) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file", "text");
  contract::SetMode(file, S_IRUSR | S_IXOTH);
  ASSERT_TRUE(CopyTree(file, tree.Path("copy")));
  EXPECT_EQ(ReadAll(tree.Path("copy")), "text");
  ExpectSameModeAndTime(tree.Path("copy"), file);
}

TEST(CopyTreeContract, CopiesALinkAsALink) {
  const TemporaryTree tree;
  tree.MakeFile("file", "text");
  ASSERT_TRUE(CopyTree(tree.MakeLink("link", "file"), tree.Path("copy")));
  EXPECT_EQ(LinkTarget(tree.Path("copy")), "file");
  ASSERT_TRUE(CopyTree(tree.MakeLink("dangling", "nothing"), tree.Path("copy of dangling")));
  EXPECT_EQ(LinkTarget(tree.Path("copy of dangling")), "nothing");
}

TEST(CopyTreeContract, SetIdBitsAreDroppedWhenTheOwnerChanges) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  const uid_t owners[] = {geteuid(), 12345};
  const gid_t groups[] = {getegid(), 12345};
  for (const uid_t owner : owners) {
    for (const gid_t group : groups) {
      if (chown(file.c_str(), owner, group) != 0) continue;  // only root may
      contract::SetMode(file, S_ISUID | S_ISGID | S_IRWXU);
      const std::string copy =
          tree.Path("copy " + std::to_string(owner) + " " + std::to_string(group));
      ASSERT_TRUE(CopyTree(file, copy));
      const struct stat status = Status(copy);
      EXPECT_LE((status.st_mode & S_ISUID) != 0, status.st_uid == owner) << copy;
      EXPECT_LE((status.st_mode & S_ISGID) != 0, status.st_gid == group) << copy;
#ifdef __linux__
      // On a Mac the file system drops them when it clones a file.
      EXPECT_GE((status.st_mode & S_ISUID) != 0, status.st_uid == owner) << copy;
      EXPECT_GE((status.st_mode & S_ISGID) != 0, status.st_gid == group) << copy;
#endif
    }
  }
}

TEST(CopyTreeContract, CopiesWhatTheUserMayNotWrite) {
  const TemporaryTree tree;
  tree.MakeDirectory("place");
  contract::SetMode(tree.Path("place"), S_IRWXU | S_IRWXG | S_IRWXO);
  tree.MakeDirectory("locked");
  tree.MakeFile("locked/file", "text");
  contract::SetMode(tree.Path("locked"), contract::kReadOnly);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  ASSERT_TRUE(CopyTree(tree.Path("locked"), tree.Path("place/copy")));
  EXPECT_EQ(ReadAll(tree.Path("place/copy/file")), "text");
  ExpectSameModeAndTime(tree.Path("place/copy"), tree.Path("locked"));
}

TEST(CopyTreeContract, NeverMergesIntoWhatExists) {
  const TemporaryTree tree;
  const std::string source = MakeApplication(tree);
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/kept", "kept");
  tree.MakeFile("file", "kept");
  tree.MakeLink("dangling", tree.Path("target"));
  tree.MakeLink("link", "directory");
  for (const char* const name : {"directory", "directory/", "file", "dangling", "link"}) {
    EXPECT_FALSE(CopyTree(source, tree.Path(name))) << name;
    EXPECT_FALSE(CopyTree(tree.Path("file"), tree.Path(name))) << name;
  }
  EXPECT_EQ(ReadAll(tree.Path("directory/kept")), "kept");
  EXPECT_EQ(ReadAll(tree.Path("file")), "kept");
  EXPECT_TRUE(contract::NothingAt(tree.Path("directory/Contents")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("directory/App.app")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("target")));
  EXPECT_EQ(LinkTarget(tree.Path("dangling")), tree.Path("target"));
}

TEST(CopyTreeContract, FailsWithoutASourceOrAPlace) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  EXPECT_FALSE(CopyTree(tree.Path("nothing"), tree.Path("copy")));
  EXPECT_FALSE(CopyTree("", tree.Path("copy")));
  EXPECT_FALSE(CopyTree(file, ""));
  EXPECT_TRUE(contract::NothingAt(tree.Path("copy")));
  EXPECT_FALSE(CopyTree(file, tree.Path("no directory/copy")));
}

TEST(CopyTreeContract, LeavesNothingOfAnIncompleteCopy) {
  const TemporaryTree tree;
  tree.MakeDirectory("place");
  contract::SetMode(tree.Path("place"), S_IRWXU | S_IRWXG | S_IRWXO);
  const std::string source = MakeApplication(tree);
  contract::SetMode(tree.MakeFile("App.app/Contents/secret", "secret"), 0);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  EXPECT_FALSE(CopyTree(source, tree.Path("place/copy")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("place/copy")));
}

/// Keeps files from growing beyond `size`, as a full disk would, until the object is destroyed.
class SmallFiles {
 public:
  explicit SmallFiles(rlim_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &previous_);
    const rlimit limit{size, previous_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~SmallFiles() {
    setrlimit(RLIMIT_FSIZE, &previous_);
    std::signal(SIGXFSZ, handler_);
  }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  void (*handler_)(int);
  rlimit previous_;
};

TEST(CopyTreeContract, LeavesNothingWhenTheDiskIsFull) {
  const TemporaryTree tree;
  const std::string source = MakeApplication(tree);
  bool copiedTree = true;
  bool copiedFile = true;
  {
    const SmallFiles limit(100000);
    copiedTree = CopyTree(source, tree.Path("copy"));
    copiedFile = CopyTree(source + "/Contents/tool", tree.Path("copy of tool"));
  }
#ifdef __APPLE__
  if (copiedTree && copiedFile) GTEST_SKIP() << "this file system clones: copies write no data";
#endif
  EXPECT_FALSE(copiedTree);
  EXPECT_FALSE(copiedFile);
  EXPECT_TRUE(contract::NothingAt(tree.Path("copy")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("copy of tool")));
}

TEST(CopyTreeContract, CannotCopyAPipe) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/file");
  tree.MakePipe("directory/pipe");
  EXPECT_FALSE(CopyTree(tree.Path("directory"), tree.Path("copy")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("copy")));
}

TEST(CopyTreeContract, EndsWhenTheCopyLiesInsideTheSource) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/file");
  tree.MakeDirectory("directory/below");
  EXPECT_FALSE(CopyTree(tree.Path("directory"), tree.Path("directory/below/copy")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("directory/below/copy")));
  EXPECT_TRUE(FileExists(tree.Path("directory/file")));
}

/// Makes nested directories. @return the deepest one's path, relative to the root.
std::string MakeDeepTree(const TemporaryTree& tree) {
  std::string path = "deep";
  tree.MakeDirectory(path);
  for (int level = 1; level < kDepth; ++level) tree.MakeDirectory(path += "/d");
  tree.MakeFile(path + "/bottom", "text");
  return path;
}

TEST(TreeContract, DeepTreesAreWalkedCopiedAndRemoved) {
  const TemporaryTree tree;
  const std::string deepest = MakeDeepTree(tree);
  int count = 0;
  WalkTree(tree.Path("deep"), [&](const std::string&) {
    ++count;
    return true;
  });
  EXPECT_EQ(count, kDepth);
  ASSERT_TRUE(CopyTree(tree.Path("deep"), tree.Path("copy")));
  EXPECT_EQ(ReadAll(tree.Path("copy") + deepest.substr(4) + "/bottom"), "text");
  EXPECT_TRUE(RemoveTree(tree.Path("copy")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("copy")));
}

TEST(RemoveTreeContract, RemovesFilesLinksAndDirectories) {
  const TemporaryTree tree;
  MakeApplication(tree);
  tree.MakeFile("file");
  tree.MakeLink("dangling", "nothing");
  for (const char* const name : {"App.app", "file", "dangling"}) {
    EXPECT_TRUE(RemoveTree(tree.Path(name))) << name;
    EXPECT_TRUE(contract::NothingAt(tree.Path(name))) << name;
  }
}

TEST(RemoveTreeContract, NeverFollowsALink) {
  const TemporaryTree tree;
  tree.MakeDirectory("kept");
  tree.MakeFile("kept/file", "text");
  tree.MakeDirectory("directory");
  tree.MakeLink("directory/link", tree.Path("kept"));
  tree.MakeLink("link", "kept");
  EXPECT_TRUE(RemoveTree(tree.Path("directory")));
  EXPECT_TRUE(RemoveTree(tree.Path("link")));
  EXPECT_TRUE(contract::NothingAt(tree.Path("link")));
  EXPECT_EQ(ReadAll(tree.Path("kept/file")), "text");
}

TEST(RemoveTreeContract, FailsWhenThereIsNothing) {
  const TemporaryTree tree;
  EXPECT_FALSE(RemoveTree(tree.Path("nothing")));
  EXPECT_FALSE(RemoveTree(""));
}

TEST(RemoveTreeContract, FailsWhenAnythingRemains) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/file");
  contract::SetMode(tree.Path("directory"), contract::kReadOnly);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  EXPECT_FALSE(RemoveTree(tree.Path("directory")));
  EXPECT_TRUE(FileExists(tree.Path("directory/file")));
}

std::vector<std::string> Walked(const std::string& root) {
  std::vector<std::string> paths;
  WalkTree(root, [&](const std::string& path) {
    paths.push_back(path);
    return true;
  });
  return paths;
}

TEST(WalkTreeContract, VisitsEverythingOnceByRelativePath) {
  const TemporaryTree tree;
  MakeApplication(tree);
  tree.MakePipe("pipe");
  std::vector<std::string> expected = {
      "App.app",          "App.app/Contents", "App.app/Contents/tool",
      "App.app/dangling", "App.app/empty",    std::string("App.app/Contents/") + kOddName,
      "App.app/folder",   "App.app/inside",   "pipe"};
  std::sort(expected.begin(), expected.end());
  for (const std::string& root : {tree.Root(), tree.Root() + "/"}) {
    std::vector<std::string> paths = Walked(root);
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, expected) << root;
  }
}

TEST(WalkTreeContract, ADirectorysContentsFollowIt) {
  const TemporaryTree tree;
  for (const char* const name : {"a", "a/b", "c", "c/d"}) tree.MakeDirectory(name);
  for (const char* const name : {"a/1", "a/b/2", "c/3", "c/d/4"}) tree.MakeFile(name);
  const std::vector<std::string> paths = Walked(tree.Root());
  ASSERT_EQ(paths.size(), 8u);
  for (const char* const directory : {"a", "a/b", "c", "c/d"}) {
    const auto start = std::find(paths.begin(), paths.end(), directory);
    ASSERT_NE(start, paths.end());
    const std::string prefix = std::string(directory) + '/';
    const auto isInside = [&](const std::string& path) { return path.rfind(prefix, 0) == 0; };
    const auto end = std::find_if_not(start + 1, paths.end(), isInside);
    EXPECT_EQ(std::count_if(paths.begin(), paths.end(), isInside), end - start - 1) << directory;
  }
}

TEST(WalkTreeContract, StopsWhenTold) {
  const TemporaryTree tree;
  MakeApplication(tree);
  int count = 0;
  WalkTree(tree.Root(), [&](const std::string&) { return ++count < 3; });
  EXPECT_EQ(count, 3);
}

TEST(WalkTreeContract, FollowsTheRootWhenThatIsALink) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/file");
  EXPECT_EQ(Walked(tree.MakeLink("link", "directory")), std::vector<std::string>{"file"});
}

TEST(WalkTreeContract, ThousandsOfEntriesInOneDirectory) {
  const TemporaryTree tree;
  constexpr std::size_t kCount = 5000;
  for (std::size_t number = 0; number < kCount; ++number) tree.MakeFile(std::to_string(number));
  std::vector<std::string> paths = Walked(tree.Root());
  EXPECT_EQ(paths.size(), kCount);
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(std::unique(paths.begin(), paths.end()), paths.end());
}

TEST(WalkTreeContract, VisitsNothingBelowWhatIsNotADirectory) {
  const TemporaryTree tree;
  EXPECT_TRUE(Walked(tree.MakeFile("file")).empty());
  EXPECT_TRUE(Walked(tree.Path("nothing")).empty());
  EXPECT_TRUE(Walked(tree.MakeDirectory("empty")).empty());
}

TEST(WalkTreeContract, PassesOverADirectoryThatCannotBeRead) {
  const TemporaryTree tree;
  for (const char* const name : {"a", "b", "c"}) {
    tree.MakeDirectory(name);
    tree.MakeFile(std::string(name) + "/file");
  }
  contract::SetMode(tree.Path("b"), 0);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  std::vector<std::string> paths = Walked(tree.Root());
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (std::vector<std::string>{"a", "a/file", "b", "c", "c/file"}));
}

// On macOS, names are text.
#ifdef KX_LINUX_ADAPTERS
TEST(WalkTreeContract, NamesAreBytes) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/\xFF\xFE");
  EXPECT_EQ(Walked(tree.Path("directory")), std::vector<std::string>{"\xFF\xFE"});
  ASSERT_TRUE(CopyTree(tree.Path("directory"), tree.Path("copy")));
  EXPECT_TRUE(FileExists(tree.Path("copy/\xFF\xFE")));
}
#endif

}  // namespace
}  // namespace platform
