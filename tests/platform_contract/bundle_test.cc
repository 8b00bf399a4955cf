#include "platform/bundle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <string>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::TemporaryTree;

TEST(MainBundleTextContract, ReadsTheEmbeddedPropertyList) {
  EXPECT_EQ(MainBundleText("RMMToolVersion"), "1.0.0.206");
  EXPECT_EQ(MainBundleText("LSMinimumSystemVersion"), "10.11");
}

TEST(MainBundleTextContract, AnswersNothingForAMissingKey) {
  EXPECT_FALSE(MainBundleText("KXNoSuchKey"));
  EXPECT_FALSE(MainBundleText(""));
}

/// Makes the application bundle "Some Setup.app" whose list names `executable`. @return its path.
std::string MakeApplication(const TemporaryTree& tree, const std::string& executable) {
  const std::string path = tree.MakeDirectory("Some Setup.app");
  tree.MakeDirectory("Some Setup.app/Contents");
  tree.MakeDirectory("Some Setup.app/Contents/MacOS");
  tree.MakeFile("Some Setup.app/Contents/Info.plist",
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                "<key>CFBundlePackageType</key><string>APPL</string>"
                "<key>CFBundleIdentifier</key><string>com.corvane.contract</string>"
                "<key>CFBundleExecutable</key><string>" +
                    executable + "</string></dict></plist>\n");
  return path;
}

/// Compares what the paths lead to: Foundation may encode an accented name differently.
void ExpectThatItNames(const std::optional<std::string>& answer, const std::string& file) {
  ASSERT_TRUE(answer);
  struct stat named = {};
  struct stat expected = {};
  EXPECT_EQ(stat(answer->c_str(), &named), 0) << *answer;
  EXPECT_EQ(stat(file.c_str(), &expected), 0) << file;
  EXPECT_EQ(named.st_dev, expected.st_dev) << *answer;
  EXPECT_EQ(named.st_ino, expected.st_ino) << *answer;
}

TEST(ApplicationExecutableContract, FollowsTheInformationDictionary) {
  const TemporaryTree tree;
  const std::string application = MakeApplication(tree, "setup tool \xC3\xA4");
  const std::string executable =
      tree.MakeFile("Some Setup.app/Contents/MacOS/setup tool \xC3\xA4", "#!/bin/sh\n");
  contract::SetMode(executable, S_IRWXU);
  ExpectThatItNames(ApplicationExecutable(application), executable);
  ExpectThatItNames(ApplicationExecutable(application + "/"), executable);
}

TEST(ApplicationExecutableContract, AnswersNothingWithoutAnExecutable) {
  const TemporaryTree tree;
  EXPECT_FALSE(ApplicationExecutable(MakeApplication(tree, "missing")));
}

TEST(ApplicationExecutableContract, AnswersNothingForWhatIsNotABundle) {
  const TemporaryTree tree;
  EXPECT_FALSE(ApplicationExecutable(tree.Path("nothing.app")));
  EXPECT_FALSE(ApplicationExecutable(tree.MakeFile("file.app", "text")));
  EXPECT_FALSE(ApplicationExecutable(""));
}

}  // namespace
}  // namespace platform
