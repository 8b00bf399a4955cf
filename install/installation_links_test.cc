// Tests how the library is loaded and how its result is returned; tests/end_to_end/links_test.py
// tests the complete flows.

#include "tests/support/tool_fixture.h"

namespace install {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kLibrary[] = "libsl.dylib";
constexpr char kLoad[] = "load ./libsl.dylib lazy global";

std::string resultBefore;  ///< what the library was called with

int FakeGetInstallationLinks(std::string& result, const char* consoleUrl, const char* apiKey,
                             const char* packageName, bool setupDownloaderLink) {
  EXPECT_EQ(fake::World::Current().openLibraries, 1);
  resultBefore = result;
  result = std::string(consoleUrl) + "," + apiKey + "," + packageName + "," +
           (setupDownloaderLink ? "true" : "false");
  return 7;
}

class InstallationLinksTest : public fake::ToolFixture {
 protected:
  InstallationLinksTest() {
    world.AddFile(kLibrary);
    world.signatures[kLibrary] = fake::Signature::Vendors();
    world.libraries["./libsl.dylib"] = {
        {"GetInstallationLinks", reinterpret_cast<void*>(FakeGetInstallationLinks)}};
  }

  void Expect(int code, const std::string& result) {
    std::string text = "before";
    EXPECT_EQ(Tool().GetInstallationLinks(text, "url", "", " key ", true, nullptr), code);
    EXPECT_EQ(text, result);
  }
};

TEST_F(InstallationLinksTest, ReturnsCodeAndResultOfTheLibrary) {
  Expect(7, "url,, key ,true");
  EXPECT_EQ(resultBefore, "before");
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad, "unload"));
}

TEST_F(InstallationLinksTest, RefusedLibraryIsNotLoaded) {
  fake::Signature& signature = world.signatures[kLibrary];
  signature.teamIdentifier = "AAAAAAAAAA";
  Expect(22, "before");
  signature.informationStatus = -67030;
  Expect(-67030, "before");
  signature.validity = -67062;
  Expect(22, "before");
  world.signatures.clear();
  Expect(-67068, "before");
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(InstallationLinksTest, LibraryCannotBeLoaded) {
  world.libraries.clear();
  Expect(35, "before");
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad));
}

TEST_F(InstallationLinksTest, LibraryWithoutTheFunctionIsUnloaded) {
  world.libraries["./libsl.dylib"] = {
      {"_GetInstallationLinks", reinterpret_cast<void*>(FakeGetInstallationLinks)}};
  Expect(2, "before");
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad, "unload"));
}

}  // namespace
}  // namespace install
