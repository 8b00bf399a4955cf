#include "tests/code_signing/directory_fixture.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace platform::code_signing {

TestDirectory::TestDirectory() : root_(testing::TempDir() + "code_signing.XXXXXX") {
  if (mkdtemp(root_.data()) == nullptr) ADD_FAILURE() << "no temporary directory";
}

TestDirectory::~TestDirectory() { std::filesystem::remove_all(root_); }

std::string TestDirectory::Path(const std::string& relativePath) const {
  return relativePath.empty() ? root_ : root_ + "/" + relativePath;
}

void TestDirectory::Write(const std::string& relativePath, const std::string& contents) const {
  const std::filesystem::path path = Path(relativePath);
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << contents;
  EXPECT_TRUE(file.good()) << path;
}

void TestDirectory::MakeDirectory(const std::string& relativePath) const {
  std::filesystem::create_directories(Path(relativePath));
}

void TestDirectory::MakeLink(const std::string& relativePath, const std::string& target) const {
  const std::filesystem::path path = Path(relativePath);
  std::filesystem::create_directories(path.parent_path());
  std::filesystem::create_symlink(target, path);
}

void TestDirectory::Remove(const std::string& relativePath) const {
  EXPECT_GT(std::filesystem::remove_all(Path(relativePath)), 0U) << relativePath;
}

}  // namespace platform::code_signing
