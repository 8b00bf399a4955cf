// Whole files with a CMS signature as an attacker would forge it.

#include "platform/linux/code_signing/signed_code.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/signature_check.h"
#include "tests/code_signing/cms_builder.h"
#include "tests/code_signing/directory_fixture.h"
#include "tests/code_signing/signature_builder.h"

namespace platform::code_signing {
namespace {

constexpr char kSecondAgility[] = "1.2.840.113635.100.9.2";

std::string DirectoryOf(const std::string& code, HashType hashType = HashType::kSha256) {
  TestDirectoryContents contents;
  contents.code = code;
  contents.flags = 0;
  contents.hashType = hashType;
  return MakeCodeDirectory(contents);
}

class SignedFileTest : public testing::Test {
 protected:
  OsStatus Status(const std::string& path = "library") const {
    const auto context =
        std::make_shared<CheckContext>(CheckContext{TrustStore({signer_.chain.back()})});
    std::unique_ptr<SignedCode> code;
    const OsStatus status = SignedCode::Open(directory_.Path(path), context, code);
    return status == kErrSecSuccess ? code->CheckValidity() : status;
  }

  /// Checks a file whose signature has these components and a message made by `plan`.
  OsStatus StatusOfFile(const std::string& code, std::map<Slot, std::string> components,
                        CmsPlan plan) const {
    plan.content = components.at(kSlotCodeDirectory);
    if (plan.signers.empty()) plan.signers = {signer_};
    components[kSlotCmsSignature] = MakeWrapper(MakeCms(plan));
    directory_.Write("library", code);
    directory_.Write("library.codesignature", MakeSuperBlob(components));
    return Status();
  }

  /// A slice whose directory names a team.
  std::string Slice(const DirectorySigner& sign, std::uint32_t flags = 0) const {
    TestDirectoryContents contents;
    contents.flags = flags;
    contents.team = "TEAM";
    return MakeSignedMachO(contents, sign);
  }

  static DirectorySigner SignWith(const TestSigner& signer) {
    return [signer](const std::string& directory) {
      CmsPlan plan;
      plan.content = directory;
      plan.signers = {signer};
      return MakeCms(plan);
    };
  }

  const TestDirectory directory_;
  const TestSigner signer_ = MakeSigner();
};

TEST_F(SignedFileTest, RejectsADirectoryThatNoAttributeNames) {
  // Everything would be compared with the added directory, which has the better digest.
  EXPECT_EQ(StatusOfFile("evil",
                         {{kSlotCodeDirectory, DirectoryOf("code")},
                          {kSlotAlternateCodeDirectories, DirectoryOf("evil", HashType::kSha384)}},
                         {}),
            kErrSecCSSignatureFailed);
  // Nothing else was changed.
  EXPECT_EQ(StatusOfFile("code",
                         {{kSlotCodeDirectory, DirectoryOf("code", HashType::kSha384)},
                          {kSlotAlternateCodeDirectories, DirectoryOf("code", HashType::kSha1)}},
                         {}),
            kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, RejectsAnAddedDirectoryOfAnUnknownType) {
  const std::string base = DirectoryOf("code");
  std::string unknown = DirectoryOf("code", HashType::kSha1);
  constexpr std::size_t kHashTypeOffset = 37;
  unknown[kHashTypeOffset] = 9;
  const std::string sha256 = Der(0x30, Der(0x06, "\x60\x86\x48\x01\x65\x03\x04\x02\x01") +
                                           Der(0x04, DigestOf(HashType::kSha256, base)));
  CmsPlan plan;
  plan.signedAttributes = {{kSecondAgility, {sha256}}};
  EXPECT_EQ(StatusOfFile("code", {{kSlotCodeDirectory, base}}, plan), kErrSecSuccess);
  EXPECT_EQ(
      StatusOfFile("code", {{kSlotCodeDirectory, base}, {kSlotAlternateCodeDirectories, unknown}},
                   plan),
      kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, AttributesNameEachKnownDirectory) {
  constexpr char kSha256[] = "\x60\x86\x48\x01\x65\x03\x04\x02\x01";
  constexpr char kSha384[] = "\x60\x86\x48\x01\x65\x03\x04\x02\x02";
  const auto named = [](const char* digest, const std::string& hash) {
    return Der(0x30, Der(0x06, digest) + Der(0x04, hash));
  };
  const auto status = [&](const std::map<Slot, std::string>& directories,
                          const std::vector<std::string>& values) {
    CmsPlan plan;
    plan.signedAttributes = {{kSecondAgility, values}};
    return StatusOfFile("code", directories, plan);
  };
  // A truncated digest may be written in full.
  const std::string cut = DirectoryOf("code", HashType::kSha256Truncated);
  const std::string full = DigestOf(HashType::kSha256, cut);
  EXPECT_EQ(status({{kSlotCodeDirectory, cut}}, {named(kSha256, full)}), kErrSecSuccess);
  EXPECT_EQ(status({{kSlotCodeDirectory, cut}}, {named(kSha256, full.substr(0, 20))}),
            kErrSecSuccess);
  EXPECT_EQ(status({{kSlotCodeDirectory, cut}}, {named(kSha256, full.substr(0, 19))}),
            kErrSecCSSignatureFailed);
  // The message covers the base directory, even if nobody knows its type.
  const std::string known = DirectoryOf("code");
  std::string unknown = DirectoryOf("code", HashType::kSha384);
  constexpr std::size_t kHashTypeOffset = 37;
  unknown[kHashTypeOffset] = 9;
  const std::vector<std::string> both = {named(kSha256, DigestOf(HashType::kSha256, known)),
                                         named(kSha384, std::string(48, 'x'))};
  EXPECT_EQ(status({{kSlotCodeDirectory, unknown}, {kSlotAlternateCodeDirectories, known}}, both),
            kErrSecSuccess);
  EXPECT_EQ(status({{kSlotCodeDirectory, known}, {kSlotAlternateCodeDirectories, unknown}}, both),
            kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, TheTopDirectoryListsAlternateDirectories) {
  const auto status = [&](const std::vector<std::uint32_t>& listed) {
    TestDirectoryContents contents;
    contents.code = "code";
    contents.flags = 0;
    contents.sealed = {{kSlotTopDirectory, BigEndianFields(listed)}};
    const std::string base = MakeCodeDirectory(contents);
    contents.hashType = HashType::kSha1;
    const std::string alternate = MakeCodeDirectory(contents);
    CmsPlan plan;
    plan.signedAttributes = {{kSecondAgility,
                              {Der(0x30, Der(0x06, "\x60\x86\x48\x01\x65\x03\x04\x02\x01") +
                                             Der(0x04, DigestOf(HashType::kSha256, base))),
                               Der(0x30, Der(0x06, "\x2B\x0E\x03\x02\x1A") +
                                             Der(0x04, DigestOf(HashType::kSha1, alternate)))}}};
    return StatusOfFile("code",
                        {{kSlotCodeDirectory, base},
                         {kSlotAlternateCodeDirectories, alternate},
                         {kSlotTopDirectory, MakeWrapper(BigEndianFields(listed))}},
                        plan);
  };
  EXPECT_EQ(status({kSlotCodeDirectory, kSlotTopDirectory, kSlotAlternateCodeDirectories,
                    kSlotCmsSignature}),
            kErrSecSuccess);
  EXPECT_EQ(status({kSlotCodeDirectory, kSlotTopDirectory, kSlotCmsSignature}),
            kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, OldDirectoriesHaveNeitherTeamNorScatterList) {
  std::string directory = DirectoryOf("code");
  constexpr std::size_t kVersion = 8;
  directory.replace(kVersion, 4, BigEndianFields({0x20001}));
  EXPECT_EQ(StatusOfFile("code", {{kSlotCodeDirectory, directory}}, {}), kErrSecSuccess);
}

TEST_F(SignedFileTest, RejectsOldMessageDigests) {
  const TestSigner rsa = MakeSigner("codeSigning", MakeRsaKey(2048), signer_.authority);
  CmsPlan plan;
  plan.signers = {rsa};
  plan.digest = EVP_sha1();
  EXPECT_EQ(StatusOfFile("code", {{kSlotCodeDirectory, DirectoryOf("code")}}, plan),
            kErrSecSuccess);
  plan.digest = EVP_md5();
  EXPECT_EQ(StatusOfFile("code", {{kSlotCodeDirectory, DirectoryOf("code")}}, plan),
            kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, EverySliceNeedsTheSameSigner) {
  const auto status = [&](const std::vector<std::string>& slices) {
    directory_.Write("tool", MakeUniversal(slices));
    return Status("tool");
  };
  constexpr std::uint32_t kAdhoc = 0x2;
  constexpr std::uint32_t kLinkerSigned = 0x20002;
  const std::string good = Slice(SignWith(signer_));
  const std::string adhoc = Slice(nullptr, kAdhoc);
  EXPECT_EQ(status({good, good}), kErrSecSuccess);
  EXPECT_EQ(status({adhoc, adhoc}), kErrSecSuccess);
  EXPECT_EQ(status({good, adhoc}), kErrSecCSSignatureInvalid);
  EXPECT_EQ(status({adhoc, good}), kErrSecCSSignatureInvalid);
  EXPECT_EQ(status({good, Slice(nullptr, kLinkerSigned)}), kErrSecCSSignatureInvalid);
  EXPECT_EQ(status({good, good, adhoc}), kErrSecCSSignatureInvalid);
  EXPECT_EQ(status({good, Slice(SignWith(signer_), kAdhoc)}), kErrSecCSSignatureInvalid);
  // Another leaf of the same authority is another signer.
  const TestSigner other = MakeSigner("codeSigning", MakeEcKey(), signer_.authority);
  EXPECT_EQ(status({Slice(SignWith(other)), Slice(SignWith(other))}), kErrSecSuccess);
  EXPECT_EQ(status({good, Slice(SignWith(other))}), kErrSecCSSignatureInvalid);
}

TEST_F(SignedFileTest, EverySliceOfABundleSealsItsResources) {
  const std::string seal =
      "<plist><dict><key>files</key><dict/><key>rules</key><dict/></dict></plist>";
  const auto status = [&](std::map<Slot, std::string> sealed) {
    TestDirectoryContents contents;
    contents.flags = 0;
    contents.sealed = {{kSlotResourceDirectory, seal}};
    const std::string first = MakeSignedMachO(contents, SignWith(signer_));
    contents.sealed = std::move(sealed);
    const std::string second = MakeSignedMachO(contents, SignWith(signer_));
    directory_.Write("A.app/Contents/MacOS/A", MakeUniversal({first, second}));
    directory_.Write("A.app/Contents/_CodeSignature/CodeResources", seal);
    return Status("A.app");
  };
  EXPECT_EQ(status({{kSlotResourceDirectory, seal}}), kErrSecSuccess);
  EXPECT_EQ(status({{kSlotResourceDirectory, seal + " "}}), kErrSecCSResourceDirectoryFailed);
  EXPECT_EQ(status({}), kErrSecCSResourcesNotFound);
}

TEST_F(SignedFileTest, EveryVersionOfABundleNeedsTheSameSigner) {
  const std::string seal =
      "<plist><dict><key>files</key><dict/><key>rules</key><dict/></dict></plist>";
  const auto sign = [&](const std::string& version, const TestSigner& signer) {
    TestDirectoryContents contents;
    contents.flags = 0;
    contents.team = "TEAM";
    contents.sealed = {{kSlotResourceDirectory, seal}};
    const std::string directory = "A.framework/Versions/" + version;
    directory_.Write(directory + "/_CodeSignature/CodeResources", seal);
    // The name of the executable is that of the directory, because there is no Info.plist.
    for (const std::string& name : {std::string("Current"), version}) {
      directory_.Write(directory + "/" + name, MakeSignedMachO(contents, SignWith(signer)));
    }
  };
  sign("B", signer_);
  directory_.MakeLink("A.framework/Versions/Current", "B");
  directory_.MakeLink("A.framework/Current", "Versions/Current/Current");
  sign("C", signer_);
  EXPECT_EQ(Status("A.framework"), kErrSecSuccess);
  sign("C", MakeSigner("codeSigning", MakeEcKey(), signer_.authority));
  EXPECT_EQ(Status("A.framework"), kErrSecCSBadNestedCode);
}

TEST_F(SignedFileTest, EveryProcessMustFindTheSameFile) {
  directory_.Write("file", Slice(SignWith(signer_)));
  directory_.MakeLink("link", "file");
  EXPECT_EQ(Status("link"), kErrSecSuccess);
  directory_.MakeLink("directory", "/proc/self/cwd");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory_.Path(""));
  EXPECT_EQ(Status("directory/file"), kErrSecCSSignatureFailed);
  std::filesystem::current_path(before);
}

TEST_F(SignedFileTest, SlicesMustNotOverlap) {
  const std::string slice = Slice(SignWith(signer_));
  const std::string file = MakeUniversal({slice, slice});
  constexpr std::size_t kFirstSize = 8 + 12;
  const auto status = [&](std::size_t firstSize) {
    directory_.Write("tool",
                     std::string(file).replace(
                         kFirstSize, 4, BigEndianFields({static_cast<std::uint32_t>(firstSize)})));
    return Status("tool");
  };
  const std::size_t room = file.size() - slice.size() - file.find(slice);  // up to the second slice
  EXPECT_EQ(status(slice.size()), kErrSecSuccess);
  EXPECT_EQ(status(room), kErrSecSuccess);
  EXPECT_EQ(status(room + 1), kErrSecCSSignatureFailed);
  // The signature must be in the slice, too.
  EXPECT_EQ(status(64), kErrSecCSSignatureFailed);
}

TEST_F(SignedFileTest, ComponentsMustNotOverlap) {
  constexpr std::size_t kFirstOffset = 12 + 4;
  constexpr std::size_t kSecondOffset = kFirstOffset + 8;
  TestDirectoryContents contents;
  contents.code = "code";
  std::string blobs = MakeSuperBlob({{kSlotCodeDirectory, MakeCodeDirectory(contents)},
                                     {kSlotRequirements, BigEndianFields({0xFADE0C01, 8})}});
  directory_.Write("library", contents.code);
  directory_.Write("library.codesignature", blobs);
  EXPECT_EQ(Status(), kErrSecSuccess);
  directory_.Write("library.codesignature",
                   blobs.replace(kSecondOffset, 4, blobs, kFirstOffset, 4));
  EXPECT_EQ(Status(), kErrSecCSSignatureInvalid);
}

TEST_F(SignedFileTest, HashingIsLimited) {
  // One page of 5 GiB in a sparse file.
  TestDirectoryContents contents;
  contents.code = "code";
  std::string directory = MakeCodeDirectory(contents);
  constexpr std::size_t kCodeLimit64 = 56;
  directory.replace(kCodeLimit64, 8, std::string("\0\0\0\x01\x40\0\0\0", 8));
  directory_.Write("library", "");
  ASSERT_EQ(truncate(directory_.Path("library").c_str(), off_t{5} << 30), 0);
  directory_.Write("library.codesignature", MakeSuperBlob({{kSlotCodeDirectory, directory}}));
  EXPECT_THROW(Status(), BudgetExceeded);
}

TEST_F(SignedFileTest, MessagesAreLimited) {
  const CodeDirectorySet directories;
  CheckContext context;
  CertificateChain chain;
  const std::string message(std::size_t{1} << 20, 'x');
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(CheckSignature(message, kErrSecSuccess, directories, context, chain),
              kErrSecUnknownFormat);
  }
  EXPECT_THROW(
      static_cast<void>(CheckSignature(message, kErrSecSuccess, directories, context, chain)),
      BudgetExceeded);
}

TEST_F(SignedFileTest, ComponentsAreLimited) {
  TestDirectoryContents contents;
  contents.code = "code";
  const std::string requirements(std::size_t{40} << 20, 'r');
  contents.sealed = {{kSlotRequirements, requirements}};
  directory_.Write("library", contents.code);
  directory_.Write("library.codesignature",
                   MakeSuperBlob({{kSlotCodeDirectory, MakeCodeDirectory(contents)},
                                  {kSlotRequirements, MakeWrapper(requirements)}}));
  const auto context = std::make_shared<CheckContext>();
  context->budget.ChargeForComponent(std::size_t{30} << 20);
  std::unique_ptr<SignedCode> code;
  ASSERT_EQ(SignedCode::Open(directory_.Path("library"), context, code), kErrSecSuccess);
  EXPECT_THROW(code->CheckValidity(), BudgetExceeded);
}

TEST_F(SignedFileTest, AllCodeBeforeTheSignatureIsCovered) {
  TestDirectoryContents contents;
  contents.flags = 0;
  const std::string directory = MakeCodeDirectory(contents);  // of an empty file
  const std::string signature =
      MakeSuperBlob({{kSlotCodeDirectory, directory},
                     {kSlotCmsSignature, MakeWrapper(SignWith(signer_)(directory))}});
  directory_.Write("library", "");
  directory_.Write("library.codesignature", signature);
  EXPECT_EQ(Status(), kErrSecSuccess);
  directory_.Write("library", MakeMachOCode(64) + signature);
  EXPECT_EQ(Status(), kErrSecCSSignatureFailed);
}

// Keys on other curves could take libcrypto a long time to decode, and it decodes a key as soon as
// it parses the certificate.
TEST_F(SignedFileTest, RejectsKeysOnOtherCurves) {
  const auto status = [&](const TestKey& key) {
    CertificatePlan decoy;
    decoy.key = decoy.issuerKey = key;
    CmsPlan plan;
    plan.signers = {signer_};
    plan.signers.front().chain.push_back(MakeCertificate(decoy));
    return StatusOfFile("code", {{kSlotCodeDirectory, DirectoryOf("code")}}, plan);
  };
  for (const char* const curve : {"P-256", "P-384", "P-521"}) {
    EXPECT_EQ(status(MakeEcKey(curve)), kErrSecSuccess) << curve;
  }
  EXPECT_NE(status(MakeEcKey("secp224r1")), kErrSecSuccess);
  const auto changed = [&](const char* parameter, const char* value) {
    TestKey key = MakeEcKey("P-256");
    EXPECT_EQ(EVP_PKEY_set_utf8_string_param(key.get(), parameter, value), 1);
    return key;
  };
  EXPECT_NE(status(changed(OSSL_PKEY_PARAM_EC_ENCODING, OSSL_PKEY_EC_ENCODING_EXPLICIT)),
            kErrSecSuccess);
  EXPECT_NE(status(changed(OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                           OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_COMPRESSED)),
            kErrSecSuccess);
}

TEST_F(SignedFileTest, IndexesAreLimited) {
  std::map<Slot, std::string> components = {{kSlotCodeDirectory, DirectoryOf("code")}};
  constexpr Slot kUnknown = 0x20000;
  for (Slot i = 0; i < 62; ++i) components[kUnknown + i] = MakeWrapper("");
  EXPECT_EQ(StatusOfFile("code", components, {}), kErrSecSuccess);
  components[kUnknown + 62] = MakeWrapper("");
  EXPECT_EQ(StatusOfFile("code", components, {}), kErrSecCSSignatureInvalid);
}

TEST_F(SignedFileTest, HashesAndPagesHaveASize) {
  constexpr std::size_t kHashSize = 36;
  const auto status = [&](std::uint8_t pageSizeLog2, bool hasHashes = true) {
    TestDirectoryContents contents;
    contents.code = std::string(8192, 'x');
    contents.pageSizeLog2 = pageSizeLog2;
    std::string directory = MakeCodeDirectory(contents);
    if (!hasHashes) directory[kHashSize] = '\0';
    directory_.Write("library", contents.code);
    directory_.Write("library.codesignature", MakeSuperBlob({{kSlotCodeDirectory, directory}}));
    return Status();
  };
  EXPECT_EQ(status(0), kErrSecSuccess);
  EXPECT_EQ(status(12), kErrSecSuccess);
  EXPECT_EQ(status(14), kErrSecSuccess);
  // Without a message, an unusable directory counts as none.
  EXPECT_EQ(status(11), kErrSecCSUnsigned);
  EXPECT_EQ(status(1), kErrSecCSUnsigned);
  EXPECT_EQ(status(12, false), kErrSecCSUnsigned);
}

}  // namespace
}  // namespace platform::code_signing
