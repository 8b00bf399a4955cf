// Tests the interface with this host's adapter and with the machine's anchors, if any.

#include "platform/code_signing.h"

#include <gtest/gtest.h>

#include "platform/linux/code_signing/status.h"
#include "tests/code_signing/cms_builder.h"
#include "tests/code_signing/directory_fixture.h"
#include "tests/code_signing/signature_builder.h"

namespace platform {
namespace {

using code_signing::MakeNamedCertificate;
using code_signing::TestDirectory;

TEST(CodeSigningAdapterTest, FillsTheCodeOnSuccessOnly) {
  const TestDirectory directory;
  directory.Write("file", "contents");
  StaticCode code;
  EXPECT_EQ(CreateStaticCode(directory.Path("file"), code), code_signing::kErrSecSuccess);
  EXPECT_NE(code.handle, nullptr);
  EXPECT_EQ(CreateStaticCode(directory.Path("missing"), code),
            code_signing::kErrSecCSStaticCodeNotFound);
  EXPECT_EQ(code.handle, nullptr);
}

TEST(CodeSigningAdapterTest, UnsignedCodeHasNoInformation) {
  const TestDirectory directory;
  directory.Write("file", "contents");
  StaticCode code;
  ASSERT_EQ(CreateStaticCode(directory.Path("file"), code), code_signing::kErrSecSuccess);
  EXPECT_EQ(CheckValidity(code), code_signing::kErrSecCSUnsigned);
  EXPECT_EQ(CheckValidity(code), code_signing::kErrSecCSUnsigned);
  SigningInformation information;
  information.teamIdentifier = "left over";
  EXPECT_EQ(CopySigningInformation(code, information), code_signing::kErrSecSuccess);
  EXPECT_FALSE(information.certificates);
  EXPECT_FALSE(information.teamIdentifier);
}

TEST(CodeSigningAdapterTest, AdhocSignedCodeIsValidWithoutAnchors) {
  const TestDirectory directory;
  directory.Write("tool", code_signing::MakeSignedMachO({}));
  StaticCode code;
  ASSERT_EQ(CreateStaticCode(directory.Path("tool"), code), code_signing::kErrSecSuccess);
  const StaticCode sameCode = code;
  EXPECT_EQ(CheckValidity(sameCode), code_signing::kErrSecSuccess);
}

TEST(CodeSigningAdapterTest, GivesTheLastCommonName) {
  const Certificate two{std::shared_ptr<X509>(
      MakeNamedCertificate({{"CN", "first"}, {"O", "Example"}, {"CN", "second"}}))};
  std::optional<std::string> name;
  EXPECT_EQ(CopyCommonName(two, name), code_signing::kErrSecSuccess);
  EXPECT_EQ(name, "second");
  const Certificate none{std::shared_ptr<X509>(MakeNamedCertificate({{"O", "Example"}}))};
  EXPECT_EQ(CopyCommonName(none, name), code_signing::kErrSecInternal);
  EXPECT_FALSE(name);
}

}  // namespace
}  // namespace platform
