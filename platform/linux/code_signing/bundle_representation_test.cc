// Whole bundles, signed ad hoc: the platform's statuses and the order in which it finds problems.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/bundle.h"
#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/signed_code.h"
#include "tests/code_signing/directory_fixture.h"
#include "tests/code_signing/signature_builder.h"

namespace platform::code_signing {
namespace {

constexpr char kInformation[] =
    "<plist><dict><key>CFBundleExecutable</key><string>Agent</string></dict></plist>";
constexpr char kCode[] =
    "\x7F"
    "ELF and so on";
constexpr char kExecutable[] = "Agent.app/Contents/MacOS/Agent";
constexpr char kSealPath[] = "Agent.app/Contents/_CodeSignature/CodeResources";

std::string Seal(const std::string& files, const std::string& rules) {
  return "<plist><dict><key>files</key><dict/><key>rules</key><dict/><key>files2</key><dict>" +
         files + "</dict><key>rules2</key><dict>" + rules + "</dict></dict></plist>";
}

std::string NestedEntry(const std::string& requirement) {
  return "<key>MacOS/helper.dylib</key><dict><key>requirement</key><string>" + requirement +
         "</string></dict>";
}

OsStatus StatusOf(const std::string& path) {
  std::unique_ptr<SignedCode> code;
  const OsStatus status = SignedCode::Open(path, std::make_shared<CheckContext>(), code);
  return status == kErrSecSuccess ? code->CheckValidity() : status;
}

OsStatus StatusOfOpening(const std::string& path) {
  std::unique_ptr<SignedCode> code;
  return SignedCode::Open(path, std::make_shared<CheckContext>(), code);
}

class SignedBundleTest : public testing::Test {
 protected:
  SignedBundleTest() {
    Write("Info.plist", kInformation);
    Write("MacOS/Agent", kCode);
  }

  void Write(const std::string& relativePath, const std::string& contents) const {
    directory_.Write("Agent.app/Contents/" + relativePath, contents);
  }

  /// Signs the executable, which is not Mach-O, and everything in `sealed`.
  void Sign(const std::string& codeResources, std::map<Slot, std::string> sealed = {}) const {
    sealed.emplace(kSlotInfoPlist, kInformation);
    sealed.emplace(kSlotResourceDirectory, codeResources);
    TestDirectoryContents contents;
    contents.code = kCode;
    contents.sealed = std::move(sealed);
    Write("_CodeSignature/CodeResources", codeResources);
    Write("_CodeSignature/CodeDirectory", MakeCodeDirectory(contents));
  }

  /// Signs with an empty seal.
  void Sign() const { Sign(Seal("", "")); }

  OsStatus Status() const { return StatusOf(directory_.Path("Agent.app")); }

  const TestDirectory directory_;
};

TEST_F(SignedBundleTest, IsValidUnderBothItsNames) {
  Sign();
  EXPECT_EQ(Status(), kErrSecSuccess);
  EXPECT_EQ(StatusOf(directory_.Path(kExecutable)), kErrSecSuccess);
  EXPECT_EQ(StatusOf(directory_.Path("Agent.app/")), kErrSecSuccess);
  for (const char* const path :
       {"Agent.app/Contents/./MacOS//Agent", "Agent.app/Contents/MacOS/../MacOS/Agent"}) {
    EXPECT_EQ(StatusOf(directory_.Path(path)), kErrSecSuccess) << path;
  }
}

TEST_F(SignedBundleTest, IsNotOpenedWithoutItsInformation) {
  Sign();
  auto context = std::make_shared<CheckContext>();
  context->lists.Take(~std::size_t{0});
  std::unique_ptr<SignedCode> code;
  EXPECT_EQ(SignedCode::Open(directory_.Path("Agent.app"), context, code), kErrSecCSInternalError);
}

TEST_F(SignedBundleTest, FindsTheFirstProblemInThePlatformsOrder) {
  Sign(Seal("", "<key>^added$</key><true/>"), {{kSlotRequirements, "requirements"}});
  Write("_CodeSignature/CodeRequirements", "requirements");
  EXPECT_EQ(Status(), kErrSecSuccess);
  Write("added", "x");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
  Write("_CodeSignature/CodeResources", Seal("", "") + " ");
  EXPECT_EQ(Status(), kErrSecCSResourceDirectoryFailed);
  Write("MacOS/Agent", std::string(kCode) + "more");
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
  Write("Info.plist", std::string(kInformation) + " ");
  EXPECT_EQ(Status(), kErrSecCSInfoPlistFailed);
  Write("_CodeSignature/CodeRequirements", "requirement");
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
  directory_.Remove("Agent.app/Contents/_CodeSignature/CodeDirectory");
  EXPECT_EQ(Status(), kErrSecCSUnsigned);
}

TEST_F(SignedBundleTest, FindsMissingComponents) {
  Sign();
  directory_.Remove(kSealPath);
  EXPECT_EQ(Status(), kErrSecCSResourceDirectoryFailed);
  Sign();
  directory_.Remove("Agent.app/Contents/Info.plist");
  EXPECT_EQ(Status(), kErrSecCSInfoPlistFailed);
}

TEST_F(SignedBundleTest, NeedsASealedSeal) {
  TestDirectoryContents contents;
  contents.code = kCode;
  Write("_CodeSignature/CodeDirectory", MakeCodeDirectory(contents));
  EXPECT_EQ(Status(), kErrSecCSResourcesNotFound);
  // An unsealed CodeResources does not count. The Info.plist need not be sealed.
  Write("_CodeSignature/CodeResources", Seal("", ""));
  EXPECT_EQ(Status(), kErrSecCSResourcesNotFound);
  contents.sealed = {{kSlotResourceDirectory, Seal("", "")}};
  Write("_CodeSignature/CodeDirectory", MakeCodeDirectory(contents));
  EXPECT_EQ(Status(), kErrSecSuccess);
}

TEST_F(SignedBundleTest, ChecksNestedCodeAgainstItsSealedRequirement) {
  const std::string rules =
      "<key>^MacOS/</key><dict><key>nested</key><true/></dict><key>^.*</key><true/>";
  Write("MacOS/helper.dylib", MakeSignedMachO({}, "helper"));
  Sign(Seal(NestedEntry("identifier helper"), rules +
                                                  "<key>^Info</key><dict><key>omit</key><true/>"
                                                  "<key>weight</key><integer>9</integer></dict>"));
  EXPECT_EQ(Status(), kErrSecSuccess);
  Sign(Seal(NestedEntry("identifier other"), "<key>^MacOS/</key><true/>"));
  EXPECT_EQ(Status(), kErrSecCSBadNestedCode);
  Sign(Seal(NestedEntry("identifier helper"), "<key>^MacOS/</key><true/>"));
  EXPECT_EQ(Status(), kErrSecSuccess);
  Write("MacOS/helper.dylib", "no longer signed");
  EXPECT_EQ(Status(), kErrSecCSUnsigned);
}

TEST_F(SignedBundleTest, ChecksPagesOfNestedCode) {
  std::string helper = MakeSignedMachO({}, "helper");
  Sign(Seal(NestedEntry("identifier helper"), "<key>^MacOS/</key><true/>"));
  Write("MacOS/helper.dylib", helper);
  EXPECT_EQ(Status(), kErrSecSuccess);
  helper[60] = 'x';
  Write("MacOS/helper.dylib", helper);
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
}

/// A bundle nested in Agent.app, with a resource.
class NestedBundleTest : public SignedBundleTest {
 protected:
  NestedBundleTest() {
    MakeBundle("MacOS/helper.dylib/Contents");
    Write("MacOS/helper.dylib/Contents/Info.plist", kHelperInformation);
    Sign(Seal(NestedEntry("identifier helper"),
              "<key>^MacOS/</key><dict><key>nested</key><true/></dict>"));
  }

  /// Makes the parts of a bundle's resource root except the Info.plist.
  void MakeBundle(const std::string& root) const {
    const std::string seal = Seal("<key>data</key><data>" + kSealedData + "</data>",
                                  "<key>^data</key><true/><key>^added</key><true/>");
    Write(root + "/MacOS/helper",
          MakeSignedMachO({{kSlotInfoPlist, kHelperInformation}, {kSlotResourceDirectory, seal}},
                          "helper"));
    Write(root + "/data", "data");
    Write(root + "/_CodeSignature/CodeResources", seal);
  }

  static constexpr char kHelperInformation[] =
      "<plist><dict><key>CFBundleExecutable</key><string>helper</string></dict></plist>";
  const std::string kSealedData = "Om6weQ85rIfJTzhWst0sXREOaBFgImGpqSPTuyOtyLc=";  // SHA-256
};

TEST_F(NestedBundleTest, IsCheckedWithItsResources) {
  EXPECT_EQ(Status(), kErrSecSuccess);
  Write("MacOS/helper.dylib/Contents/data", "other");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
  Write("MacOS/helper.dylib/Contents/data", "data");
  Write("MacOS/helper.dylib/Contents/added", "x");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
}

TEST_F(NestedBundleTest, HoldsNothingUnsealed) {
  Write("MacOS/helper.dylib/beside", "x");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
  directory_.Remove("Agent.app/Contents/MacOS/helper.dylib/beside");
  EXPECT_EQ(Status(), kErrSecSuccess);
  directory_.MakeLink("Agent.app/Contents/MacOS/helper.dylib/link", "Contents/data");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
}

TEST_F(NestedBundleTest, MustHaveCode) {
  std::filesystem::remove_all(directory_.Path("Agent.app/Contents/MacOS/helper.dylib/Contents"));
  EXPECT_EQ(Status(), kErrSecCSBadBundleFormat);
}

TEST_F(NestedBundleTest, MustNotBeALink) {
  const std::string helper = "Agent.app/Contents/MacOS/helper.dylib";
  std::filesystem::rename(directory_.Path(helper), directory_.Path("elsewhere"));
  directory_.MakeLink(helper, directory_.Path("elsewhere"));
  EXPECT_EQ(Status(), kErrSecCSBadResource);
}

TEST_F(NestedBundleTest, NestingHasALimit) {
  // Each Contents/MacOS/helper.dylib is a bundle like the one around it.
  const auto status = [&](int depth) {
    std::string root = "MacOS/helper.dylib/Contents";
    const std::string rules = "<key>^MacOS/</key><dict><key>nested</key><true/></dict>";
    for (int i = 0; i < depth; ++i) {
      const bool isLast = i + 1 == depth;
      const std::string seal =
          isLast ? Seal("", "") : Seal(NestedEntry("identifier helper"), rules);
      Write(root + "/Info.plist", kHelperInformation);
      Write(root + "/MacOS/helper",
            MakeSignedMachO({{kSlotInfoPlist, kHelperInformation}, {kSlotResourceDirectory, seal}},
                            "helper"));
      Write(root + "/_CodeSignature/CodeResources", seal);
      root += "/MacOS/helper.dylib/Contents";
    }
    return Status();
  };
  EXPECT_EQ(status(8), kErrSecSuccess);
  EXPECT_EQ(status(9), kErrSecCSBadNestedCode);
}

TEST_F(NestedBundleTest, CountsSlicesAndBundles) {
  const auto status = [&](std::uint64_t used) {
    const auto context = std::make_shared<CheckContext>();
    context->budget.ChargeForNestedCode(used, false);
    std::unique_ptr<SignedCode> code;
    const OsStatus opened = SignedCode::Open(directory_.Path("Agent.app"), context, code);
    return opened == kErrSecSuccess ? code->CheckValidity() : opened;
  };
  EXPECT_EQ(status(998), kErrSecSuccess);
  EXPECT_THROW(status(999), BudgetExceeded);
  std::filesystem::remove_all(directory_.Path("Agent.app/Contents/MacOS/helper.dylib"));
  const std::string slice = MakeSignedMachO({}, "helper");
  Write("MacOS/helper.dylib", MakeUniversal({slice, slice, slice}));
  EXPECT_EQ(status(997), kErrSecSuccess);
  EXPECT_THROW(status(998), BudgetExceeded);
}

TEST_F(NestedBundleTest, AllVersionsAreChecked) {
  const std::string helper = "MacOS/helper.dylib";
  directory_.Remove("Agent.app/Contents/" + helper);
  for (const char* const version : {"/Versions/A", "/Versions/B"}) {
    MakeBundle(helper + version);
    Write(helper + version + "/Resources/Info.plist", kHelperInformation);
    // In this layout the executable lies beside the resources.
    std::filesystem::rename(
        directory_.Path("Agent.app/Contents/" + helper + version + "/MacOS/helper"),
        directory_.Path("Agent.app/Contents/" + helper + version + "/helper"));
  }
  const std::string link = "Agent.app/Contents/" + helper;
  directory_.MakeLink(link + "/Versions/Current", "A");
  directory_.MakeLink(link + "/helper", "Versions/Current/helper");
  directory_.MakeLink(link + "/Resources", "Versions/Current/Resources");
  EXPECT_EQ(Status(), kErrSecSuccess);
  Write(helper + "/Versions/B/data", "other");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
  Write(helper + "/Versions/B/data", "data");
  EXPECT_EQ(Status(), kErrSecSuccess);
  // Links to unsealed files in the place of sealed ones.
  Write(helper + "/Versions/A/_CodeSignature/helper", "anything");
  for (const auto& [name, target] :
       std::map<std::string, std::string>{{"/Versions/C", "A/_CodeSignature"},
                                          {"/added", "Versions/A/_CodeSignature/helper"},
                                          {"/data", "Versions/Current/_CodeSignature/helper"}}) {
    directory_.MakeLink(link + name, target);
    EXPECT_EQ(Status(), kErrSecCSBadResource) << name;
    directory_.Remove(link + name);
  }
  directory_.Remove(link + "/Versions/Current");
  directory_.MakeLink(link + "/Versions/Current", "A/../A");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
}

TEST_F(SignedBundleTest, ANestedFileDoesNotStandForItsBundle) {
  const std::string seal = Seal("", "");
  Write("MacOS/Info.plist", "");  // no bundle: the list is empty
  Write("MacOS/inner/Info.plist",
        "<plist><dict><key>CFBundleExecutable</key><string>code</string></dict></plist>");
  Write("MacOS/inner/code", MakeSignedMachO({{kSlotResourceDirectory, seal}}, "helper"));
  Write("MacOS/inner/_CodeSignature/CodeResources", seal);
  Sign(
      Seal("<key>MacOS/inner/code</key><dict><key>requirement</key><string>identifier helper"
           "</string></dict>",
           "<key>^MacOS/inner/code</key><true/>"));
  EXPECT_EQ(StatusOf(directory_.Path("Agent.app/Contents/MacOS/inner/code")), kErrSecSuccess);
  EXPECT_EQ(Status(), kErrSecCSResourceDirectoryFailed);
}

TEST_F(SignedBundleTest, TakesComponentsOfMachOExecutablesFromThemAlone) {
  const std::string seal = Seal("", "");
  const std::map<Slot, std::string> sealed = {{kSlotInfoPlist, kInformation},
                                              {kSlotResourceDirectory, seal}};
  Write("MacOS/Agent", MakeSignedMachO(sealed));
  Write("_CodeSignature/CodeResources", seal);
  EXPECT_EQ(Status(), kErrSecSuccess);
  Write("_CodeSignature/CodeRequirements", "from elsewhere");
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
}

TEST_F(SignedBundleTest, TakesComponentsOfUnsignedMachOExecutablesFromFiles) {
  std::string code = MakeSignedMachO({}).substr(0, 64);
  constexpr std::size_t kFirstCommand = 32;
  constexpr char kUuidCommand = 0x1B;
  code[kFirstCommand] = kUuidCommand;  // in place of the signature's
  const std::string seal = Seal("", "");
  TestDirectoryContents contents;
  contents.code = code;
  contents.sealed = {{kSlotInfoPlist, kInformation}, {kSlotResourceDirectory, seal}};
  Write("MacOS/Agent", code);
  Write("_CodeSignature/CodeResources", seal);
  Write("_CodeSignature/CodeDirectory", MakeCodeDirectory(contents));
  EXPECT_EQ(Status(), kErrSecSuccess);
}

TEST_F(SignedBundleTest, AnExecutableIsInvalidOutsideItsBundle) {
  const std::string seal = Seal("", "");
  directory_.Write(
      "copy", MakeSignedMachO({{kSlotInfoPlist, kInformation}, {kSlotResourceDirectory, seal}}));
  EXPECT_EQ(StatusOf(directory_.Path("copy")), kErrSecCSInfoPlistFailed);
  directory_.Write("copy", MakeSignedMachO({{kSlotResourceDirectory, seal}}));
  EXPECT_EQ(StatusOf(directory_.Path("copy")), kErrSecCSResourceDirectoryFailed);
}

TEST_F(SignedBundleTest, ReadsNoSidecarOfAnExecutable) {
  TestDirectoryContents contents;
  contents.code = kCode;
  Write("MacOS/Agent.codesignature",
        MakeSuperBlob({{kSlotCodeDirectory, MakeCodeDirectory(contents)}}));
  EXPECT_EQ(Status(), kErrSecCSUnsigned);
}

TEST_F(SignedBundleTest, FindsTheCurrentVersionOfAFramework) {
  const std::string seal = Seal("", "");
  const std::string version = "A.framework/Versions/B";
  directory_.Write(version + "/Resources/Info.plist", "<plist><dict/></plist>");
  directory_.Write(version + "/Current",
                   MakeSignedMachO({{kSlotInfoPlist, "<plist><dict/></plist>"},
                                    {kSlotResourceDirectory, seal}}));
  directory_.Write(version + "/_CodeSignature/CodeResources", seal);
  EXPECT_EQ(StatusOfOpening(directory_.Path("A.framework")), kErrSecCSBadBundleFormat);
  directory_.MakeLink("A.framework/Versions/Current", "B");
  EXPECT_EQ(StatusOf(directory_.Path("A.framework")), kErrSecSuccess);
  directory_.Write(version + "/_CodeSignature/CodeResources", seal + " ");
  EXPECT_EQ(StatusOf(directory_.Path("A.framework")), kErrSecCSResourceDirectoryFailed);
}

TEST_F(SignedBundleTest, IsInvalidWhereAnotherFileWouldRun) {
  Sign();
  const std::string attack = directory_.Path("Attack.app");
  directory_.Write(
      "Attack.app/Info.plist",
      "<plist><dict><key>CFBundleExecutable</key><string>evil</string></dict></plist>");
  directory_.Write("Attack.app/evil", "anything");
  directory_.MakeDirectory("Attack.app/Versions");
  std::filesystem::copy(directory_.Path("Agent.app"), attack + "/Versions/Current",
                        std::filesystem::copy_options::recursive);
  EXPECT_EQ(StatusOf(attack + "/Versions/Current"), kErrSecSuccess);
  EXPECT_EQ(ApplicationExecutable(attack), attack + "/evil");
  EXPECT_EQ(StatusOf(attack), kErrSecCSSignatureFailed);
  EXPECT_EQ(StatusOf(attack + "/evil"), kErrSecCSSignatureFailed);
}

TEST_F(SignedBundleTest, IsInvalidWhereAPageStandsForAnExecutable) {
  constexpr char kWidget[] =
      "<plist><dict><key>MainHTML</key><string>page.html</string></dict></plist>";
  const std::string seal = Seal("", "");
  TestDirectoryContents contents;
  contents.code = "page";
  contents.sealed = {{kSlotInfoPlist, kWidget}, {kSlotResourceDirectory, seal}};
  directory_.Write("W.wdgt/Info.plist", kWidget);
  directory_.Write("W.wdgt/page.html", "page");
  directory_.Write("W.wdgt/_CodeSignature/CodeResources", seal);
  directory_.Write("W.wdgt/_CodeSignature/CodeDirectory", MakeCodeDirectory(contents));
  EXPECT_EQ(StatusOf(directory_.Path("W.wdgt")), kErrSecSuccess);
  directory_.Write("W.wdgt/W", "what runs");
  EXPECT_EQ(StatusOf(directory_.Path("W.wdgt")), kErrSecCSSignatureFailed);
}

TEST_F(SignedBundleTest, MustNotBeALink) {
  Sign();
  directory_.MakeLink("Link.app", "Agent.app");
  EXPECT_EQ(StatusOf(directory_.Path("Link.app")), kErrSecCSSignatureFailed);
  EXPECT_EQ(StatusOf(directory_.Path("Link.app/")), kErrSecCSSignatureFailed);
  // The parent directory of a library may be a link.
  EXPECT_EQ(StatusOf(directory_.Path("Link.app/Contents/MacOS/Agent")), kErrSecSuccess);
}

TEST_F(SignedBundleTest, NoLinkLeadsToItsParts) {
  for (const std::string part : {"Contents", "Contents/MacOS", "Contents/MacOS/Agent",
                                 "Contents/Info.plist", "Contents/_CodeSignature"}) {
    SCOPED_TRACE(part);
    Sign();
    const std::string path = directory_.Path("Agent.app/" + part);
    for (const std::string place : {"outside", "Agent.app/inside"}) {
      const std::string target = directory_.Path(place);
      std::filesystem::rename(path, target);
      std::filesystem::create_symlink(std::filesystem::path(target).lexically_relative(
                                          std::filesystem::path(path).parent_path()),
                                      path);
      EXPECT_NE(Status(), kErrSecSuccess) << place;
      std::filesystem::remove(path);
      std::filesystem::rename(target, path);
    }
    EXPECT_EQ(Status(), kErrSecSuccess);
  }
}

TEST_F(SignedBundleTest, NothingLiesBesideTheSealedDirectory) {
  Sign();
  // Nothing seals the executable's location. From here, it would find libraries in ../Frameworks.
  std::filesystem::rename(directory_.Path(kExecutable),
                          directory_.Path("Agent.app/Contents/Agent"));
  EXPECT_EQ(Status(), kErrSecSuccess);
  directory_.MakeDirectory("Agent.app/Frameworks");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
  std::filesystem::remove(directory_.Path("Agent.app/Frameworks"));
  directory_.Write("Agent.app/file", "x");
  EXPECT_EQ(Status(), kErrSecCSBadResource);
}

TEST_F(SignedBundleTest, AVersionedBundleHasOnlyLinksAndSignedVersions) {
  const std::string seal = Seal("", "");
  const auto sign = [&](const std::string& version) {
    const std::string directory = "A.framework/Versions/" + version;
    directory_.Write(directory + "/_CodeSignature/CodeResources", seal);
    // Its own name is that of the directory, because it has no Info.plist.
    for (const std::string& name : {std::string("Current"), version}) {
      directory_.Write(directory + "/" + name, MakeSignedMachO({{kSlotResourceDirectory, seal}}));
    }
  };
  const std::string path = directory_.Path("A.framework");
  sign("B");
  directory_.MakeLink("A.framework/Versions/Current", "B");
  directory_.MakeLink("A.framework/Current", "Versions/Current/Current");
  EXPECT_EQ(StatusOf(path), kErrSecSuccess);
  directory_.Write("A.framework/library", "x");
  EXPECT_EQ(StatusOf(path), kErrSecCSBadResource);
  std::filesystem::remove(path + "/library");
  sign("C");
  EXPECT_EQ(StatusOf(path), kErrSecSuccess);
  TestDirectoryContents other;
  other.team = "TEAM";
  other.sealed = {{kSlotResourceDirectory, seal}};
  directory_.Write("A.framework/Versions/C/C", MakeSignedMachO(other, nullptr));
  EXPECT_EQ(StatusOf(path), kErrSecCSBadNestedCode);
  directory_.Write("A.framework/Versions/C/C", "x");
  EXPECT_EQ(StatusOf(path), kErrSecCSUnsigned);
}

TEST_F(SignedBundleTest, UnsealedLinksAreCounted) {
  directory_.Write("A.framework/Versions/B/Current", MakeSignedMachO({}));
  directory_.MakeLink("A.framework/Versions/Current", "B");
  directory_.MakeLink("A.framework/Current", "Versions/Current/Current");
  const auto context = std::make_shared<CheckContext>();
  for (int i = 0; i < 65535; ++i) context->budget.ChargeForEntry(1);
  std::unique_ptr<SignedCode> code;
  ASSERT_EQ(SignedCode::Open(directory_.Path("A.framework"), context, code), kErrSecSuccess);
  EXPECT_THROW(code->CheckValidity(), BudgetExceeded);
}

TEST_F(SignedBundleTest, VersionsAreLimited) {
  directory_.Write("A.framework/Versions/B/Current", MakeSignedMachO({}));
  directory_.MakeLink("A.framework/Versions/Current", "B");
  directory_.MakeLink("A.framework/Current", "Versions/Current/Current");
  const auto makeVersions = [&](int first, int last) {
    for (int i = first; i <= last; ++i) {
      directory_.MakeDirectory("A.framework/Versions/" + std::to_string(i));
    }
  };
  makeVersions(1, 64);
  EXPECT_EQ(StatusOf(directory_.Path("A.framework")), kErrSecCSResourcesNotFound);
  makeVersions(65, 65);
  EXPECT_EQ(StatusOf(directory_.Path("A.framework")), kErrSecCSBadResource);
}

TEST_F(SignedBundleTest, ResolvesDotDotAfterALinkAsTheSystemDoes) {
  Sign();
  directory_.Write("evil/Agent.app/Contents/MacOS/Agent", "anything");
  directory_.MakeDirectory("evil/directory");
  directory_.MakeLink("link", "evil/directory");
  EXPECT_EQ(StatusOf(directory_.Path("evil/../") + kExecutable), kErrSecSuccess);
  EXPECT_EQ(StatusOf(directory_.Path("link/../") + kExecutable), kErrSecCSUnsigned);
}

TEST_F(SignedBundleTest, OneInformationNamesTheExecutableAndIsChecked) {
  Sign();
  Write("Info.plist", kInformation + std::string(" "));
  std::unique_ptr<SignedCode> code;
  ASSERT_EQ(SignedCode::Open(directory_.Path("Agent.app"), std::make_shared<CheckContext>(), code),
            kErrSecSuccess);
  Write("Info.plist", kInformation);
  EXPECT_EQ(code->CheckValidity(), kErrSecCSInfoPlistFailed);
  EXPECT_EQ(Status(), kErrSecSuccess);
}

TEST_F(SignedBundleTest, TheExecutableLiesWhereLibrariesBesideItAreSealed) {
  Sign();
  for (const std::string place : {"_CodeSignature", "_MASReceipt", "CodeResources", "inside"}) {
    SCOPED_TRACE(place);
    Write(place + "/Agent", kCode);
    const std::string executable = directory_.Path(kExecutable);
    std::filesystem::remove(executable);
    std::filesystem::create_symlink("../" + place + "/Agent", executable);
    EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
  }
  std::filesystem::remove(directory_.Path(kExecutable));
  directory_.Write("Agent.app/Agent", kCode);  // also looked for there
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
}

class OpeningBundleTest : public testing::Test {
 protected:
  OsStatus Opening(const std::string& relativePath) const {
    return StatusOfOpening(directory_.Path(relativePath));
  }

  OsStatus Status(const std::string& relativePath) const {
    return StatusOf(directory_.Path(relativePath));
  }

  const TestDirectory directory_;
};

TEST_F(OpeningBundleTest, NeedsCodeOrAnInformationList) {
  directory_.Write("tools/tool", "x");
  EXPECT_EQ(Opening("tools"), kErrSecCSBadBundleFormat);
  directory_.MakeDirectory("A.app/Contents/MacOS");
  EXPECT_EQ(Opening("A.app"), kErrSecCSBadBundleFormat);
  directory_.Write("A.app/Contents/Info.plist", "<plist><dict/></plist>");
  EXPECT_EQ(Status("A.app"), kErrSecCSUnsigned);
}

TEST_F(OpeningBundleTest, OneDistributionFileMayStandForTheCode) {
  directory_.Write("package/one.dist", "x");
  EXPECT_EQ(Status("package"), kErrSecCSUnsigned);
  directory_.MakeDirectory("package/folder.dist");
  directory_.Write("package/deeper/three.dist", "x");
  EXPECT_EQ(Status("package"), kErrSecCSUnsigned);
  directory_.Write("package/two.dist", "x");
  EXPECT_EQ(Opening("package"), kErrSecCSBadBundleFormat);
}

TEST_F(OpeningBundleTest, AWidgetsPageStandsForItsCode) {
  const auto information = [](const std::string& page) {
    return "<plist><dict><key>MainHTML</key>" + page + "</dict></plist>";
  };
  directory_.Write("W.wdgt/W", "an executable that does not count");
  directory_.Write("W.wdgt/Info.plist", information("<string>page.html</string>"));
  EXPECT_EQ(Opening("W.wdgt"), kErrSecCSStaticCodeNotFound);
  directory_.Write("W.wdgt/page.html", "page");
  EXPECT_EQ(Opening("W.wdgt"), kErrSecSuccess);
  directory_.Write("W.wdgt/Info.plist", information("<true/>"));
  EXPECT_EQ(Opening("W.wdgt"), kErrSecCSBadBundleFormat);
}

TEST_F(OpeningBundleTest, RejectsADanglingInformationList) {
  directory_.Write("A.app/Contents/MacOS/A", "x");
  directory_.MakeLink("A.app/Contents/Info.plist", "nowhere");
  EXPECT_EQ(Opening("A.app"), kErrSecCSAmbiguousBundleFormat);
}

TEST_F(OpeningBundleTest, ReportsAnExecutableThatIsADirectory) {
  directory_.MakeDirectory("A.app/Contents/MacOS/A");
  EXPECT_EQ(Opening("A.app"), 100021);
}

}  // namespace
}  // namespace platform::code_signing
