#include "platform/linux/code_signing/page_check.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/code_signing/plain_file.h"
#include "tests/code_signing/directory_fixture.h"
#include "tests/code_signing/signature_builder.h"

namespace platform::code_signing {
namespace {

class PageCheckTest : public testing::Test {
 protected:
  /// Signs a file of one page with the given hash types.
  void Sign(const std::string& code, const std::vector<HashType>& types) {
    std::map<Slot, std::string> components;
    Slot slot = kSlotCodeDirectory;
    for (const HashType type : types) {
      TestDirectoryContents contents;
      contents.code = code;
      contents.hashType = type;
      components[slot] = MakeCodeDirectory(contents);
      slot = slot == kSlotCodeDirectory ? kSlotAlternateCodeDirectories : slot + 1;
    }
    directory_.Write("code", code);
    directory_.Write("code.codesignature", MakeSuperBlob(components));
    ASSERT_EQ(file_.Open(directory_.Path("code")), 0);
    RandomAccessFile again;
    ASSERT_EQ(again.Open(directory_.Path("code")), 0);
    const PlainFile plain(directory_.Path("code"), std::move(again), PlainFileSignature::kSidecar);
    ASSERT_EQ(CodeDirectorySet::Load(plain, 0, directories_), kErrSecSuccess);
  }

  OsStatus Check(std::uint64_t start = 0) {
    return PageCheck(file_, start, directories_, budget_).Finish();
  }

  TestDirectory directory_;
  RandomAccessFile file_;
  CodeDirectorySet directories_;
  WorkBudget budget_;
};

TEST_F(PageCheckTest, HashesWithAllKnownTypes) {
  Sign(std::string(1000000, 'x'), {HashType::kSha1, HashType::kSha256, HashType::kSha384});
  EXPECT_EQ(Check(), kErrSecSuccess);
}

TEST_F(PageCheckTest, CanBeginBeforeFinish) {
  Sign(std::string(1000000, 'x'), {HashType::kSha256});
  PageCheck check(file_, 0, directories_, budget_);
  check.Begin();
  EXPECT_EQ(check.Finish(), kErrSecSuccess);
}

TEST_F(PageCheckTest, CanBeLeftUnfinished) {
  Sign(std::string(10000000, 'x'), {HashType::kSha256});
  PageCheck(file_, 0, directories_, budget_).Begin();
  EXPECT_EQ(Check(), kErrSecSuccess);
}

TEST_F(PageCheckTest, RejectsAShrinkingFile) {
  Sign(std::string(1000000, 'x'), {HashType::kSha256});
  ASSERT_EQ(truncate(directory_.Path("code").c_str(), 999999), 0);
  EXPECT_EQ(Check(), kErrSecCSSignatureFailed);
  ASSERT_EQ(truncate(directory_.Path("code").c_str(), 0), 0);
  EXPECT_EQ(Check(), kErrSecCSSignatureFailed);
}

TEST_F(PageCheckTest, RejectsAStartPastTheEndOfTheFile) {
  Sign("code", {HashType::kSha256});
  EXPECT_EQ(Check(0xFFFFFFFF), kErrSecCSSignatureFailed);
  EXPECT_EQ(Check(~std::uint64_t{0}), kErrSecCSSignatureFailed);
}

TEST_F(PageCheckTest, ReportsReadErrors) {
  Sign("code", {HashType::kSha256});
  ASSERT_EQ(file_.Open(directory_.Path()), 0);  // a directory can be opened, but not read
  EXPECT_EQ(Check(), 100021);
}

}  // namespace
}  // namespace platform::code_signing
