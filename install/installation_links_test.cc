#include "tests/support/tool_fixture.h"

namespace install {
namespace {

using fake::Concat;
using fake::Lines;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kLibrary[] = "libsl.dylib";
constexpr char kLoad[] = "load ./libsl.dylib lazy global";

/// What the links library was called with, and what it answers.
struct LinksCall {
  int calls = 0;
  std::string consoleUrl;
  std::string apiKey;
  std::string packageName;
  bool setupDownloaderLink = false;
  std::string resultBefore;
  int openLibraries = 0;

  std::string answer = "https://console.example/a|https://console.example/b";
  int code = 0;
};

LinksCall& TheCall() {
  static LinksCall call;
  return call;
}

int FakeGetInstallationLinks(std::string& result, const char* consoleUrl, const char* apiKey,
                             const char* packageName, bool setupDownloaderLink) {
  LinksCall& call = TheCall();
  ++call.calls;
  call.consoleUrl = consoleUrl;
  call.apiKey = apiKey;
  call.packageName = packageName;
  call.setupDownloaderLink = setupDownloaderLink;
  call.resultBefore = result;
  call.openLibraries = fake::World::Current().openLibraries;
  result = call.answer;
  return call.code;
}

class InstallationLinksTest : public fake::ToolFixture {
 protected:
  InstallationLinksTest() {
    TheCall() = {};
    world.AddFile(kLibrary);
    world.signatures[kLibrary] = fake::Signature::Makers();
    world.libraries["./libsl.dylib"] = {
        {"GetInstallationLinks", reinterpret_cast<void*>(FakeGetInstallationLinks)}};
  }

  /// Asks for links with a log, and again without; compares code, result and the whole log.
  void Expect(int code, const std::string& result, const Lines& lines) {
    std::string text = "before";
    EXPECT_EQ(Tool().GetInstallationLinks(text, "url", "key", "package", true, Log()), code);
    EXPECT_EQ(text, result);
    EXPECT_THAT(TakeLog(), ElementsAreArray(lines));

    text = "before";
    EXPECT_EQ(Tool().GetInstallationLinks(text, "url", "key", "package", true, nullptr), code);
    EXPECT_EQ(text, result);
  }

  /// Expects an early end: the library is not loaded and the result stays.
  void ExpectRefused(int code, const Lines& lines) {
    Expect(code, "before", lines);
    EXPECT_THAT(world.Calls(), IsEmpty());
  }

  /// The log up to the library's answer.
  static Lines LoadedLog() {
    return Concat({{"Searching for \"libsl.dylib\""},
                   fake::AcceptedSignatureLog(kLibrary),
                   {"Set the \"GetInstallationLinks\" handle"}});
  }
};

TEST_F(InstallationLinksTest, LinksAreFetched) {
  Expect(0, TheCall().answer, Concat({LoadedLog(), {"Method finished with exit code: 0"}}));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad, "unload", kLoad, "unload"));
}

TEST_F(InstallationLinksTest, ArgumentsArePassedOnUntouched) {
  for (const bool setupDownloaderLink : {false, true}) {
    std::string result = "before";
    EXPECT_EQ(Tool().GetInstallationLinks(result, "https://a b/?c=\"d\"|é", "", " -apiKey ",
                                          setupDownloaderLink, nullptr),
              0);
    EXPECT_EQ(TheCall().consoleUrl, "https://a b/?c=\"d\"|é");
    EXPECT_EQ(TheCall().apiKey, "");
    EXPECT_EQ(TheCall().packageName, " -apiKey ");
    EXPECT_EQ(TheCall().setupDownloaderLink, setupDownloaderLink);
    EXPECT_EQ(TheCall().resultBefore, "before");
    EXPECT_EQ(TheCall().openLibraries, 1);
  }
}

TEST_F(InstallationLinksTest, TheLibrarysCodeAndTextPass) {
  for (const int code : {7, -1, 256, 2147483647}) {
    TheCall().code = code;
    TheCall().answer = "whatever it left";
    Expect(code, "whatever it left",
           Concat({LoadedLog(), {"Method finished with exit code: " + std::to_string(code)}}));
  }
  TheCall().answer = "";
  TheCall().code = 0;
  Expect(0, "", Concat({LoadedLog(), {"Method finished with exit code: 0"}}));
}

TEST_F(InstallationLinksTest, LibraryIsNotThere) {
  world.signatures.clear();
  ExpectRefused(-67068,
                {"Searching for \"libsl.dylib\"", "Retrieve Sec static code for libsl.dylib",
                 "Failed to retrieve static code. Error code: -67068",
                 "Cannot check signature for \"libsl.dylib\". Exit code: -67068"});
}

TEST_F(InstallationLinksTest, LibraryIsNotSigned) {
  world.signatures[kLibrary].validity = -67062;
  ExpectRefused(
      22, {"Searching for \"libsl.dylib\"", "Retrieve Sec static code for libsl.dylib",
           "Check code validity", "Code is not valid", "Invalid signature for \"libsl.dylib\""});
}

TEST_F(InstallationLinksTest, SigningInformationCannotBeRead) {
  world.signatures[kLibrary].informationStatus = -67030;
  ExpectRefused(-67030,
                {"Searching for \"libsl.dylib\"", "Retrieve Sec static code for libsl.dylib",
                 "Check code validity", "Code is valid", "Retrieve signing information",
                 "Failed to retrieve signing information. Error code: -67030",
                 "Cannot check signature for \"libsl.dylib\". Exit code: -67030"});
}

TEST_F(InstallationLinksTest, LibraryIsSignedByAnotherTeam) {
  world.signatures[kLibrary].teamIdentifier = "AAAAAAAAAA";
  Lines lines = Concat({{"Searching for \"libsl.dylib\""}, fake::AcceptedSignatureLog(kLibrary)});
  lines.back() = "Check complete. File is not signed by Corvane";
  lines.push_back("Invalid signature for \"libsl.dylib\"");
  ExpectRefused(22, lines);
}

TEST_F(InstallationLinksTest, LibraryCannotBeLoaded) {
  world.libraries.clear();
  Expect(35, "before",
         Concat({{"Searching for \"libsl.dylib\""},
                 fake::AcceptedSignatureLog(kLibrary),
                 {"Library not found"}}));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad, kLoad));
}

TEST_F(InstallationLinksTest, LibraryLacksTheExport) {
  world.libraries["./libsl.dylib"] = {
      {"_GetInstallationLinks", reinterpret_cast<void*>(FakeGetInstallationLinks)}};
  Expect(2, "before", Concat({LoadedLog(), {"Handle not found"}}));
  EXPECT_THAT(world.Calls(), ElementsAre(kLoad, "unload", kLoad, "unload"));
  EXPECT_EQ(TheCall().calls, 0);
}

TEST_F(InstallationLinksTest, ProductNeedNotBeThere) {
  EXPECT_FALSE(world.Exists("/Library/Corvane/XQP/product/lib"));
  std::string result;
  EXPECT_EQ(Tool().GetInstallationLinks(result, "url", "key", "package", false, nullptr), 0);
  EXPECT_THAT(sdk.Requests(), IsEmpty());
}

}  // namespace
}  // namespace install
