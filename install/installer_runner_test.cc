#include <cerrno>
#include <climits>
#include <cstdlib>

#include "tests/support/product_fixture.h"
#include "tests/support/property_list_builder.h"

namespace install {
namespace {

using fake::Array;
using fake::Concat;
using fake::Dictionary;
using fake::Lines;
using fake::Mounted;
using fake::Text;
using platform::PropertyListValue;
using platform::Task;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kDiskImageTool[] = "/usr/bin/hdiutil";
constexpr char kPackageInstaller[] = "/usr/sbin/installer";
constexpr char kImage[] = "/downloads/setup.dmg";
constexpr char kMountPoint[] = "/private/tmp/dmg.x1";
constexpr bool kPackageMode = true;
constexpr bool kApplicationMode = false;

/// The words of a task in brackets, and the file that receives its output.
std::string WordsOf(const Task& task) {
  std::string words = "[" + task.launchPath + "]";
  for (const std::string& argument : task.arguments) words += "[" + argument + "]";
  return task.standardOutputPath.empty() ? words : words + " > " + task.standardOutputPath;
}

class InstallerRunnerTest : public fake::ProductFixture {
 protected:
  InstallerRunnerTest() {
    std::srand(1);  // as a generator that was never seeded
    firstNumber_ = std::rand();
    std::srand(1);
    world.AddFile(kImage, "image");
    world.programs[kDiskImageTool].effect = [this](const Task& task) { RunDiskImageTool(task); };
    world.programs[kPackageInstaller].effect = [this](const Task&) { RunInstaller(); };
  }

  // The scripted image and programs.

  /// Puts a file or directory on the image.
  void AddToImage(const std::string& path, const std::string& contents) {
    image_[path].contents = contents;
  }
  void RemoveFromImage(const std::string& path) { image_.erase(path); }
  void FailToCopy(const std::string& path) { image_.at(path).failsToCopy = true; }
  void OnceCopied(const std::string& path, std::function<void()> then) {
    image_.at(path).afterwards = std::move(then);
  }
  void AddApplicationToImage(const std::string& path) {
    image_[path].mode = S_IFDIR | 0755;
    image_[path + "/Contents"].mode = S_IFDIR | 0755;
    AddToImage(path + "/Contents/Info.plist", "plist");
    AddToImage(path + "/Contents/MacOS", "binary");
  }

  /// An image with an application "Setup.app" that the tool accepts, and its configuration.
  void MakeApplicationImage() {
    AddApplicationToImage("Setup.app");
    AddToImage("installer.xml", "from the image");
    world.signatures["/downloads/Setup.app"] = fake::Signature::Makers();
    world.applicationExecutables["/downloads/Setup.app"] = kApplication;
    world.programs[kApplication].effect = [this](const Task&) { RunInstaller(); };
  }
  static constexpr char kApplication[] = "/downloads/Setup.app/Contents/MacOS/Setup";

  /// An image with a package "Setup.pkg" and its configuration.
  void MakePackageImage() {
    AddToImage("Setup.pkg", "package");
    AddToImage("installer.xml", "from the image");
  }

  // Runs and their outcomes.

  int Install(bool packageMode, const std::string& path = kImage) {
    result_ = "before";
    return Tool().ORVEXInstall(result_, path, packageMode, Log());
  }

  /// Installs in a world without the product and compares code and whole log; the record must be
  /// that of an absent product.
  void Expect(bool packageMode, const std::string& path, int code, const Lines& lines) {
    EXPECT_EQ(Install(packageMode, path), code);
    EXPECT_EQ(result_, "0|||");
    EXPECT_THAT(TakeLog(), ElementsAreArray(lines));
  }

  std::string OutputFile(int after = 0) const {
    return "/tmp/KXToolInstall_" + std::to_string(std::int64_t{firstNumber_} + after);
  }

  std::vector<std::string> Tasks() const {
    std::vector<std::string> tasks;
    for (const Task& task : world.tasks) tasks.push_back(WordsOf(task));
    return tasks;
  }

  std::string AttachWords(const std::string& path = kImage, int after = 0) const {
    return "[/usr/bin/hdiutil][attach][" + path + "][-plist][-private][-nobrowse] > " +
           OutputFile(after);
  }

  std::vector<std::string> Paths() const {
    std::vector<std::string> paths;
    for (const auto& file : world.files) paths.push_back(file.first);
    return paths;
  }

  // The log, piece by piece.

  static Lines StartLog(bool packageMode) {
    const Lines packageLines = {"Running ORVEX Install with \"pkg installer\"",
                                "Check for pkg filename"};
    return Concat({{"Starting ORVEX Detect"},
                   AbsentLog(),
                   {"Get installer path attributes", "Running ORVEX Install"},
                   packageMode ? packageLines : Lines()});
  }

  /// ... of an installation from an image, up to the search.
  static Lines AttachedLog(bool packageMode) {
    return Concat(
        {StartLog(packageMode), {"Running ORVEX Install with installer", "Searching for app"}});
  }

  /// ... up to the copies of MakePackageImage() or MakeApplicationImage().
  static Lines CopiedLog(bool packageMode) {
    return Concat({AttachedLog(packageMode),
                   {packageMode ? "Found app path: Setup.pkg" : "Found app path: Setup.app",
                    "Found installer path:installer.xml", "Running ORVEX install process"}});
  }

  static Lines InstalledLog(int status) {
    return Concat({{"Running ORVEX Install",
                    "ORVEX Install finished with exit code: " + std::to_string(status),
                    "Starting final ORVEX Detect"},
                   AbsentLog(),
                   {"Finished ORVEX Detect", FinishedLine(status)}});
  }

  static std::string FinishedLine(int status) {
    return "Finished ORVEX install with status: " + std::to_string(status);
  }

  /// The attach output; a device at the top makes the detaching work.
  PropertyListValue attachOutput_ =
      Dictionary({{"system-entities", Array({Mounted(kMountPoint)})}});
  int attachStatus_ = 0;
  int detachStatus_ = 0;
  std::function<void()> whenInstalling_;
  /// What was there while the installer ran.
  std::vector<std::string> pathsWhenInstalling_;
  std::string result_;

 private:
  void RunDiskImageTool(const Task& task) {
    const bool attaches = task.arguments.front() == "attach";
    world.programs[kDiskImageTool].status = attaches ? attachStatus_ : detachStatus_;
    if (!attaches) {
      for (const auto& [path, node] : image_) {
        world.files.erase(std::string(kMountPoint) + "/" + path);
      }
      return;
    }
    EXPECT_TRUE(world.Exists(task.standardOutputPath)) << "the output file is not there";
    EXPECT_EQ(world.files[task.standardOutputPath].contents, "");
    world.propertyLists[task.standardOutputPath] = attachOutput_;
    for (const auto& [path, node] : image_) {
      world.files[std::string(kMountPoint) + "/" + path] = node;
    }
  }

  void RunInstaller() {
    pathsWhenInstalling_ = Paths();
    if (whenInstalling_) whenInstalling_();
  }

  std::map<std::string, fake::Node> image_;
  int firstNumber_ = 0;
};

// Before anything is installed.

TEST_F(InstallerRunnerTest, HealthyProductIsThere) {
  InstallTypical();
  for (const bool packageMode : {kPackageMode, kApplicationMode}) {
    world.uuids = 0;
    ScriptAnswers({"{}", R"({"companyID":"C","endpointID":"E"})"});
    EXPECT_EQ(Install(packageMode), 16);
    EXPECT_EQ(result_, kTypicalRecord);
    EXPECT_THAT(TakeLog(),
                ElementsAreArray(Concat(
                    {{"Starting ORVEX Detect"}, TypicalDetectionLog(), {"ORVEX Already exists"}})));
  }
  EXPECT_THAT(world.tasks, IsEmpty());
}

TEST_F(InstallerRunnerTest, UnhealthyProductIsThere) {
  world.AddDirectory("/Library/Corvane/XQP/enterprise");
  world.processTableFails = true;
  EXPECT_EQ(Install(kPackageMode, "/not/there"), 16);
  EXPECT_EQ(result_, "2|||");
  const Lines log = TakeLog();
  EXPECT_EQ(log.front(), "Starting ORVEX Detect");
  EXPECT_THAT(Lines(log.end() - 3, log.end()),
              ElementsAre("ORVEX Already exists", "ORVEX Detect finished", "ORVEX Already exists"));
  EXPECT_THAT(world.tasks, IsEmpty());
}

TEST_F(InstallerRunnerTest, InstallerCannotBeAccessed) {
  const auto lines = [] {
    return Concat(
        {{"Starting ORVEX Detect"},
         AbsentLog(),
         {"Get installer path attributes", "Invalid file attributes or Installer is a directory"}});
  };
  for (const bool packageMode : {kPackageMode, kApplicationMode}) {
    Expect(packageMode, "/not/there.pkg", ENOENT, lines());
    Expect(packageMode, "", ENOENT, lines());
    for (const int error : {EACCES, ENOTDIR, ELOOP}) {
      world.files[kImage].accessError = error;
      Expect(packageMode, kImage, error, lines());
    }
    world.files[kImage].accessError = 0;
  }
  EXPECT_THAT(world.tasks, IsEmpty());
}

// Packages given directly.

class DirectPackageTest : public InstallerRunnerTest {
 protected:
  DirectPackageTest() { world.files.clear(); }

  void AddPackage(const std::string& path, const std::string& configuration) {
    world.AddFile(path, "package");
    world.AddFile(configuration, "configuration");
  }

  static Lines CheckedLog() {
    return Concat({StartLog(kPackageMode), {"Checking for installer xml"}});
  }

  static Lines WholeLog(int status) {
    return Concat({CheckedLog(),
                   {"Running ORVEX Install",
                    "ORVEX Install finished with exit code: " + std::to_string(status),
                    "Starting ORVEX detect"},
                   AbsentLog(),
                   {"Finished ORVEX detect"}});
  }
};

TEST_F(DirectPackageTest, IsInstalledAndDeleted) {
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  world.AddFile("/x/other", "");
  Expect(kPackageMode, "/x/Setup.pkg", 0, WholeLog(0));
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][/x/Setup.pkg][-target][/]"));
  EXPECT_THAT(pathsWhenInstalling_, ElementsAre("/x/Setup.pkg", "/x/installer.xml", "/x/other"));
  EXPECT_THAT(Paths(), ElementsAre("/x/other"));
}

TEST_F(DirectPackageTest, CaseOfTheExtensionDoesNotCount) {
  for (const char* const path : {"/tmp/x/Setup.PKG", "/tmp/x/a.b.Pkg"}) {
    world.tasks.clear();
    AddPackage(path, "/tmp/x/installer.xml");
    Expect(kPackageMode, path, 0, WholeLog(0));
    EXPECT_THAT(Tasks(),
                ElementsAre("[/usr/sbin/installer][-pkg][" + std::string(path) + "][-target][/]"));
    EXPECT_THAT(Paths(), IsEmpty());
  }
}

TEST_F(DirectPackageTest, FailedInstallationDeletesTheFilesToo) {
  for (const int status : {1, 9, 255}) {
    AddPackage("/x/Setup.pkg", "/x/installer.xml");
    world.programs[kPackageInstaller].status = status;
    Expect(kPackageMode, "/x/Setup.pkg", status, WholeLog(status));
    EXPECT_THAT(Paths(), IsEmpty());
  }
}

TEST_F(DirectPackageTest, InstallerCannotBeStarted) {
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  world.programs.clear();
  Expect(kPackageMode, "/x/Setup.pkg", ENOENT, WholeLog(ENOENT));
  EXPECT_THAT(Paths(), IsEmpty());
}

TEST_F(DirectPackageTest, ResultIsTheNewState) {
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  world.programs[kPackageInstaller].status = 7;
  whenInstalling_ = [this] { InstallTypical(); };
  EXPECT_EQ(Install(kPackageMode, "/x/Setup.pkg"), 7);
  EXPECT_EQ(result_, kTypicalRecord);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({CheckedLog(),
                               {"Running ORVEX Install", "ORVEX Install finished with exit code: 7",
                                "Starting ORVEX detect"},
                               TypicalDetectionLog(),
                               {"Finished ORVEX detect"}})));
}

TEST_F(DirectPackageTest, FilesThatCannotBeDeletedStay) {
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  world.files["/x/Setup.pkg"].failsToRemove = true;
  Expect(kPackageMode, "/x/Setup.pkg", 0, WholeLog(0));
  EXPECT_THAT(Paths(), ElementsAre("/x/Setup.pkg"));
}

TEST_F(DirectPackageTest, RelativePath) {
  AddPackage("Setup.pkg", "installer.xml");
  Expect(kPackageMode, "Setup.pkg", 0, WholeLog(0));
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][Setup.pkg][-target][/]"));
  EXPECT_THAT(Paths(), IsEmpty());

  AddPackage("dir/Setup.pkg", "dir/installer.xml");
  Expect(kPackageMode, "dir/Setup.pkg", 0, WholeLog(0));
  EXPECT_THAT(Paths(), IsEmpty());
}

TEST_F(DirectPackageTest, BundlePackageWithTrailingSlash) {
  world.AddDirectory("/x/Setup.pkg");
  world.AddFile("/x/Setup.pkg/Contents");
  world.AddFile("/x/installer.xml");
  world.AddFile("/x/Setup.pkg/installer.xml");
  Expect(kPackageMode, "/x/Setup.pkg/", 0, WholeLog(0));
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][/x/Setup.pkg/][-target][/]"));
  EXPECT_THAT(Paths(), IsEmpty());
}

TEST_F(DirectPackageTest, UnusualNamesAreSingleWords) {
  const std::string directory = "/x/it's \"a\" $HOME `b`;*é漢";
  AddPackage(directory + "/-pkg -target.pkg", directory + "/installer.xml");
  Expect(kPackageMode, directory + "/-pkg -target.pkg", 0, WholeLog(0));
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][" + directory +
                                   "/-pkg -target.pkg][-target][/]"));
  EXPECT_THAT(Paths(), IsEmpty());
}

TEST_F(DirectPackageTest, PackageVanishes) {
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  world.files["/x/Setup.pkg"].vanishesOnceAccessed = true;
  Expect(kPackageMode, "/x/Setup.pkg", 2,
         Concat({StartLog(kPackageMode), {"pkg file does not exist"}}));
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre("/x/installer.xml"));
}

TEST_F(DirectPackageTest, WithoutConfiguration) {
  world.AddFile("/x/Setup.pkg", "package");
  world.AddFile("/x/Installer.xml", "another name");
  world.AddFile("/x/sub/installer.xml", "elsewhere");
  const Lines lines = Concat({CheckedLog(), {"Installer xml does not exist"}});
  Expect(kPackageMode, "/x/Setup.pkg", 2, lines);
  world.files["/x/installer.xml"].isSymbolicLink = true;
  Expect(kPackageMode, "/x/Setup.pkg", 2, lines);
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre("/x/Installer.xml", "/x/Setup.pkg", "/x/installer.xml",
                                   "/x/sub/installer.xml"));
}

TEST_F(DirectPackageTest, OtherNamesAreTakenForImages) {
  attachStatus_ = 1;
  for (const char* const path : {"/x/.pkg", "/x/pkg", "/x/Setup.pkg.dmg", "/x/Setup.mpkg",
                                 "/x/Setup.pk", "/x/Setup.pkg ", "/x/Setup.", "/x.pkg/Setup"}) {
    world.AddFile(path);
    Expect(kPackageMode, path, 1,
           Concat({StartLog(kPackageMode),
                   {"Running ORVEX Install with installer",
                    "Failed to mount installer. Exit code: 1"}}));
    world.files.erase(OutputFile());
    std::srand(1);
  }
}

TEST_F(DirectPackageTest, IsTakenForAnImageInApplicationMode) {
  attachStatus_ = 1;
  AddPackage("/x/Setup.pkg", "/x/installer.xml");
  Expect(kApplicationMode, "/x/Setup.pkg", 1,
         Concat({StartLog(kApplicationMode),
                 {"Running ORVEX Install with installer",
                  "Failed to mount installer. Exit code: 1"}}));
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords("/x/Setup.pkg")));
  EXPECT_THAT(Paths(), ElementsAre(OutputFile(), "/x/Setup.pkg", "/x/installer.xml"));
}

// Disk images: attaching.

class DiskImageTest : public InstallerRunnerTest, public testing::WithParamInterface<bool> {
 protected:
  /// Both modes install from an image in the same steps but for the signature check.
  bool IsPackageMode() const { return GetParam(); }

  std::string ItemName() const { return IsPackageMode() ? "Setup.pkg" : "Setup.app"; }
  std::string Destination() const { return "/downloads/" + ItemName(); }

  void MakeImage() {
    if (IsPackageMode()) {
      MakePackageImage();
    } else {
      MakeApplicationImage();
    }
  }

  /// An image whose item is a single file in both modes.
  void MakeFlatImage() {
    MakePackageImage();
    AddToImage("Setup.app", "a file will do");
  }

  /// The line of the signature check, which there is in application mode only.
  Lines CheckLog() const {
    if (IsPackageMode()) return {};
    return Concat({{"Checking code signature for " + Destination()},
                   fake::AcceptedSignatureLog(Destination())});
  }

  std::string InstallWords() const {
    return IsPackageMode() ? "[/usr/sbin/installer][-pkg][/downloads/Setup.pkg][-target][/]"
                           : "[/downloads/Setup.app/Contents/MacOS/Setup][--silent]";
  }

  void SetInstallStatus(int status) {
    world.programs[IsPackageMode() ? kPackageInstaller : kApplication].status = status;
  }

  void ExpectInstalled(int status = 0) {
    Expect(IsPackageMode(), kImage, status,
           Concat({CopiedLog(IsPackageMode()), CheckLog(), InstalledLog(status)}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), InstallWords(), "[/usr/bin/hdiutil][detach]"));
    EXPECT_THAT(Paths(), ElementsAre(kImage));
  }

  /// Expects the road that ends with a clean-up before anything was installed.
  void ExpectGivenUp(int status, const Lines& lines, const std::vector<std::string>& pathsLeft) {
    Expect(IsPackageMode(), kImage, status, Concat({lines, {FinishedLine(status)}}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), "[/usr/bin/hdiutil][detach]"));
    EXPECT_THAT(Paths(), ElementsAreArray(pathsLeft));
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, DiskImageTest, testing::Bool(), [](const auto& mode) {
  return std::string(mode.param ? "Package" : "Application");
});

TEST_P(DiskImageTest, NoTemporaryDirectory) {
  world.temporaryDirectory = std::nullopt;
  Expect(IsPackageMode(), kImage, 2,
         Concat({StartLog(IsPackageMode()),
                 {"Running ORVEX Install with installer", "Cannot create temporary directory"}}));
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_P(DiskImageTest, OutputFileCannotBeCreated) {
  for (const int error : {EACCES, ENOSPC, EROFS}) {
    world.createError = error;
    Expect(IsPackageMode(), kImage, error,
           Concat({StartLog(IsPackageMode()),
                   {"Running ORVEX Install with installer",
                    "Failed to mount installer. Exit code: " + std::to_string(error)}}));
  }
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_P(DiskImageTest, NextFreeNameIsTakenForTheOutputFile) {
  attachStatus_ = 1;
  EXPECT_EQ(Install(IsPackageMode()), 1);
  std::srand(1);
  EXPECT_EQ(Install(IsPackageMode()), 1);
  std::srand(1);
  world.AddDirectory(OutputFile(2));
  world.files[OutputFile(3)].isSymbolicLink = true;
  EXPECT_EQ(Install(IsPackageMode()), 1);
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), AttachWords(kImage, 1), AttachWords(kImage, 4)));
  EXPECT_THAT(Paths(), ElementsAre(kImage, OutputFile(), OutputFile(1), OutputFile(2),
                                   OutputFile(3), OutputFile(4)));
}

TEST_P(DiskImageTest, LeastNumberFollowsTheGreatest) {
  constexpr unsigned kSeedOfTheGreatest = 844464397;
  std::srand(kSeedOfTheGreatest);
  if (std::rand() != INT_MAX) GTEST_SKIP() << "another generator than glibc's";
  std::srand(kSeedOfTheGreatest);
  world.AddFile("/tmp/KXToolInstall_2147483647");
  world.AddFile("/tmp/KXToolInstall_-2147483648");
  attachStatus_ = 1;
  EXPECT_EQ(Install(IsPackageMode()), 1);
  EXPECT_EQ(world.tasks.at(0).standardOutputPath, "/tmp/KXToolInstall_-2147483647");
}

TEST_P(DiskImageTest, OneRandomNumberIsDrawn) {
  attachStatus_ = 1;
  world.AddFile(OutputFile());
  world.AddFile(OutputFile(1));
  EXPECT_EQ(Install(IsPackageMode()), 1);
  const int next = std::rand();
  std::srand(1);
  std::rand();
  EXPECT_EQ(next, std::rand());
}

TEST_P(DiskImageTest, OutputFileLiesInTheTemporaryDirectory) {
  world.temporaryDirectory = "/var/folders/a b/T/";
  attachStatus_ = 1;
  EXPECT_EQ(Install(IsPackageMode()), 1);
  EXPECT_EQ(world.tasks.at(0).standardOutputPath,
            "/var/folders/a b/T/" + OutputFile().substr(std::string("/tmp/").size()));
}

TEST_P(DiskImageTest, AttachingFails) {
  MakeImage();
  for (const int status : {1, 9, 255}) {
    std::srand(1);
    world.files = {{kImage, {}}};
    world.tasks.clear();
    attachStatus_ = status;
    Expect(IsPackageMode(), kImage, status,
           Concat({StartLog(IsPackageMode()),
                   {"Running ORVEX Install with installer",
                    "Failed to mount installer. Exit code: " + std::to_string(status)}}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords())) << "no detaching";
    EXPECT_TRUE(world.Exists(OutputFile())) << "the output file stays";
    EXPECT_FALSE(world.Exists(Destination()));
  }
}

TEST_P(DiskImageTest, DiskImageToolCannotBeStarted) {
  world.programs.clear();
  Expect(IsPackageMode(), kImage, ENOENT,
         Concat({StartLog(IsPackageMode()),
                 {"Running ORVEX Install with installer",
                  "Failed to mount installer. Exit code: " + std::to_string(ENOENT)}}));
  EXPECT_THAT(Paths(), ElementsAre(kImage, OutputFile()));
}

TEST_P(DiskImageTest, NoMountPoint) {
  MakeImage();
  for (const PropertyListValue& output :
       {Dictionary({}), Dictionary({{"system-entities", Array({})}}),
        Dictionary({{"system-entities", Mounted(kMountPoint)}}),
        Dictionary({{"mount-point", Text(kMountPoint)}}),
        Dictionary({{"system-entities", Array({Dictionary({{"mount-point", Array({})}})})}})}) {
    std::srand(1);
    world.files = {{kImage, {}}};
    world.tasks.clear();
    attachOutput_ = output;
    Expect(IsPackageMode(), kImage, 2,
           Concat({StartLog(IsPackageMode()),
                   {"Running ORVEX Install with installer", "Cannot find mount point"}}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords())) << "no detaching";
    EXPECT_TRUE(world.Exists(OutputFile())) << "the output file stays";
    EXPECT_FALSE(world.Exists(Destination()));
  }
}

TEST_P(DiskImageTest, AttachOutputIsNoPropertyList) {
  world.programs[kDiskImageTool].effect = nullptr;
  Expect(IsPackageMode(), kImage, 2,
         Concat({StartLog(IsPackageMode()),
                 {"Running ORVEX Install with installer", "Cannot find mount point"}}));
  EXPECT_THAT(Paths(), ElementsAre(kImage, OutputFile()));
}

// Disk images: the whole road.

TEST_P(DiskImageTest, Installed) {
  MakeImage();
  ExpectInstalled();
}

TEST_P(DiskImageTest, CopiesLieBesideTheImageWhileTheInstallerRuns) {
  MakeImage();
  whenInstalling_ = [this] {
    EXPECT_TRUE(world.Exists(Destination()));
    EXPECT_EQ(world.files["/downloads/installer.xml"].contents, "from the image");
    EXPECT_TRUE(world.Exists(std::string(kMountPoint) + "/installer.xml")) << "not attached";
    EXPECT_TRUE(world.Exists(OutputFile()));
    EXPECT_EQ(world.Exists("/downloads/Setup.app/Contents/Info.plist"), !IsPackageMode());
  };
  ExpectInstalled();
  EXPECT_THAT(pathsWhenInstalling_, testing::Not(IsEmpty()));
}

TEST_P(DiskImageTest, InstallersStatusPasses) {
  MakeImage();
  for (const int status : {1, 9, 255}) {
    std::srand(1);
    world.tasks.clear();
    SetInstallStatus(status);
    ExpectInstalled(status);
  }
}

TEST_P(DiskImageTest, InstallerCannotBeStarted) {
  MakeImage();
  world.programs.erase(IsPackageMode() ? kPackageInstaller : kApplication);
  ExpectInstalled(ENOENT);
}

TEST_P(DiskImageTest, ResultIsTheNewState) {
  MakeImage();
  whenInstalling_ = [this] { InstallTypical(); };
  EXPECT_EQ(Install(IsPackageMode()), 0);
  EXPECT_EQ(result_, kTypicalRecord);
  EXPECT_THAT(
      TakeLog(),
      ElementsAreArray(Concat({CopiedLog(IsPackageMode()),
                               CheckLog(),
                               {"Running ORVEX Install", "ORVEX Install finished with exit code: 0",
                                "Starting final ORVEX Detect"},
                               TypicalDetectionLog(),
                               {"Finished ORVEX Detect", FinishedLine(0)}})));
  // The image is still attached while the new services start.
  const std::vector<std::string> calls = world.Calls();
  EXPECT_EQ(calls.back(), "run /usr/bin/hdiutil detach");
}

TEST_P(DiskImageTest, WithoutALog) {
  MakeImage();
  std::string result;
  EXPECT_EQ(Tool().ORVEXInstall(result, kImage, IsPackageMode(), nullptr), 0);
  EXPECT_EQ(result, "0|||");
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), InstallWords(), "[/usr/bin/hdiutil][detach]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_P(DiskImageTest, DetachedByTheDeviceAtTheTop) {
  MakeImage();
  attachOutput_.members.emplace_back("dev-entry", Text("/dev/disk4"));
  EXPECT_EQ(Install(IsPackageMode()), 0);
  EXPECT_EQ(Tasks().back(), "[/usr/bin/hdiutil][detach][/dev/disk4][-quiet]");
}

TEST_P(DiskImageTest, DeviceThatIsNoTextIsNone) {
  MakeImage();
  attachOutput_.members.emplace_back("dev-entry", Array({Text("/dev/disk4")}));
  EXPECT_EQ(Install(IsPackageMode()), 0);
  EXPECT_EQ(Tasks().back(), "[/usr/bin/hdiutil][detach]");
}

TEST_P(DiskImageTest, FailedDetachingIsIgnored) {
  MakeImage();
  detachStatus_ = 16;
  ExpectInstalled();
}

TEST_P(DiskImageTest, OutputFileThatIsNotDeletableStays) {
  MakeImage();
  whenInstalling_ = [this] { world.files[OutputFile()].isDeletable = false; };
  EXPECT_EQ(Install(IsPackageMode()), 0);
  EXPECT_THAT(Paths(), ElementsAre(kImage, OutputFile()));
}

TEST_P(DiskImageTest, OutputFileThatVanishedIsNoMatter) {
  MakeImage();
  whenInstalling_ = [this] { world.files.erase(OutputFile()); };
  ExpectInstalled();
}

// Disk images: what is copied.

TEST_P(DiskImageTest, NothingOnTheImage) {
  ExpectGivenUp(2,
                Concat({AttachedLog(IsPackageMode()),
                        {"Running ORVEX install process",
                         "app or installer xml does exist at given path:  (null)  (null)  "
                         "/downloads/installer.xml"}}),
                {kImage});
}

TEST_P(DiskImageTest, NoItemOnTheImage) {
  AddToImage("installer.xml", "");
  AddToImage(IsPackageMode() ? "Setup.app" : "Setup.pkg", "of the other mode");
  world.AddFile("/downloads/installer.xml", "kept");
  ExpectGivenUp(2,
                Concat({AttachedLog(IsPackageMode()),
                        {"Found installer path:installer.xml", "Running ORVEX install process",
                         "app or installer xml does exist at given path:  (null)  installer.xml  "
                         "/downloads/installer.xml"}}),
                {"/downloads/installer.xml", kImage});
}

TEST_P(DiskImageTest, NoConfigurationAnywhere) {
  MakeImage();
  AddToImage("installer.xml.bak", "");
  const std::string found = ItemName();
  RemoveFromImage("installer.xml");
  ExpectGivenUp(2,
                Concat({AttachedLog(IsPackageMode()),
                        {"Found app path: " + found, "Running ORVEX install process",
                         "app or installer xml does exist at given path:  " + found +
                             "  (null)  /downloads/installer.xml"}}),
                {kImage});
}

TEST_P(DiskImageTest, ConfigurationBesideTheImageIsEnough) {
  MakeImage();
  RemoveFromImage("installer.xml");
  world.AddFile("/downloads/installer.xml", "beside");
  whenInstalling_ = [this] {
    EXPECT_EQ(world.files["/downloads/installer.xml"].contents, "beside");
  };
  Expect(IsPackageMode(), kImage, 0,
         Concat({AttachedLog(IsPackageMode()),
                 {"Found app path: " + ItemName(), "Running ORVEX install process"},
                 CheckLog(),
                 InstalledLog(0)}));
  EXPECT_THAT(Paths(), ElementsAre(kImage)) << "it goes with the run";
}

TEST_P(DiskImageTest, ConfigurationBesideTheImageIsKeptAndUsed) {
  MakeImage();
  world.AddFile("/downloads/installer.xml", "beside");
  whenInstalling_ = [this] {
    EXPECT_EQ(world.files["/downloads/installer.xml"].contents, "beside");
  };
  ExpectInstalled();
}

TEST_P(DiskImageTest, OlderCopyOfTheItemIsReplaced) {
  MakeImage();
  world.AddDirectory(Destination());
  world.AddFile(Destination() + "/old", "old");
  whenInstalling_ = [this] { EXPECT_FALSE(world.Exists(Destination() + "/old")); };
  ExpectInstalled();
}

TEST_P(DiskImageTest, OlderCopyCannotBeDeleted) {
  MakeImage();
  world.AddFile(Destination(), "old");
  world.files[Destination()].failsToRemove = true;
  ExpectGivenUp(13, Concat({CopiedLog(IsPackageMode()), {"Cannot remove app path"}}),
                {Destination(), kImage});
  EXPECT_EQ(world.files[Destination()].contents, "old");
}

constexpr char kCannotCopy[] =
    "Cannot copy new app or installer xml does not exist and it cannot be copied";

TEST_P(DiskImageTest, ItemCannotBeCopied) {
  MakeImage();
  FailToCopy(ItemName());
  ExpectGivenUp(2, Concat({CopiedLog(IsPackageMode()), {kCannotCopy}}), {kImage});
}

TEST_P(DiskImageTest, ConfigurationCannotBeCopied) {
  MakeFlatImage();
  FailToCopy("installer.xml");
  ExpectGivenUp(2,
                Concat({AttachedLog(IsPackageMode()),
                        IsPackageMode() ? Lines{"Found app path: Setup.pkg"}
                                        : Lines{"Found app path: Setup.app"},
                        {"Found installer path:installer.xml", "Running ORVEX install process",
                         kCannotCopy}}),
                // The item that was copied before stays.
                {Destination(), kImage});
}

TEST_P(DiskImageTest, DanglingLinkInTheWayOfACopy) {
  MakeImage();
  world.files[Destination()].isSymbolicLink = true;
  ExpectGivenUp(2, Concat({CopiedLog(IsPackageMode()), {kCannotCopy}}), {Destination(), kImage});
}

TEST_P(DiskImageTest, ConfigurationThatAppearsWhileTheItemIsCopiedIsKeptAndUsed) {
  MakeImage();
  OnceCopied(ItemName(), [this] { world.AddFile("/downloads/installer.xml", "beside"); });
  whenInstalling_ = [this] {
    EXPECT_EQ(world.files["/downloads/installer.xml"].contents, "beside");
  };
  ExpectInstalled();
}

TEST_P(DiskImageTest, ConfigurationThatLedIntoTheOlderCopyLeadsNowhere) {
  MakeFlatImage();
  world.AddFile("/downloads/installer.xml", "inside the older copy");
  world.AddDirectory(Destination());
  world.files[Destination()].afterwards = [this] {
    world.files["/downloads/installer.xml"].isSymbolicLink = true;
  };
  ExpectGivenUp(2, Concat({CopiedLog(IsPackageMode()), {kCannotCopy}}),
                // Both copies stay: that of the item, and the link in the other's way.
                {Destination(), "/downloads/installer.xml", kImage});
}

TEST_P(DiskImageTest, OnlyConfigurationVanishesWithTheOlderCopy) {
  MakeFlatImage();
  RemoveFromImage("installer.xml");
  world.AddFile("/downloads/installer.xml", "inside the older copy");
  world.AddDirectory(Destination());
  world.files[Destination()].afterwards = [this] { world.files.erase("/downloads/installer.xml"); };
  ExpectGivenUp(
      2,
      Concat({AttachedLog(IsPackageMode()),
              {"Found app path: " + ItemName(), "Running ORVEX install process", kCannotCopy}}),
      {Destination(), kImage});
}

TEST_P(DiskImageTest, ImageInTheWorkingDirectory) {
  world.files = {{"setup.dmg", {}}};
  MakeImage();
  world.signatures[ItemName()] = fake::Signature::Makers();
  world.applicationExecutables[ItemName()] = kApplication;
  whenInstalling_ = [this] {
    EXPECT_TRUE(world.Exists(ItemName()));
    EXPECT_EQ(world.files["installer.xml"].contents, "from the image");
  };
  EXPECT_EQ(Install(IsPackageMode(), "setup.dmg"), 0);
  EXPECT_EQ(Tasks().at(0), AttachWords("setup.dmg"));
  EXPECT_EQ(Tasks().at(1), IsPackageMode() ? "[/usr/sbin/installer][-pkg][Setup.pkg][-target][/]"
                                           : InstallWords());
  EXPECT_THAT(Paths(), ElementsAre("setup.dmg"));
}

TEST_P(DiskImageTest, ImageThatIsADirectory) {
  MakeImage();
  world.files.clear();
  world.AddDirectory("/downloads/setup.sparsebundle");
  EXPECT_EQ(Install(IsPackageMode(), "/downloads/setup.sparsebundle/"), 0);
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords("/downloads/setup.sparsebundle/"), InstallWords(),
                                   "[/usr/bin/hdiutil][detach]"));
  EXPECT_THAT(Paths(), ElementsAre("/downloads/setup.sparsebundle"));
}

// Disk images: the search.

TEST_P(DiskImageTest, LaterMatchesReplaceEarlierOnesUntilBothAreFound) {
  const std::string extension = IsPackageMode() ? ".pkg" : ".app";
  for (const char* const name : {"a", "b", "k/c", "zz"}) AddToImage(name + extension, name);
  AddToImage("installer.xml", "i");
  AddToImage("l/installer.xml", "never reached");
  FailToCopy("b" + extension);
  FailToCopy("a" + extension);
  Lines lines = AttachedLog(IsPackageMode());
  lines.insert(lines.end(), {"Found app path: a" + extension, "Found app path: b" + extension,
                             "Found installer path:installer.xml", "Running ORVEX install process",
                             kCannotCopy});
  ExpectGivenUp(2, lines, {kImage});
}

TEST_P(DiskImageTest, LaterConfigurationsReplaceEarlierOnes) {
  const std::string item = IsPackageMode() ? "z.PKG" : "z.APP";
  AddToImage("a/installer.xml", "a");
  AddToImage("b/installer.xml", "b");
  AddToImage("b/INSTALLER.XML", "another name");
  AddToImage("installer.xml.d/x", "");
  AddToImage(item, "item");
  world.signatures["/downloads/" + item] = fake::Signature::Makers();
  world.applicationExecutables["/downloads/" + item] = kApplication;
  world.programs[kApplication] = {};
  Lines found;
  const auto check = [this] { EXPECT_EQ(world.files["/downloads/installer.xml"].contents, "b"); };
  world.programs[IsPackageMode() ? kPackageInstaller : kApplication].effect = [check](const Task&) {
    check();
  };
  EXPECT_EQ(Install(IsPackageMode()), 0);
  for (const std::string& line : TakeLog()) {
    if (line.find("Found app") == 0 || line.find("Found installer") == 0) found.push_back(line);
  }
  EXPECT_THAT(found,
              ElementsAre("Found installer path:a/installer.xml",
                          "Found installer path:b/installer.xml", "Found app path: " + item));
}

TEST_P(DiskImageTest, EntriesCalledLikeADirectoryOfTheWorkingDirectoryAreSkipped) {
  const std::string extension = IsPackageMode() ? ".pkg" : ".app";
  AddToImage("a" + extension, "");
  AddToImage("b" + extension, "");
  AddToImage("c" + extension, "");
  AddToImage("d/installer.xml", "");
  AddToImage("e/installer.xml", "");
  world.AddDirectory("a" + extension);
  world.AddFile("b" + extension);  // a file of that name is no hindrance
  world.AddDirectory("c" + extension);
  world.AddDirectory("d/installer.xml");
  FailToCopy("b" + extension);
  Expect(IsPackageMode(), kImage, 2,
         Concat({AttachedLog(IsPackageMode()),
                 {"Found app path: b" + extension, "Found installer path:e/installer.xml",
                  "Running ORVEX install process", kCannotCopy, FinishedLine(2)}}));
}

TEST_P(DiskImageTest, WhatOnlyLooksLikeAMatch) {
  const std::string extension = IsPackageMode() ? "pkg" : "app";
  for (const std::string& name :
       {"." + extension, extension, "Setup." + extension + ".gz", "Setup.x" + extension,
        "Setup" + extension, "Setup." + extension + " ", std::string("Installer.xml"),
        std::string("installer.xml "), std::string("xinstaller.xml")}) {
    AddToImage(name, "");
  }
  ExpectGivenUp(2,
                Concat({AttachedLog(IsPackageMode()),
                        {"Running ORVEX install process",
                         "app or installer xml does exist at given path:  (null)  (null)  "
                         "/downloads/installer.xml"}}),
                {kImage});
}

TEST_P(DiskImageTest, NestedItemIsCopiedUnderItsLastName) {
  const std::string item = IsPackageMode() ? "deep/er/my setup é.pkg" : "deep/er/my setup é.app";
  const std::string destination =
      IsPackageMode() ? "/downloads/my setup é.pkg" : "/downloads/my setup é.app";
  AddToImage(item, "the item");
  AddToImage("deep/installer.xml", "");
  world.signatures[destination] = fake::Signature::Makers();
  world.applicationExecutables[destination] = "/bin/x";
  world.programs["/bin/x"].effect = world.programs[kPackageInstaller].effect;
  whenInstalling_ = [&] { EXPECT_EQ(world.files[destination].contents, "the item"); };
  EXPECT_EQ(Install(IsPackageMode()), 0);
  EXPECT_EQ(Tasks().at(1), IsPackageMode() ? "[/usr/sbin/installer][-pkg][/downloads/my setup "
                                             "é.pkg][-target][/]"
                                           : "[/bin/x][--silent]");
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_P(DiskImageTest, MountPointWithThousandsOfEntries) {
  for (int number = 0; number < 5000; ++number) AddToImage("a" + std::to_string(number), "");
  MakeImage();
  ExpectInstalled();
}

// Packages on images.

TEST_F(InstallerRunnerTest, PackageOnAnImageIsNotCheckedForItsSignature) {
  MakePackageImage();
  EXPECT_TRUE(world.signatures.empty());
  EXPECT_EQ(Install(kPackageMode), 0);
}

// Applications on images.

class ApplicationImageTest : public InstallerRunnerTest {
 protected:
  static constexpr char kDestination[] = "/downloads/Setup.app";

  ApplicationImageTest() { MakeApplicationImage(); }

  /// Expects the application to be refused, with nothing of it left.
  void ExpectRefused(int code, const Lines& checkLines, const std::string& line) {
    Expect(kApplicationMode, kImage, code,
           Concat({CopiedLog(kApplicationMode),
                   {"Checking code signature for /downloads/Setup.app",
                    "Retrieve Sec static code for /downloads/Setup.app"},
                   checkLines,
                   {line}}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), "[/usr/bin/hdiutil][detach]"));
    EXPECT_THAT(Paths(), ElementsAre(kImage));
  }
};

TEST_F(ApplicationImageTest, NotSigned) {
  world.signatures[kDestination].validity = -67062;
  ExpectRefused(22, {"Check code validity", "Code is not valid"}, "Invalid signature for \"app\"");
}

TEST_F(ApplicationImageTest, SignedByAnotherTeam) {
  world.signatures[kDestination].teamIdentifier = "AAAAAAAAAA";
  Lines lines = fake::AcceptedSignatureLog(kDestination);
  lines.erase(lines.begin());
  lines.back() = "Check complete. File is not signed by Corvane";
  ExpectRefused(22, lines, "Invalid signature for \"app\"");
}

TEST_F(ApplicationImageTest, SignatureCannotBeChecked) {
  world.signatures.clear();
  ExpectRefused(-67068, {"Failed to retrieve static code. Error code: -67068"},
                "Cannot check signature for \"app\". Exit code: -67068");
}

TEST_F(ApplicationImageTest, RefusalDeletesAConfigurationThatWasThereBefore) {
  world.AddFile("/downloads/installer.xml", "beside");
  world.signatures[kDestination].validity = -67062;
  ExpectRefused(22, {"Check code validity", "Code is not valid"}, "Invalid signature for \"app\"");
}

TEST_F(ApplicationImageTest, RefusalDetachesByTheDeviceAtTheTop) {
  attachOutput_.members.emplace_back("dev-entry", Text("/dev/disk4"));
  world.signatures[kDestination].validity = -67062;
  EXPECT_EQ(Install(kApplicationMode), 22);
  EXPECT_EQ(Tasks().back(), "[/usr/bin/hdiutil][detach][/dev/disk4][-quiet]");
}

TEST_F(ApplicationImageTest, RefusalLeavesAnOutputFileThatIsNotDeletable) {
  world.signatures[kDestination].validity = -67062;
  world.programs[kDiskImageTool].effect =
      [this, effect = world.programs[kDiskImageTool].effect](const Task& task) {
        effect(task);
        if (world.Exists(OutputFile())) world.files[OutputFile()].isDeletable = false;
      };
  EXPECT_EQ(Install(kApplicationMode), 22);
  EXPECT_THAT(Paths(), ElementsAre(kImage, OutputFile()));
}

TEST_F(ApplicationImageTest, ApplicationWithoutExecutable) {
  world.applicationExecutables.clear();
  Expect(kApplicationMode, kImage, 2,
         Concat({CopiedLog(kApplicationMode),
                 {"Checking code signature for /downloads/Setup.app"},
                 fake::AcceptedSignatureLog(kDestination),
                 InstalledLog(2)}));
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), "[/usr/bin/hdiutil][detach]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(ApplicationImageTest, ApplicationWithinTheApplicationReplacesIt) {
  // The configuration is found behind both, and so does not end the search between them.
  AddApplicationToImage("Setup.app/Contents/Resources/Helper.app");
  world.signatures["/downloads/Helper.app"] = fake::Signature::Makers();
  world.applicationExecutables["/downloads/Helper.app"] = kApplication;
  EXPECT_EQ(Install(kApplicationMode), 0);
  const Lines log = TakeLog();
  EXPECT_THAT(log, testing::Contains("Found app path: Setup.app/Contents/Resources/Helper.app"));
  EXPECT_THAT(log, testing::Contains("Checking code signature for /downloads/Helper.app"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

// One installation process.

TEST_F(InstallerRunnerTest, RunsOneProcess) {
  world.AddFile("/x/a.pkg");
  world.AddFile("/x/i.xml");
  world.programs[kPackageInstaller].status = 3;
  EXPECT_EQ(Tool().RunInstall("/x/a.pkg", "/x/i.xml", true), 3);
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][/x/a.pkg][-target][/]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(InstallerRunnerTest, ExecutableIsLookedUpBeforeTheItemIsDeleted) {
  world.AddDirectory("/x/a.app");
  world.AddFile("/x/a.app/run");
  world.AddFile("/x/i.xml");
  world.applicationExecutables["/x/a.app"] = "/x/a.app/run";
  world.programs["/x/a.app/run"].effect = [this](const Task&) {
    EXPECT_TRUE(world.Exists("/x/a.app/run"));
    EXPECT_TRUE(world.Exists("/x/i.xml"));
  };
  EXPECT_EQ(Tool().RunInstall("/x/a.app", "/x/i.xml", false), 0);
  EXPECT_THAT(Tasks(), ElementsAre("[/x/a.app/run][--silent]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(InstallerRunnerTest, FilesThatAreNotThereAreNoMatter) {
  EXPECT_EQ(Tool().RunInstall("/x/a.pkg", "/x/i.xml", true), 0);
  EXPECT_EQ(Tool().RunInstall("/x/a.app", "/x/i.xml", false), 2);
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

}  // namespace
}  // namespace install
