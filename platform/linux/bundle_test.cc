#include "platform/bundle.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace platform {
namespace {

TEST(MainBundleTextTest, ReadsTheEmbeddedPropertyList) {
  EXPECT_EQ(MainBundleText("RMMToolVersion"), "1.0.0.206");
  EXPECT_EQ(MainBundleText("LSMinimumSystemVersion"), "10.11");
  EXPECT_EQ(MainBundleText("com.example.none"), std::nullopt);
  EXPECT_EQ(MainBundleText(""), std::nullopt);
}

class ApplicationExecutableTest : public testing::Test {
 protected:
  ApplicationExecutableTest() { std::filesystem::remove_all(root_); }
  ~ApplicationExecutableTest() override { std::filesystem::remove_all(root_); }

  void Write(const std::string& relativePath, const std::string& contents) {
    const std::filesystem::path path = root_ + "/" + relativePath;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << contents;
  }

  static std::string Information(const std::string& executable) {
    return "<plist><dict><key>CFBundleExecutable</key><string>" + executable +
           "</string></dict></plist>";
  }

  const std::string root_ = testing::TempDir() + "Some Setup.app";
};

TEST_F(ApplicationExecutableTest, FollowsTheInformationDictionary) {
  Write("Contents/Info.plist", Information("setup-tool"));
  Write("Contents/MacOS/setup-tool", "x");
  EXPECT_EQ(ApplicationExecutable(root_), root_ + "/Contents/MacOS/setup-tool");
  EXPECT_EQ(ApplicationExecutable(root_ + "/"), root_ + "/Contents/MacOS/setup-tool");
}

TEST_F(ApplicationExecutableTest, FallsBackToTheBundlesName) {
  Write("Contents/MacOS/Some Setup", "x");
  EXPECT_EQ(ApplicationExecutable(root_), root_ + "/Contents/MacOS/Some Setup");
}

TEST_F(ApplicationExecutableTest, AnswersNothingWithoutAnExecutable) {
  EXPECT_EQ(ApplicationExecutable(root_), std::nullopt);
  Write("Contents/Info.plist", Information("setup-tool"));
  EXPECT_EQ(ApplicationExecutable(root_), std::nullopt);
  EXPECT_EQ(ApplicationExecutable(root_ + "/Contents/Info.plist"), std::nullopt);
  EXPECT_EQ(ApplicationExecutable(""), std::nullopt);
}

}  // namespace
}  // namespace platform
