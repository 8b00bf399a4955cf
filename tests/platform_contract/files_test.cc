#include "platform/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::OrdinaryUser;
using contract::TemporaryTree;

constexpr const char* kOddName = "it's \"odd\" \xE2\x82\xAC name";

/// Binds a socket below `tree` by a relative name, because a socket's address must be short.
/// @return its descriptor.
int BindSocket(const TemporaryTree& tree, const char* name) {
  const contract::WorkingDirectory here(tree.Root());
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, name, sizeof(address.sun_path) - 1);
  const int number = socket(AF_UNIX, SOCK_STREAM, 0);
  EXPECT_EQ(bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  return number;
}

TEST(ExistenceContract, FollowsLinks) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile(kOddName);
  const std::string directory = tree.MakeDirectory("directory");
  const std::string fileLink = tree.MakeLink("file link", file);
  const std::string directoryLink = tree.MakeLink("directory link", directory);
  const std::string dangling = tree.MakeLink("dangling", tree.Path("nothing"));

  EXPECT_TRUE(FileExists(file));
  EXPECT_TRUE(FileExists(directory));
  EXPECT_TRUE(FileExists(fileLink));
  EXPECT_TRUE(FileExists(directoryLink));
  EXPECT_FALSE(FileExists(dangling));
  EXPECT_FALSE(FileExists(tree.Path("nothing")));
  EXPECT_FALSE(FileExists(""));

  EXPECT_FALSE(DirectoryExists(file));
  EXPECT_TRUE(DirectoryExists(directory));
  EXPECT_TRUE(DirectoryExists(directory + "/"));
  EXPECT_FALSE(DirectoryExists(fileLink));
  EXPECT_TRUE(DirectoryExists(directoryLink));
  EXPECT_FALSE(DirectoryExists(dangling));
  EXPECT_FALSE(DirectoryExists(""));
}

TEST(ExistenceContract, RelativePathsStartAtTheWorkingDirectory) {
  const TemporaryTree tree;
  tree.MakeDirectory("below");
  EXPECT_FALSE(DirectoryExists("below"));
  const contract::WorkingDirectory here(tree.Root());
  EXPECT_TRUE(DirectoryExists("below"));
}

TEST(FileModeContract, GivesTypeAndPermissionBitsOfWhatALinkPointsAt) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  contract::SetMode(file, S_IRUSR | S_IXGRP);
  std::uint32_t mode = 0;
  EXPECT_EQ(FileMode(tree.MakeLink("link", "file"), mode), 0);
  EXPECT_EQ(mode, std::uint32_t{S_IFREG | S_IRUSR | S_IXGRP});
  EXPECT_EQ(FileMode(tree.MakeDirectory("directory"), mode), 0);
  EXPECT_EQ(mode & S_IFMT, std::uint32_t{S_IFDIR});
}

TEST(FileModeContract, TheNumbersAreThoseOfUnix) {
  const TemporaryTree tree;
  const int socket = BindSocket(tree, "socket");
  std::uint32_t mode = 0;
  // The type bits of a socket include the bit of a directory.
  EXPECT_EQ(FileMode(tree.Path("socket"), mode), 0);
  EXPECT_EQ(mode & 0xF000, 0xC000u);
  EXPECT_EQ(FileMode(tree.Root(), mode), 0);
  EXPECT_EQ(mode & 0xF000, 0x4000u);
  EXPECT_EQ(FileMode(tree.MakePipe("pipe"), mode), 0);
  EXPECT_EQ(mode & 0xF000, 0x1000u);
  close(socket);
}

TEST(FileModeContract, GivesTheErrorAndLeavesTheMode) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  std::uint32_t mode = 77;
  EXPECT_EQ(FileMode(tree.Path("nothing"), mode), ENOENT);
  EXPECT_EQ(FileMode(tree.MakeLink("dangling", "nothing"), mode), ENOENT);
  EXPECT_EQ(FileMode(tree.MakeLink("loop", "loop"), mode), ELOOP);
  EXPECT_EQ(FileMode(file + "/below", mode), ENOTDIR);
  EXPECT_EQ(FileMode(tree.Path(std::string(300, 'n')), mode), ENAMETOOLONG);
  EXPECT_EQ(mode, 77u);
}

TEST(FileModeContract, NeedsTheRightToSearch) {
  const TemporaryTree tree;
  contract::SetMode(tree.MakeDirectory("closed"), 0);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  std::uint32_t mode = 0;
  EXPECT_EQ(FileMode(tree.Path("closed/file"), mode), EACCES);
}

TEST(CheckAccessContract, TellsExistenceFromReadability) {
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  contract::SetMode(file, 0);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  EXPECT_EQ(CheckAccess(file, AccessTest::kExists), 0);
  EXPECT_EQ(CheckAccess(file, AccessTest::kReadable), EACCES);
}

TEST(CheckAccessContract, FollowsLinks) {
  const TemporaryTree tree;
  tree.MakeFile("file");
  for (const AccessTest test : {AccessTest::kExists, AccessTest::kReadable}) {
    EXPECT_EQ(CheckAccess(tree.Path("file"), test), 0);
    EXPECT_EQ(CheckAccess(tree.Path("file/below"), test), ENOTDIR);
    EXPECT_EQ(CheckAccess("", test), ENOENT);
  }
  EXPECT_EQ(CheckAccess(tree.MakeLink("link", "file"), AccessTest::kReadable), 0);
  EXPECT_EQ(CheckAccess(tree.MakeLink("dangling", "nothing"), AccessTest::kExists), ENOENT);
}

TEST(ModificationTimeContract, HasNanosecondsAndFollowsLinks) {
#ifdef __APPLE__
  constexpr long kNanoseconds = 123456000;
#else
  constexpr long kNanoseconds = 123456789;
#endif
  const TemporaryTree tree;
  const std::string file = tree.MakeFile("file");
  tree.MakeLink("link", "file");
  contract::SetModificationTime(file, 1234567890, kNanoseconds);
  for (const char* const name : {"file", "link"}) {
    FileTime time;
    EXPECT_EQ(ModificationTime(tree.Path(name), time), 0);
    EXPECT_EQ(time.seconds, 1234567890);
    EXPECT_EQ(time.nanoseconds, kNanoseconds);
  }
}

TEST(ModificationTimeContract, GivesTheErrorAndLeavesTheTime) {
  const TemporaryTree tree;
  FileTime time{5, 6};
  EXPECT_EQ(ModificationTime(tree.Path("nothing"), time), ENOENT);
  EXPECT_EQ(time.seconds, 5);
  EXPECT_EQ(time.nanoseconds, 6);
}

std::vector<std::string> Names(DirectoryReader& reader) {
  std::vector<std::string> names;
  while (const char* const name = reader.Next()) {
    if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(DirectoryReaderContract, GivesEveryEntryOnce) {
  const TemporaryTree tree;
  std::vector<std::string> expected;
  constexpr int kCount = 3000;
  for (int number = 0; number < kCount; ++number) {
    expected.push_back(kOddName + std::to_string(number));
    tree.MakeFile(expected.back());
  }
  std::sort(expected.begin(), expected.end());
  DirectoryReader reader;
  ASSERT_EQ(reader.Open(tree.Root()), 0);
  EXPECT_EQ(Names(reader), expected);
}

TEST(DirectoryReaderContract, FollowsALinkToADirectory) {
  const TemporaryTree tree;
  tree.MakeDirectory("directory");
  tree.MakeFile("directory/file");
  DirectoryReader reader;
  ASSERT_EQ(reader.Open(tree.MakeLink("link", "directory")), 0);
  EXPECT_EQ(Names(reader), std::vector<std::string>{"file"});
}

TEST(DirectoryReaderContract, GivesTheErrorOfOpening) {
  const TemporaryTree tree;
  DirectoryReader reader;
  EXPECT_EQ(reader.Open(tree.Path("nothing")), ENOENT);
  EXPECT_EQ(reader.Open(tree.MakeFile("file")), ENOTDIR);
  EXPECT_EQ(reader.Open(tree.MakePipe("pipe")), ENOTDIR);
  contract::SetMode(tree.MakeDirectory("closed"), 0);
  const OrdinaryUser user;
  if (user.IsOne()) {
    EXPECT_EQ(reader.Open(tree.Path("closed")), EACCES);
  }
}

/// The lowest free descriptor; a leak raises it.
int LowestFreeDescriptor() {
  const int number = dup(STDIN_FILENO);
  close(number);
  return number;
}

TEST(DirectoryReaderContract, Closes) {
  const TemporaryTree tree;
  tree.MakeFile("file");
  const int before = LowestFreeDescriptor();
  {
    DirectoryReader reader;
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(reader.Open(tree.Root()), 0);
      EXPECT_EQ(Names(reader), std::vector<std::string>{"file"});
    }
  }
  EXPECT_EQ(LowestFreeDescriptor(), before);
}

std::string ReadToTheEnd(InputFile& file, std::size_t capacity) {
  std::string contents;
  std::vector<char> buffer(capacity);
  std::size_t count = 0;
  while (file.Read(buffer.data(), capacity, count) == 0 && count > 0) {
    contents.append(buffer.data(), count);
  }
  return contents;
}

TEST(InputFileContract, ReadsEveryByteInChunks) {
  const TemporaryTree tree;
  std::string contents;
  for (int number = 0; number < 100000; ++number) contents += static_cast<char>(number);
  InputFile file;
  ASSERT_EQ(file.Open(tree.MakeFile(kOddName, contents)), 0);
  EXPECT_EQ(ReadToTheEnd(file, 777), contents);
  std::size_t count = 1;
  char byte;
  EXPECT_EQ(file.Read(&byte, 1, count), 0);
  EXPECT_EQ(count, 0u);
}

TEST(InputFileContract, APipeWithoutAWriterReadsAsEmpty) {
  const TemporaryTree tree;
  InputFile file;
  ASSERT_EQ(file.Open(tree.MakePipe("pipe")), 0);
  EXPECT_EQ(ReadToTheEnd(file, 10), "");
}

TEST(InputFileContract, APipeWithAWriterEndsWithWhatItHolds) {
  const TemporaryTree tree;
  const std::string path = tree.MakePipe("pipe");
  InputFile file;
  ASSERT_EQ(file.Open(path), 0);
  const int writer = open(path.c_str(), O_WRONLY);
  ASSERT_EQ(write(writer, "held", 4), 4);
  EXPECT_EQ(ReadToTheEnd(file, 10), "held");
  std::size_t count = 1;
  char byte;
  EXPECT_EQ(file.Read(&byte, 1, count), 0);
  EXPECT_EQ(count, 0u);
  close(writer);
}

TEST(InputFileContract, ADirectoryOpensAndCannotBeRead) {
  const TemporaryTree tree;
  InputFile file;
  ASSERT_EQ(file.Open(tree.Root()), 0);
  char byte;
  std::size_t count = 1;
  EXPECT_EQ(file.Read(&byte, 1, count), EISDIR);
  EXPECT_EQ(count, 0u);
}

TEST(InputFileContract, GivesTheErrorOfOpening) {
  const TemporaryTree tree;
  InputFile file;
  EXPECT_EQ(file.Open(tree.Path("nothing")), ENOENT);
  EXPECT_EQ(file.Open(tree.MakeLink("loop", "loop")), ELOOP);
  const std::string secret = tree.MakeFile("secret");
  contract::SetMode(secret, 0);
  const OrdinaryUser user;
  if (user.IsOne()) {
    EXPECT_EQ(file.Open(secret), EACCES);
  }
}

TEST(InputFileContract, Closes) {
  const TemporaryTree tree;
  const std::string path = tree.MakeFile("file", "text");
  const int before = LowestFreeDescriptor();
  {
    InputFile file;
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(file.Open(path), 0);
      EXPECT_EQ(ReadToTheEnd(file, 2), "text");
    }
    InputFile closed;
    ASSERT_EQ(closed.Open(path), 0);
    const int open = LowestFreeDescriptor();
    closed.Close();
    EXPECT_LT(LowestFreeDescriptor(), open);
  }
  EXPECT_EQ(LowestFreeDescriptor(), before);
}

TEST(ReadFileContract, ReadsNoMoreThanTheLimit) {
  const TemporaryTree tree;
  const std::string path = tree.MakeFile("file", "text");
  std::string contents = "left over";
  EXPECT_EQ(ReadFile(path, contents, 4), 0);
  EXPECT_EQ(contents, "text");
  EXPECT_EQ(ReadFile(path, contents, 3), EFBIG);
  EXPECT_EQ(ReadFile(tree.Path("nothing"), contents), ENOENT);
  EXPECT_EQ(ReadFile(tree.Root(), contents), EISDIR);
}

TEST(InputFileContract, IsNotInherited) {
  const TemporaryTree tree;
  InputFile file;
  ASSERT_EQ(file.Open(tree.MakeFile("file")), 0);
  DirectoryReader reader;
  ASSERT_EQ(reader.Open(tree.Root()), 0);
  const std::string report = tree.Path("report");
  const int before = LowestFreeDescriptor();
  ASSERT_EQ(contract::RunRole("list-descriptors", {report}), 0);
  const std::string open = contract::ReadAll(report) + ' ';
  EXPECT_EQ(open.find(' ' + std::to_string(before - 1) + ' '), std::string::npos) << open;
  EXPECT_EQ(open.find(' ' + std::to_string(before - 2) + ' '), std::string::npos) << open;
}

TEST(AppendedFileContract, OthersMayNotWriteWhatItCreates) {
  const TemporaryTree tree;
  for (const mode_t mask : {mode_t{0}, mode_t{S_IRWXO}}) {
    const std::string path = tree.Path(std::to_string(mask));
    const mode_t usual = umask(mask);
    AppendedFile file;
    const int error = file.Open(path);
    umask(usual);
    ASSERT_EQ(error, 0);
    struct stat status;
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, (S_IFREG | S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) & ~mask);
    EXPECT_EQ(status.st_size, 0);
  }
}

TEST(AppendedFileContract, KeepsWhatIsThere) {
  const TemporaryTree tree;
  const std::string path = tree.MakeFile("file", "text");
  contract::SetMode(path, S_IRUSR | S_IWUSR);
  AppendedFile file;
  EXPECT_EQ(file.Open(tree.MakeLink("link", "file")), 0);
  EXPECT_EQ(contract::ReadAll(path), "text");
  struct stat status;
  ASSERT_EQ(lstat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | S_IRUSR | S_IWUSR});
}

TEST(AppendedFileContract, DoesNotWaitForAReader) {
  const TemporaryTree tree;
  const std::string path = tree.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), S_IRUSR | S_IWUSR), 0);
  AppendedFile file;
  EXPECT_EQ(file.Open(path), ENXIO);
  InputFile reader;
  ASSERT_EQ(reader.Open(path), 0);
  AppendedFile other;
  EXPECT_EQ(other.Open(path), 0);
}

TEST(AppendedFileContract, GivesTheError) {
  const TemporaryTree tree;
  const struct {
    std::string path;
    int error;
  } rows[] = {{tree.Path("nothing/file"), ENOENT},
              {tree.MakeDirectory("directory"), EISDIR},
              {tree.MakeLink("loop", "loop"), ELOOP}};
  for (const auto& row : rows) {
    AppendedFile file;
    EXPECT_EQ(file.Open(row.path), row.error) << row.path;
  }
}

TEST(CreateFileExclusivelyContract, MakesAnEmptyFileForTheUserAlone) {
  const TemporaryTree tree;
  const std::string path = tree.Path(kOddName);
  ASSERT_EQ(CreateFileExclusively(path), 0);
  struct stat status;
  ASSERT_EQ(lstat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | S_IRUSR | S_IWUSR});
  EXPECT_EQ(status.st_size, 0);
}

TEST(CreateFileExclusivelyContract, NeverTakesAnExistingName) {
  const TemporaryTree tree;
  EXPECT_EQ(CreateFileExclusively(tree.MakeFile("file", "text")), EEXIST);
  EXPECT_EQ(contract::ReadAll(tree.Path("file")), "text");
  EXPECT_EQ(CreateFileExclusively(tree.MakeDirectory("directory")), EEXIST);
  EXPECT_EQ(CreateFileExclusively(tree.MakeLink("link", "file")), EEXIST);
  EXPECT_EQ(CreateFileExclusively(tree.MakeLink("dangling", tree.Path("target"))), EEXIST);
  EXPECT_TRUE(contract::NothingAt(tree.Path("target")));
}

TEST(CreateFileExclusivelyContract, GivesTheError) {
  const TemporaryTree tree;
  EXPECT_EQ(CreateFileExclusively(tree.Path("nothing/file")), ENOENT);
  contract::SetMode(tree.MakeDirectory("closed"), contract::kReadOnly);
  const OrdinaryUser user;
  if (user.IsOne()) {
    EXPECT_EQ(CreateFileExclusively(tree.Path("closed/file")), EACCES);
  }
}

TEST(IsDeletableContract, AsksForTheRightsOnTheDirectory) {
  const TemporaryTree tree;
  tree.MakeDirectory("open");
  contract::SetMode(tree.Path("open"), S_IRWXU | S_IRWXG | S_IRWXO);
  tree.MakeFile("open/file");
  contract::SetMode(tree.Path("open/file"), 0);
  tree.MakeDirectory("locked");
  tree.MakeFile("locked/file");
  contract::SetMode(tree.Path("locked"), contract::kReadOnly);
  const OrdinaryUser user;
  if (!user.IsOne()) GTEST_SKIP() << "root only";
  EXPECT_TRUE(IsDeletable(tree.Path("open/file")));
  EXPECT_FALSE(IsDeletable(tree.Path("locked/file")));
}

#ifdef KX_LINUX_ADAPTERS
// Foundation has its own rules.
TEST(IsDeletableContract, AStickyDirectoryAsksForAnOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "root only";
  const TemporaryTree tree;
  const auto make = [&tree](const std::string& name, uid_t directoryOwner, uid_t fileOwner) {
    const std::string directory = tree.MakeDirectory(name);
    const std::string file = tree.MakeFile(name + "/file");
    contract::SetMode(directory, S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO);
    EXPECT_EQ(chown(directory.c_str(), directoryOwner, 0), 0);
    EXPECT_EQ(chown(file.c_str(), fileOwner, 0), 0);
    return file;
  };
  uid_t own = 0;
  {
    const OrdinaryUser user;
    own = geteuid();
  }
  const std::string ownFile = make("own file", 0, own);
  const std::string ownDirectory = make("own directory", own, 0);
  const std::string neither = make("neither", 0, 0);
  EXPECT_TRUE(IsDeletable(neither)) << "as root";
  const OrdinaryUser user;
  EXPECT_TRUE(IsDeletable(ownFile));
  EXPECT_TRUE(IsDeletable(ownDirectory));
  EXPECT_FALSE(IsDeletable(neither));
}
#endif

TEST(IsDeletableContract, AMissingFileIsNotDeletable) {
  const TemporaryTree tree;
  EXPECT_FALSE(IsDeletable(tree.Path("nothing")));
  EXPECT_FALSE(IsDeletable(""));
}

TEST(IsDeletableContract, TakesRelativePaths) {
  const TemporaryTree tree;
  tree.MakeFile("file");
  const contract::WorkingDirectory here(tree.Root());
  EXPECT_TRUE(IsDeletable("file"));
}

TEST(TemporaryDirectoryContract, IsADirectoryAndEndsInASlash) {
  const std::optional<std::string> directory = TemporaryDirectory();
  ASSERT_TRUE(directory);
  EXPECT_TRUE(DirectoryExists(*directory));
  EXPECT_EQ(directory->back(), '/');
}

#ifdef KX_LINUX_ADAPTERS
// Foundation has its own rules.
TEST(TemporaryDirectoryContract, IsWhereTheEnvironmentSays) {
  const TemporaryTree tree;
  for (const char* const slash : {"", "/"}) {
    const contract::Environment variable("TMPDIR", (tree.Root() + slash).c_str());
    EXPECT_EQ(TemporaryDirectory(), tree.Root() + "/");
  }
}
#endif

TEST(TemporaryDirectoryContract, SkipsWhatIsNotADirectory) {
  const TemporaryTree tree;
  for (const std::string& value : {tree.MakeFile("file"), tree.Path("nothing"), std::string()}) {
    const contract::Environment variable("TMPDIR", value.c_str());
    const std::optional<std::string> directory = TemporaryDirectory();
    ASSERT_TRUE(directory) << value;
    EXPECT_TRUE(DirectoryExists(*directory)) << value;
    EXPECT_NE(directory, value + "/");
  }
}

}  // namespace
}  // namespace platform
