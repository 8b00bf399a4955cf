#include "product/code_signature.h"

#include "tests/support/tool_fixture.h"

namespace {

using fake::Lines;
using fake::Signature;
using testing::ElementsAreArray;

constexpr char kPath[] = "/some where/file";
constexpr char kVendor[] = "Developer ID Application: Corvane SRL (QK7ZP2M9XD)";

/// The whole log of a check that finds a file that the vendor has signed.
const Lines kLog = fake::AcceptedSignatureLog(kPath);

Lines LogUpTo(std::size_t count, const std::string& last) {
  Lines lines(kLog.begin(), kLog.begin() + static_cast<std::ptrdiff_t>(count));
  lines.push_back(last);
  return lines;
}

class CodeSignatureTest : public fake::ToolFixture {
 protected:
  CodeSignatureTest() { world.signatures[kPath] = Signature::Vendors(); }

  Signature& TheSignature() { return world.signatures[kPath]; }

  /// Checks the file, with a log and without.
  void Expect(int code, bool isSigned, const Lines& log) {
    bool found = !isSigned;
    EXPECT_EQ(Tool().CheckCodeSignature(found, kPath, Log()), code);
    EXPECT_EQ(found, isSigned);
    EXPECT_THAT(TakeLog(), ElementsAreArray(log));
    found = !isSigned;
    EXPECT_EQ(Tool().CheckCodeSignature(found, kPath, nullptr), code);
    EXPECT_EQ(found, isSigned);
    EXPECT_THAT(TakeLog(), testing::IsEmpty());
  }

  void ExpectForeign() {
    Expect(0, false, LogUpTo(10, "Check complete. File is not signed by Corvane"));
  }
};

TEST_F(CodeSignatureTest, SignedByTheVendor) { Expect(0, true, kLog); }

TEST_F(CodeSignatureTest, NoFile) {
  world.signatures.clear();
  Expect(-67068, false, LogUpTo(1, "Failed to retrieve static code. Error code: -67068"));
}

TEST_F(CodeSignatureTest, StatusOfTheStaticCode) {
  TheSignature().createStatus = 100013;
  Expect(100013, false, LogUpTo(1, "Failed to retrieve static code. Error code: 100013"));
}

TEST_F(CodeSignatureTest, InvalidSignatures) {
  for (const platform::OsStatus status : {-67062, -67061, -67054, 1, 100002}) {
    TheSignature().validity = status;
    Expect(0, false, LogUpTo(2, "Code is not valid"));
  }
}

TEST_F(CodeSignatureTest, NoInformation) {
  TheSignature().informationStatus = -67049;
  Expect(-67049, false, LogUpTo(4, "Failed to retrieve signing information. Error code: -67049"));
}

TEST_F(CodeSignatureTest, NoCertificates) {
  TheSignature().commonNames.reset();
  Expect(2, false, LogUpTo(6, "Cannot save certificate. Error code: 2"));
}

TEST_F(CodeSignatureTest, EmptyChain) {
  TheSignature().commonNames->clear();
  Expect(2, false, LogUpTo(6, "Cannot save certificate. Error code: 2"));
}

TEST_F(CodeSignatureTest, NoTeamIdentifier) {
  TheSignature().teamIdentifier.reset();
  Expect(2, false, LogUpTo(8, "Failed to save certificate team id. Error code: 2"));
}

TEST_F(CodeSignatureTest, AnotherName) {
  for (const std::string name : {"Developer ID Application: Somebody (AAAAAAAAAA)", "",
                                 "developer id application: corvane srl (qk7zp2m9xd)",
                                 "Developer ID Application: Corvane SRL (QK7ZP2M9XD) "}) {
    TheSignature().commonNames->front() = name;
    ExpectForeign();
  }
  TheSignature().commonNames->front() = std::string(kVendor) + '\0';
  ExpectForeign();
}

TEST_F(CodeSignatureTest, NoName) {
  TheSignature().commonNames->front().reset();
  ExpectForeign();
}

TEST_F(CodeSignatureTest, AnotherTeam) {
  for (const std::string team : {"AAAAAAAAAA", "", "qk7zp2m9xd", "QK7ZP2M9XD "}) {
    TheSignature().teamIdentifier = team;
    ExpectForeign();
  }
}

TEST_F(CodeSignatureTest, OnlyTheLeafCounts) {
  TheSignature().commonNames = {{"Somebody", kVendor}};
  ExpectForeign();
  TheSignature().commonNames = {{kVendor}};
  Expect(0, true, kLog);
}

// The helpers.

TEST_F(CodeSignatureTest, Validity) {
  const platform::AutoreleasePool pool;
  platform::StaticCode code;
  ASSERT_EQ(platform::CreateStaticCode(kPath, code), 0);
  EXPECT_TRUE(CheckCodeValidity(code));
  TheSignature().validity = -67062;
  ASSERT_EQ(platform::CreateStaticCode(kPath, code), 0);
  EXPECT_FALSE(CheckCodeValidity(code));
}

TEST_F(CodeSignatureTest, Names) {
  const platform::AutoreleasePool pool;
  platform::StaticCode code;
  ASSERT_EQ(platform::CreateStaticCode(kPath, code), 0);
  platform::SigningInformation info;
  ASSERT_EQ(platform::CopySigningInformation(code, info), 0);
  std::optional<std::string> name;
  std::optional<std::string> team;
  EXPECT_EQ(SaveCertificateName(name, info), 0);
  EXPECT_EQ(name, kVendor);
  EXPECT_EQ(SaveCertificateTeamId(team, info), 0);
  EXPECT_EQ(team, "QK7ZP2M9XD");
  EXPECT_EQ(SaveCertificateName(name, {}), 2);
  EXPECT_EQ(SaveCertificateTeamId(team, {}), 2);
}

TEST(CheckIsSignedByCorvane, ComparesBoth) {
  EXPECT_TRUE(CheckIsSignedByCorvane(kVendor, "QK7ZP2M9XD"));
  EXPECT_FALSE(CheckIsSignedByCorvane(kVendor, "QK7ZP2M9XE"));
  EXPECT_FALSE(CheckIsSignedByCorvane("Corvane", "QK7ZP2M9XD"));
  EXPECT_FALSE(CheckIsSignedByCorvane(std::nullopt, "QK7ZP2M9XD"));
  EXPECT_FALSE(CheckIsSignedByCorvane(kVendor, std::nullopt));
  EXPECT_FALSE(CheckIsSignedByCorvane(std::nullopt, std::nullopt));
}

}  // namespace
