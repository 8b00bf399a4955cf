#include "product/install_locations.h"

#include <sys/stat.h>

#include <cerrno>

#include "tests/support/tool_fixture.h"

namespace {

class InstallLocationsTest : public fake::ToolFixture {
 protected:
  /// Number (from 1) of the layout that is chosen; 0 when there is none.
  int Choose() {
    ProductInfoStructure* entry = nullptr;
    const int code = GetDirectory(entry, productInfoStructure);
    EXPECT_EQ(code, entry == nullptr ? 20 : 0);
    return entry == nullptr ? 0 : static_cast<int>(entry - productInfoStructure.data()) + 1;
  }

  void AddLayout(std::size_t number, std::uint32_t mode = S_IFDIR | 0755) {
    world.files[productInfoStructure.at(number - 1).directory].mode = mode;
  }
};

TEST_F(InstallLocationsTest, Table) {
  ASSERT_EQ(productInfoStructure.size(), 3U);
  EXPECT_EQ(productInfoStructure[0].directory, "/Library/Corvane/XQP/product/lib");
  EXPECT_EQ(productInfoStructure[0].agcfngPath, "/Library/Corvane/XQP/settings/agcfng/agcfng.jso");
  EXPECT_EQ(productInfoStructure[0].agcfPath, "");
  EXPECT_EQ(productInfoStructure[0].sdkLibraryPath,
            "/Library/Corvane/XQP/product/lib/agentsdk.dylib");
  EXPECT_EQ(productInfoStructure[1].directory, "/Library/Corvane/XQP/enterprise.bundle");
  EXPECT_EQ(productInfoStructure[1].agcfngPath,
            "/Library/Corvane/XQP/enterprise.bundle/agcfng/agcfng.jso");
  EXPECT_EQ(productInfoStructure[1].agcfPath, "/Library/Corvane/XQP/enterprise.bundle/agcf.jso");
  EXPECT_EQ(productInfoStructure[1].sdkLibraryPath,
            "/Library/Corvane/XQP/enterprise.bundle/agentsdk.dylib");
  EXPECT_EQ(productInfoStructure[2].directory, "/Library/Corvane/XQP/enterprise");
  EXPECT_EQ(productInfoStructure[2].agcfngPath,
            "/Library/Corvane/XQP/enterprise/agcfng/agcfng.jso");
  EXPECT_EQ(productInfoStructure[2].agcfPath, "/Library/Corvane/XQP/enterprise/agcf.jso");
  EXPECT_EQ(productInfoStructure[2].sdkLibraryPath,
            "/Library/Corvane/XQP/enterprise/agentsdk.dylib");
}

TEST_F(InstallLocationsTest, ConstructorTakesTheNewerConfigurationFirst) {
  const ProductInfoStructure entry("directory", "newer", "older", "library");
  EXPECT_EQ(entry.directory, "directory");
  EXPECT_EQ(entry.agcfngPath, "newer");
  EXPECT_EQ(entry.agcfPath, "older");
  EXPECT_EQ(entry.sdkLibraryPath, "library");
}

TEST_F(InstallLocationsTest, NullTextsAreEmpty) {
  const ProductInfoStructure entry(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(entry.directory + entry.agcfngPath + entry.agcfPath + entry.sdkLibraryPath, "");
}

TEST_F(InstallLocationsTest, NothingInstalled) {
  ProductInfoStructure other(nullptr, nullptr, nullptr, nullptr);
  ProductInfoStructure* entry = &other;
  EXPECT_EQ(GetDirectory(entry, productInfoStructure), 20);
  EXPECT_EQ(entry, &other);
  EXPECT_EQ(GetDirectory(entry, {}), 20);
  EXPECT_EQ(entry, &other);
}

TEST_F(InstallLocationsTest, EachAlone) {
  for (const std::size_t number : {1U, 2U, 3U}) {
    world.files.clear();
    AddLayout(number);
    EXPECT_EQ(Choose(), static_cast<int>(number));
  }
}

TEST_F(InstallLocationsTest, FirstOfSeveral) {
  AddLayout(3);
  AddLayout(2);
  EXPECT_EQ(Choose(), 2);
  AddLayout(1);
  EXPECT_EQ(Choose(), 1);
}

TEST_F(InstallLocationsTest, OnlyDirectoriesCount) {
  for (const std::uint32_t type : std::initializer_list<std::uint32_t>{S_IFREG, S_IFIFO, S_IFCHR}) {
    AddLayout(1, type | 0777);
    AddLayout(2);
    EXPECT_EQ(Choose(), 2) << type;
  }
}

// The tool tests only one bit of the mode, which sockets and block devices also have.
TEST_F(InstallLocationsTest, TheDirectoryBitDecides) {
  for (const std::uint32_t type :
       std::initializer_list<std::uint32_t>{S_IFDIR, S_IFSOCK, S_IFBLK}) {
    AddLayout(1, type);
    AddLayout(2);
    EXPECT_EQ(Choose(), 1) << type;
  }
}

TEST_F(InstallLocationsTest, DirectoryWhoseStatusCannotBeRead) {
  AddLayout(1);
  world.files[productInfoStructure[0].directory].statusError = EACCES;
  AddLayout(3);
  EXPECT_EQ(Choose(), 3);
}

TEST_F(InstallLocationsTest, DanglingLink) {
  AddLayout(1);
  world.files[productInfoStructure[0].directory].isSymbolicLink = true;
  EXPECT_EQ(Choose(), 0);
}

TEST_F(InstallLocationsTest, AnyTableIsAccepted) {
  world.AddDirectory("/b");
  std::vector<ProductInfoStructure> table;
  table.emplace_back("/a", "", "", "");
  table.emplace_back("/b", "", "", "");
  ProductInfoStructure* entry = nullptr;
  EXPECT_EQ(GetDirectory(entry, table), 0);
  EXPECT_EQ(entry, &table[1]);
}

}  // namespace
