// Rules and faults of the installer runner; tests/end_to_end tests the complete flows.

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
using platform::Task;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kDiskImageTool[] = "/usr/bin/hdiutil";
constexpr char kPackageInstaller[] = "/usr/sbin/installer";
constexpr char kImage[] = "/downloads/setup.dmg";
constexpr char kMountPoint[] = "/private/tmp/dmg.x1";
constexpr char kConfiguration[] = "/downloads/installer.xml";
constexpr char kFoundConfiguration[] = "Found installer path:installer.xml";
constexpr char kSearched[] = "Running ORVEX install process";
constexpr char kCannotCopy[] =
    "Cannot copy new app or installer xml does not exist and it cannot be copied";
constexpr bool kPackageMode = true;
constexpr bool kApplicationMode = false;

class InstallerRunnerTest : public fake::ProductFixture {
 protected:
  InstallerRunnerTest() {
    std::srand(1);  // the state of a generator that was never seeded
    outputFile_ = "/tmp/KXToolInstall_" + std::to_string(std::rand());
    std::srand(1);
    world.AddFile(kImage, "image");
    world.programs[kDiskImageTool].effect = [this](const Task& task) { RunDiskImageTool(task); };
    world.programs[kPackageInstaller].effect = [this](const Task&) { whenInstalling_(); };
  }

  void AddToImage(const std::string& path, const std::string& contents = "") {
    image_[path].contents = contents;
  }

  /// Runs the installation in a world without the product.
  int Install(bool packageMode, const std::string& path = kImage) {
    std::string result = "before";
    const int code = Tool().ORVEXInstall(result, path, packageMode, Log());
    EXPECT_EQ(result, "0|||");
    return code;
  }

  /// As above, and compares the code and the whole log.
  void Expect(bool packageMode, const std::string& path, int code, const Lines& lines) {
    EXPECT_EQ(Install(packageMode, path), code);
    EXPECT_THAT(TakeLog(), ElementsAreArray(lines));
  }

  /// The command line of each task, with each word in brackets, and the file that receives its
  /// output.
  std::vector<std::string> Tasks() const {
    std::vector<std::string> tasks;
    for (const Task& task : world.tasks) {
      std::string words = "[" + task.launchPath + "]";
      for (const std::string& argument : task.arguments) words += "[" + argument + "]";
      if (!task.standardOutputPath.empty()) words += " > " + task.standardOutputPath;
      tasks.push_back(words);
    }
    return tasks;
  }

  std::string AttachWords(const std::string& path = kImage) const {
    return "[/usr/bin/hdiutil][attach][" + path + "][-plist][-private][-nobrowse] > " + outputFile_;
  }

  std::vector<std::string> Paths() const {
    std::vector<std::string> paths;
    for (const auto& file : world.files) paths.push_back(file.first);
    return paths;
  }

  static Lines StartLog(bool packageMode) {
    const Lines packageLines = {"Running ORVEX Install with \"pkg installer\"",
                                "Check for pkg filename"};
    return Concat({{"Starting ORVEX Detect"},
                   AbsentLog(),
                   {"Get installer path attributes", "Running ORVEX Install"},
                   packageMode ? packageLines : Lines()});
  }

  static Lines NotMountedLog(bool packageMode, int status) {
    return Concat({StartLog(packageMode),
                   {"Running ORVEX Install with installer",
                    "Failed to mount installer. Exit code: " + std::to_string(status)}});
  }

  platform::PropertyListValue attachOutput_ =
      Dictionary({{"system-entities", Array({Mounted(kMountPoint)})}});
  int attachStatus_ = 0;
  int detachStatus_ = 0;
  std::string outputFile_;
  std::map<std::string, fake::Node> image_;
  std::function<void()> whenInstalling_ = [] {};

 private:
  void RunDiskImageTool(const Task& task) {
    const bool attaches = task.arguments.front() == "attach";
    world.programs[kDiskImageTool].status = attaches ? attachStatus_ : detachStatus_;
    if (attaches) {
      EXPECT_TRUE(world.Exists(task.standardOutputPath)) << "the output file is missing";
      world.propertyLists[task.standardOutputPath] = attachOutput_;
    }
    for (const auto& [path, node] : image_) {
      const std::string mounted = std::string(kMountPoint) + "/" + path;
      if (attaches) {
        world.files[mounted] = node;
      } else {
        world.files.erase(mounted);
      }
    }
  }
};

TEST_F(InstallerRunnerTest, ProductIsThere) {
  for (const bool isHealthy : {true, false}) {
    InstallTypical();
    world.processTableFails = !isHealthy;
    std::string result;
    EXPECT_EQ(Tool().ORVEXInstall(result, kImage, kPackageMode, nullptr), 16);
    EXPECT_EQ(result, isHealthy ? "1|C|G|E" : "2|c|G|h");
  }
  EXPECT_THAT(world.tasks, IsEmpty());
}

// Packages given directly.

class DirectPackageTest : public InstallerRunnerTest {
 protected:
  DirectPackageTest() {
    world.files.clear();
    world.AddFile("/x/Setup.pkg", "package");
    world.AddFile("/x/installer.xml", "configuration");
  }
};

TEST_F(DirectPackageTest, FilesThatCannotBeDeletedStay) {
  world.files["/x/Setup.pkg"].failsToRemove = true;
  EXPECT_EQ(Install(kPackageMode, "/x/Setup.pkg"), 0);
  EXPECT_THAT(Tasks(), ElementsAre("[/usr/sbin/installer][-pkg][/x/Setup.pkg][-target][/]"));
  EXPECT_THAT(Paths(), ElementsAre("/x/Setup.pkg"));
}

TEST_F(DirectPackageTest, PackageVanishes) {
  world.files["/x/Setup.pkg"].vanishesOnceAccessed = true;
  Expect(kPackageMode, "/x/Setup.pkg", 2,
         Concat({StartLog(kPackageMode), {"pkg file does not exist"}}));
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre("/x/installer.xml"));
}

TEST_F(DirectPackageTest, WithoutConfiguration) {
  world.files.erase("/x/installer.xml");
  Expect(kPackageMode, "/x/Setup.pkg", 2,
         Concat({StartLog(kPackageMode),
                 {"Checking for installer xml", "Installer xml does not exist"}}));
}

TEST_F(DirectPackageTest, FilesWithOtherNamesAreTakenForImages) {
  attachStatus_ = 1;
  for (const char* const path : {"/x/.pkg", "/x/pkg", "/x/Setup.pkg.dmg", "/x/Setup.mpkg",
                                 "/x/Setup.pk", "/x/Setup.pkg ", "/x/Setup.", "/x.pkg/Setup"}) {
    world.AddFile(path);
    Expect(kPackageMode, path, 1, NotMountedLog(kPackageMode, 1));
    world.files.erase(outputFile_);
    std::srand(1);
  }
}

TEST_F(DirectPackageTest, PackageIsTakenForAnImageInApplicationMode) {
  attachStatus_ = 1;
  Expect(kApplicationMode, "/x/Setup.pkg", 1, NotMountedLog(kApplicationMode, 1));
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords("/x/Setup.pkg")));
  EXPECT_THAT(Paths(), ElementsAre(outputFile_, "/x/Setup.pkg", "/x/installer.xml"));
}

// Disk images. Only the check of an application depends on the mode.

class DiskImageTest : public InstallerRunnerTest {
 protected:
  static constexpr char kPackage[] = "/downloads/Setup.pkg";

  DiskImageTest() {
    AddToImage("Setup.pkg", "package");
    AddToImage("installer.xml", "from the image");
  }

  void ExpectInstalled(const Lines& found = {"Found app path: Setup.pkg", kFoundConfiguration}) {
    Expect(kPackageMode, kImage, 0,
           Concat({StartLog(kPackageMode),
                   {"Running ORVEX Install with installer", "Searching for app"},
                   found,
                   {kSearched, "Running ORVEX Install", "ORVEX Install finished with exit code: 0",
                    "Starting final ORVEX Detect"},
                   AbsentLog(),
                   {"Finished ORVEX Detect", "Finished ORVEX install with status: 0"}}));
    EXPECT_THAT(
        Tasks(),
        ElementsAre(AttachWords(), "[/usr/sbin/installer][-pkg][/downloads/Setup.pkg][-target][/]",
                    "[/usr/bin/hdiutil][detach]"));
    EXPECT_THAT(Paths(), ElementsAre(kImage));
  }

  /// Expects the installation to end after the search, which logs `found`, with the line `problem`.
  void ExpectGivenUp(int status, const Lines& found, const std::string& problem,
                     const std::vector<std::string>& pathsLeft) {
    Expect(kPackageMode, kImage, status,
           Concat({StartLog(kPackageMode),
                   {"Running ORVEX Install with installer", "Searching for app"},
                   found,
                   {kSearched, problem,
                    "Finished ORVEX install with status: " + std::to_string(status)}}));
    EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), "[/usr/bin/hdiutil][detach]"));
    EXPECT_THAT(Paths(), ElementsAreArray(pathsLeft));
  }

  void ExpectNotCopied(const std::vector<std::string>& pathsLeft) {
    ExpectGivenUp(2, {"Found app path: Setup.pkg", kFoundConfiguration}, kCannotCopy, pathsLeft);
  }

  static std::string MissingLine(const std::string& item, const std::string& configuration) {
    return "app or installer xml does exist at given path:  " + item + "  " + configuration + "  " +
           kConfiguration;
  }
};

TEST_F(DiskImageTest, NoTemporaryDirectory) {
  world.temporaryDirectory = std::nullopt;
  Expect(kPackageMode, kImage, 2,
         Concat({StartLog(kPackageMode),
                 {"Running ORVEX Install with installer", "Cannot create temporary directory"}}));
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(DiskImageTest, NoMountPoint) {
  world.programs[kDiskImageTool].effect = nullptr;  // it writes nothing
  Expect(kPackageMode, kImage, 2,
         Concat({StartLog(kPackageMode),
                 {"Running ORVEX Install with installer", "Cannot find mount point"}}));
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords()));
  EXPECT_THAT(Paths(), ElementsAre(kImage, outputFile_));
}

TEST_F(DiskImageTest, DeviceAtTheTopIsDetached) {
  attachOutput_.members.emplace_back("dev-entry", Text("/dev/disk4"));
  EXPECT_EQ(Install(kPackageMode), 0);
  EXPECT_EQ(Tasks().back(), "[/usr/bin/hdiutil][detach][/dev/disk4][-quiet]");
}

TEST_F(DiskImageTest, OutputFileCannotBeCreated) {
  for (const int error : {EACCES, ENOSPC, EROFS}) {
    world.createError = error;
    Expect(kPackageMode, kImage, error, NotMountedLog(kPackageMode, error));
  }
  EXPECT_THAT(world.tasks, IsEmpty());
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(DiskImageTest, LeastNumberFollowsTheGreatest) {
  constexpr unsigned kSeedOfTheGreatest = 844464397;
  std::srand(kSeedOfTheGreatest);
  if (std::rand() != INT_MAX) GTEST_SKIP() << "the generator is not glibc's";
  std::srand(kSeedOfTheGreatest);
  world.AddFile("/tmp/KXToolInstall_2147483647");
  world.AddFile("/tmp/KXToolInstall_-2147483648");
  attachStatus_ = 1;
  EXPECT_EQ(Install(kPackageMode), 1);
  EXPECT_EQ(world.tasks.at(0).standardOutputPath, "/tmp/KXToolInstall_-2147483647");
}

TEST_F(DiskImageTest, CopiesLieBesideTheImageWhileTheInstallerRuns) {
  bool isInstalled = false;
  whenInstalling_ = [&] {
    isInstalled = true;
    EXPECT_EQ(world.files[kPackage].contents, "package");
    EXPECT_EQ(world.files[kConfiguration].contents, "from the image");
    EXPECT_TRUE(world.Exists(std::string(kMountPoint) + "/installer.xml")) << "not attached";
    EXPECT_TRUE(world.Exists(outputFile_));
  };
  ExpectInstalled();
  EXPECT_TRUE(isInstalled);
}

TEST_F(DiskImageTest, WithoutALog) {
  std::string result;
  EXPECT_EQ(Tool().ORVEXInstall(result, kImage, kPackageMode, nullptr), 0);
  EXPECT_EQ(result, "0|||");
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(DiskImageTest, FailedDetachmentIsIgnored) {
  detachStatus_ = 16;
  ExpectInstalled();
}

TEST_F(DiskImageTest, OutputFileThatIsNotDeletableStays) {
  whenInstalling_ = [this] { world.files[outputFile_].isDeletable = false; };
  EXPECT_EQ(Install(kPackageMode), 0);
  EXPECT_THAT(Paths(), ElementsAre(kImage, outputFile_));
}

TEST_F(DiskImageTest, OutputFileVanishes) {
  whenInstalling_ = [this] { world.files.erase(outputFile_); };
  ExpectInstalled();
}

TEST_F(DiskImageTest, ImageThatIsADirectory) {
  world.files.clear();
  world.AddDirectory("/downloads/setup.sparsebundle");
  EXPECT_EQ(Install(kPackageMode, "/downloads/setup.sparsebundle/"), 0);
  EXPECT_EQ(Tasks().front(), AttachWords("/downloads/setup.sparsebundle/"));
  EXPECT_THAT(Paths(), ElementsAre("/downloads/setup.sparsebundle"));
}

// What is copied.

TEST_F(DiskImageTest, NoPackageOnTheImage) {
  image_.erase("Setup.pkg");
  AddToImage("Setup.app");
  world.AddFile(kConfiguration, "kept");
  ExpectGivenUp(2, {kFoundConfiguration}, MissingLine("(null)", "installer.xml"),
                {kConfiguration, kImage});
}

TEST_F(DiskImageTest, NoConfigurationAnywhere) {
  image_.erase("installer.xml");
  ExpectGivenUp(2, {"Found app path: Setup.pkg"}, MissingLine("Setup.pkg", "(null)"), {kImage});
}

TEST_F(DiskImageTest, ConfigurationBesideTheImageIsEnough) {
  image_.erase("installer.xml");
  world.AddFile(kConfiguration, "beside");
  whenInstalling_ = [this] { EXPECT_EQ(world.files[kConfiguration].contents, "beside"); };
  ExpectInstalled({"Found app path: Setup.pkg"});
}

TEST_F(DiskImageTest, OldCopyCannotBeDeleted) {
  world.AddFile(kPackage, "old");
  world.files[kPackage].failsToRemove = true;
  ExpectGivenUp(13, {"Found app path: Setup.pkg", kFoundConfiguration}, "Cannot remove app path",
                {kPackage, kImage});
  EXPECT_EQ(world.files[kPackage].contents, "old");
}

TEST_F(DiskImageTest, PackageCannotBeCopied) {
  image_["Setup.pkg"].failsToCopy = true;
  ExpectNotCopied({kImage});
}

TEST_F(DiskImageTest, ConfigurationCannotBeCopied) {
  image_["installer.xml"].failsToCopy = true;
  ExpectNotCopied({kPackage, kImage});
}

TEST_F(DiskImageTest, ConfigurationThatAppearsWhileThePackageIsCopiedIsUsed) {
  image_["Setup.pkg"].afterwards = [this] { world.AddFile(kConfiguration, "beside"); };
  whenInstalling_ = [this] { EXPECT_EQ(world.files[kConfiguration].contents, "beside"); };
  ExpectInstalled();
}

TEST_F(DiskImageTest, ConfigurationWasALinkIntoTheOldCopy) {
  world.AddFile(kConfiguration, "inside the old copy");
  world.AddDirectory(kPackage);
  world.files[kPackage].afterwards = [this] { world.files[kConfiguration].isSymbolicLink = true; };
  ExpectNotCopied({kPackage, kConfiguration, kImage});
}

TEST_F(DiskImageTest, OnlyConfigurationVanishesWithTheOldCopy) {
  image_.erase("installer.xml");
  world.AddFile(kConfiguration, "inside the old copy");
  world.AddDirectory(kPackage);
  world.files[kPackage].afterwards = [this] { world.files.erase(kConfiguration); };
  ExpectGivenUp(2, {"Found app path: Setup.pkg"}, kCannotCopy, {kPackage, kImage});
}

// The search.

TEST_F(DiskImageTest, LaterPackagesReplaceEarlierOnesUntilBothAreFound) {
  image_.erase("Setup.pkg");
  for (const char* const name : {"a.pkg", "b.pkg", "k/c.pkg", "l/installer.xml"}) AddToImage(name);
  image_["b.pkg"].failsToCopy = true;
  ExpectGivenUp(2, {"Found app path: a.pkg", "Found app path: b.pkg", kFoundConfiguration},
                kCannotCopy, {kImage});
}

TEST_F(DiskImageTest, LaterConfigurationsReplaceEarlierOnes) {
  image_.clear();
  AddToImage("a/installer.xml", "a");
  AddToImage("b/installer.xml", "b");
  AddToImage("b/INSTALLER.XML", "another name");
  AddToImage("c/Setup.pkg");
  whenInstalling_ = [this] { EXPECT_EQ(world.files[kConfiguration].contents, "b"); };
  ExpectInstalled({"Found installer path:a/installer.xml", "Found installer path:b/installer.xml",
                   "Found app path: c/Setup.pkg"});
}

TEST_F(DiskImageTest, EntriesNamedLikeADirectoryOfTheWorkingDirectoryAreSkipped) {
  image_.clear();
  for (const char* const name : {"a.pkg", "b.pkg", "c.pkg", "d/installer.xml", "e/installer.xml"}) {
    AddToImage(name);
  }
  world.AddDirectory("a.pkg");
  world.AddFile("b.pkg");  // only directories count
  world.AddDirectory("c.pkg");
  world.AddDirectory("d/installer.xml");
  image_["b.pkg"].failsToCopy = true;
  ExpectGivenUp(2, {"Found app path: b.pkg", "Found installer path:e/installer.xml"}, kCannotCopy,
                {kImage, "a.pkg", "b.pkg", "c.pkg", "d/installer.xml"});
}

TEST_F(DiskImageTest, SimilarNamesAreNotTaken) {
  image_.clear();
  for (const char* const name :
       {".pkg", "pkg", "Setup.pkg.gz", "Setup.xpkg", "Setuppkg", "Setup.pkg ", "Installer.xml",
        "installer.xml ", "xinstaller.xml"}) {
    AddToImage(name);
  }
  ExpectGivenUp(2, {}, MissingLine("(null)", "(null)"), {kImage});
}

// Applications on images.

class ApplicationImageTest : public InstallerRunnerTest {
 protected:
  static constexpr char kApplication[] = "/downloads/Setup.app";
  static constexpr char kExecutable[] = "/downloads/Setup.app/Contents/MacOS/Setup";

  ApplicationImageTest() {
    AddApplicationToImage("Setup.app");
    AddToImage("installer.xml", "from the image");
    world.signatures[kApplication] = fake::Signature::Vendors();
    world.applicationExecutables[kApplication] = kExecutable;
    world.programs[kExecutable] = {};
  }

  void AddApplicationToImage(const std::string& path) {
    image_[path].mode = S_IFDIR | 0755;
    AddToImage(path + "/Contents");
  }
};

TEST_F(ApplicationImageTest, IsRunSilently) {
  EXPECT_EQ(Install(kApplicationMode), 0);
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), std::string("[") + kExecutable + "][--silent]",
                                   "[/usr/bin/hdiutil][detach]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(ApplicationImageTest, IsDeletedUnlessSignedByTheVendor) {
  world.signatures[kApplication].teamIdentifier = "AAAAAAAAAA";
  EXPECT_EQ(Install(kApplicationMode), 22);
  EXPECT_EQ(TakeLog().back(), "Invalid signature for \"app\"");
  EXPECT_THAT(Paths(), ElementsAre(kImage));

  world.signatures.clear();
  EXPECT_EQ(Install(kApplicationMode), -67068);
  EXPECT_EQ(TakeLog().back(), "Cannot check signature for \"app\". Exit code: -67068");
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(ApplicationImageTest, RefusalLeavesAnOutputFileThatIsNotDeletable) {
  world.signatures[kApplication].validity = -67062;
  image_["Setup.app"].afterwards = [this] { world.files[outputFile_].isDeletable = false; };
  EXPECT_EQ(Install(kApplicationMode), 22);
  EXPECT_THAT(Paths(), ElementsAre(kImage, outputFile_));
}

TEST_F(ApplicationImageTest, ApplicationWithoutAnExecutable) {
  world.applicationExecutables.clear();
  EXPECT_EQ(Install(kApplicationMode), 2);
  EXPECT_THAT(TakeLog(), Contains("ORVEX Install finished with exit code: 2"));
  EXPECT_THAT(Tasks(), ElementsAre(AttachWords(), "[/usr/bin/hdiutil][detach]"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

TEST_F(ApplicationImageTest, ApplicationInsideAnApplicationReplacesIt) {
  // The search goes on, since the configuration follows both.
  AddApplicationToImage("Setup.app/Contents/Resources/Helper.app");
  world.signatures["/downloads/Helper.app"] = fake::Signature::Vendors();
  world.applicationExecutables["/downloads/Helper.app"] = kExecutable;
  EXPECT_EQ(Install(kApplicationMode), 0);
  EXPECT_THAT(TakeLog(), Contains("Checking code signature for /downloads/Helper.app"));
  EXPECT_THAT(Paths(), ElementsAre(kImage));
}

}  // namespace
}  // namespace install
