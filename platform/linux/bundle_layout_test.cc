#include "platform/linux/bundle_layout.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/linux/code_signing/bundle_representation.h"
#include "tests/code_signing/directory_fixture.h"

namespace platform::code_signing {
namespace {

std::string Information(const std::string& executable,
                        const std::string& key = "CFBundleExecutable") {
  return "<plist><dict><key>" + key + "</key><string>" + executable + "</string></dict></plist>";
}

class BundleLayoutTest : public testing::Test {
 protected:
  BundleLayout Find(const std::string& relativePath) {
    return FindBundleLayout(directory_.Path(relativePath), lists_);
  }

  std::optional<std::string> BundleOf(const std::string& relativePath) {
    return FindBundleOfExecutable(directory_.Path(relativePath), lists_);
  }

  const TestDirectory directory_;
  PropertyListBudget lists_;
};

TEST_F(BundleLayoutTest, FindsTheParts) {
  const struct {
    const char* bundle;
    const char* resourceRoot;
    const char* information;
    const char* executable;
  } kLayouts[] = {
      {"A.app", "A.app/Contents", "A.app/Contents/Info.plist", "A.app/Contents/MacOS/code"},
      {"B.plugin", "B.plugin", "B.plugin/Resources/Info.plist", "B.plugin/code"},
      {"C.app", "C.app/Support Files", "C.app/Support Files/Info.plist",
       "C.app/Support Files/Executables/code"},
      {"D.app", "D.app", "D.app/Info.plist", "D.app/code"},
  };
  directory_.MakeDirectory("A.app/Resources");
  for (const auto& [bundle, resourceRoot, information, executable] : kLayouts) {
    directory_.Write(information, Information("code"));
    directory_.Write(executable, "x");
    const BundleLayout layout = Find(bundle);
    EXPECT_EQ(layout.isFlat, bundle == std::string("D.app"));
    EXPECT_EQ(layout.resourceRoot, directory_.Path(resourceRoot));
    EXPECT_EQ(layout.informationPath, directory_.Path(information));
    EXPECT_EQ(layout.executable, directory_.Path(executable));
  }
}

TEST_F(BundleLayoutTest, LooksForTheExecutableInSeveralPlaces) {
  directory_.Write("A.app/Contents/Info.plist", Information("tool"));
  directory_.Write("A.app/tool", "x");
  EXPECT_EQ(Find("A.app").executable, directory_.Path("A.app/tool"));
  directory_.Write("A.app/Contents/tool", "x");
  EXPECT_EQ(Find("A.app").executable, directory_.Path("A.app/Contents/tool"));
  directory_.Write("A.app/Contents/MacOS/tool", "x");
  EXPECT_EQ(Find("A.app").executable, directory_.Path("A.app/Contents/MacOS/tool"));
}

TEST_F(BundleLayoutTest, FrameworksPreferResources) {
  directory_.MakeDirectory("A.framework/Contents");
  directory_.Write("A.framework/Resources/Info.plist", Information("A"));
  directory_.MakeDirectory("B.bundle/Contents");
  directory_.Write("B.bundle/Resources/Info.plist", Information("B"));
  EXPECT_EQ(Find("A.framework").informationPath,
            directory_.Path("A.framework/Resources/Info.plist"));
  EXPECT_EQ(Find("B.bundle").informationPath, std::nullopt);
}

TEST_F(BundleLayoutTest, DetectsLayoutsByDirectoriesAndLinksInAnyCase) {
  directory_.Write("A.app/Contents", "a file does not count");
  EXPECT_TRUE(Find("A.app").isFlat);
  directory_.MakeLink("B.app/resources", "elsewhere");
  EXPECT_FALSE(Find("B.app").isFlat);
  EXPECT_EQ(Find("B.app").resourceRoot, directory_.Path("B.app"));
}

TEST_F(BundleLayoutTest, PrefersTheInformationOfThePlatform) {
  directory_.Write("A.app/Contents/INFO.plist", Information("one"));
  EXPECT_EQ(Find("A.app").informationPath, directory_.Path("A.app/Contents/INFO.plist"));
  directory_.Write("A.app/Contents/Info.plist", Information("two"));
  EXPECT_EQ(Find("A.app").informationPath, directory_.Path("A.app/Contents/Info.plist"));
  directory_.Write("A.app/Contents/info-macOS.plist", Information("three"));
  EXPECT_EQ(Find("A.app").informationPath, directory_.Path("A.app/Contents/info-macOS.plist"));
}

TEST_F(BundleLayoutTest, NamesTheExecutable) {
  directory_.Write("Some App.app/Contents/MacOS/Some App", "x");
  directory_.Write("Some App.app/Contents/MacOS/old", "x");
  const std::string byName = directory_.Path("Some App.app/Contents/MacOS/Some App");
  EXPECT_EQ(Find("Some App.app").executable, byName);
  directory_.Write("Some App.app/Contents/Info.plist", Information("old", "NSExecutable"));
  EXPECT_EQ(Find("Some App.app").executable, directory_.Path("Some App.app/Contents/MacOS/old"));
  directory_.Write("Some App.app/Contents/Info.plist", Information(""));
  EXPECT_EQ(Find("Some App.app").executable, byName);
  directory_.Write("Some App.app/Contents/Info.plist", "not a property list");
  EXPECT_EQ(Find("Some App.app").executable, byName);
  directory_.Write("Some App.app/Contents/Info.plist", Information("missing"));
  EXPECT_EQ(Find("Some App.app").executable, std::nullopt);
}

TEST_F(BundleLayoutTest, FindsNothingWithoutADirectory) {
  EXPECT_EQ(Find("none").executable, std::nullopt);
  EXPECT_EQ(Find("none").informationPath, std::nullopt);
}

TEST_F(BundleLayoutTest, TheMainExecutableStandsForItsBundle) {
  directory_.Write("A.app/Contents/Info.plist", Information("tool"));
  directory_.Write("A.app/Contents/MacOS/tool", "x");
  directory_.Write("A.app/Contents/MacOS/other", "x");
  EXPECT_EQ(BundleOf("A.app/Contents/MacOS/tool"), directory_.Path("A.app"));
  EXPECT_EQ(BundleOf("A.app/Contents/MacOS/other"), std::nullopt);
  EXPECT_EQ(BundleOf("A.app/Contents/Info.plist"), std::nullopt);

  directory_.Write("B.app/Support Files/Info.plist", Information("tool"));
  directory_.Write("B.app/Support Files/Executables/MacOS/tool", "x");
  EXPECT_EQ(BundleOf("B.app/Support Files/Executables/MacOS/tool"), directory_.Path("B.app"));

  directory_.Write("C.framework/Versions/A/Resources/Info.plist", Information("C"));
  directory_.Write("C.framework/Versions/A/C", "x");
  EXPECT_EQ(BundleOf("C.framework/Versions/A/C"), directory_.Path("C.framework/Versions/A"));
}

TEST_F(BundleLayoutTest, ALibraryIsABundleOnlyIfAnInformationListNamesIt) {
  directory_.Write("enterprise.bundle/library.dylib", "x");
  EXPECT_EQ(BundleOf("enterprise.bundle/library.dylib"), std::nullopt);
  directory_.Write("enterprise.bundle/Info.plist", "<plist><dict/></plist>");
  EXPECT_EQ(BundleOf("enterprise.bundle/library.dylib"), std::nullopt);
  directory_.Write("enterprise.bundle/Info.plist", Information("library.dylib"));
  EXPECT_EQ(BundleOf("enterprise.bundle/library.dylib"), directory_.Path("enterprise.bundle"));
}

TEST_F(BundleLayoutTest, AFileNamedLikeItsDirectoryIsABundleOnlyInTheOldLayout) {
  directory_.Write("tool/tool", "x");
  EXPECT_EQ(BundleOf("tool/tool"), std::nullopt);
  directory_.MakeDirectory("tool/Resources");
  EXPECT_EQ(BundleOf("tool/tool"), directory_.Path("tool"));
}

}  // namespace
}  // namespace platform::code_signing
