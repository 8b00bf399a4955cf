#include "platform/linux/code_signing/resource_seal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "tests/code_signing/directory_fixture.h"
#include "tests/code_signing/signature_builder.h"

namespace platform::code_signing {
namespace {

/// Code of which only the paths matter.
class Places : public EmptyCode {
 public:
  Places(std::optional<std::string> root, std::string executable)
      : root_(std::move(root)), executable_(std::move(executable)) {
    if (root_) static_cast<void>(bundle_.Open(ParentPath(*root_)));
  }

  std::string MainExecutablePath() const override { return executable_; }
  std::optional<std::string> ResourceRoot() const override { return root_; }
  const BundleRoot* Root() const override { return &bundle_; }

 private:
  BundleRoot bundle_;
  const std::optional<std::string> root_;
  const std::string executable_;
};

std::string Data(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return "<data>" + text + "</data>";
}

std::string Member(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key>" + value;
}

std::string Dictionary(const std::string& members) { return "<dict>" + members + "</dict>"; }
std::string Text(const std::string& text) { return "<string>" + text + "</string>"; }

/// A version 2 entry for a file with these contents.
std::string Sealed(const std::string& contents, const std::string& more = "") {
  return Dictionary(Member("hash", Data(DigestOf(HashType::kSha1, contents))) +
                    Member("hash2", Data(DigestOf(HashType::kSha256, contents))) + more);
}

constexpr char kOptional[] = "<key>optional</key><true/>";

/// The rules that signing tools write, abridged.
std::string UsualRules() {
  return Member("^.*", "<true/>") +
         Member("^(Frameworks|MacOS)/",
                Dictionary(Member("nested", "<true/>") + Member("weight", "<real>10</real>"))) +
         Member("^(.*/)?\\.DS_Store$",
                Dictionary(Member("omit", "<true/>") + Member("weight", "<real>2000</real>"))) +
         Member("^Info\\.plist$",
                Dictionary(Member("omit", "<true/>") + Member("weight", "<real>20</real>")));
}

class ResourceSealTest : public testing::Test {
 protected:
  ResourceSealTest() {
    directory_.Write("Contents/Info.plist", "information");
    directory_.Write("Contents/MacOS/tool", "code");
    directory_.Write("Contents/Resources/a.txt", "text");
    directory_.MakeLink("Contents/Resources/link", "a.txt");
    directory_.Write("Contents/_CodeSignature/CodeResources", "not looked at");
  }

  OsStatus Check(const std::string& codeResources) {
    const Places places(directory_.Path("Contents"), directory_.Path("Contents/MacOS/tool"));
    return CheckResources({places, codeResources, hashTypes_,
                           [this](const auto& path, const auto& requirement) {
                             requirement({});
                             nested_.push_back(std::filesystem::canonical(path).string());
                             return nestedStatus_;
                           }},
                          context_);
  }

  static std::string List(const std::string& members) {
    return "<plist>" + Dictionary(members) + "</plist>";
  }

  /// A list of version 2 with these entries.
  static std::string List2(const std::string& files, const std::string& rules = UsualRules()) {
    return List(Member("files", "<dict/>") + Member("rules", "<dict/>") +
                Member("files2", Dictionary(files)) + Member("rules2", Dictionary(rules)));
  }

  /// Checks the bundle with "link" as a sealed link to `target`, beside a sealed link "here" to
  /// ".".
  OsStatus CheckLink(const std::string& target) {
    directory_.Remove("Contents/Resources/link");
    directory_.MakeLink("Contents/Resources/link", target);
    return Check(List2(FileEntry() + LinkEntry(target) +
                       Member("Resources/here", Dictionary(Member("symlink", Text("."))))));
  }

  static std::string LinkEntry(const std::string& target = "a.txt") {
    return Member("Resources/link", Dictionary(Member("symlink", Text(target))));
  }

  static std::string FileEntry() { return Member("Resources/a.txt", Sealed("text")); }

  OsStatus CheckUsual(const std::string& more = "") {
    return Check(List2(FileEntry() + LinkEntry() + more));
  }

  const TestDirectory directory_;
  std::vector<HashType> hashTypes_ = {HashType::kSha256};
  CheckContext context_;
  std::vector<std::string> nested_;
  OsStatus nestedStatus_ = kErrSecSuccess;
};

TEST_F(ResourceSealTest, AllSealsOfACheckHaveOneBudget) {
  const std::string spaces(std::size_t{5} << 20, ' ');
  for (int i = 0; i < 6; ++i) EXPECT_EQ(CheckUsual(spaces), kErrSecSuccess);
  EXPECT_EQ(CheckUsual(spaces), kErrSecCSInternalError);
}

TEST_F(ResourceSealTest, ChecksTheHashesOfAllTypesInUse) {
  hashTypes_ = {HashType::kSha1, HashType::kSha256};
  EXPECT_EQ(CheckUsual(), kErrSecSuccess);
  const std::string otherSha1 =
      Dictionary(Member("hash", Data(DigestOf(HashType::kSha1, "other"))) +
                 Member("hash2", Data(DigestOf(HashType::kSha256, "text"))));
  const std::string list = List2(Member("Resources/a.txt", otherSha1) + LinkEntry());
  EXPECT_EQ(Check(list), kErrSecCSBadResource);
  hashTypes_ = {HashType::kSha256};
  EXPECT_EQ(Check(list), kErrSecSuccess);
}

TEST_F(ResourceSealTest, FallsBackToTheUnnumberedHash) {
  for (const HashType type : {HashType::kSha256, HashType::kSha256Truncated, HashType::kSha384}) {
    hashTypes_ = {type};
    const std::string entry = Dictionary(Member("hash", Data(DigestOf(type, "text"))));
    EXPECT_EQ(Check(List2(Member("Resources/a.txt", entry) + LinkEntry())), kErrSecSuccess);
  }
  const std::string bare = Data(DigestOf(HashType::kSha384, "text"));
  EXPECT_EQ(Check(List2(Member("Resources/a.txt", bare) + LinkEntry())), kErrSecSuccess);
}

TEST_F(ResourceSealTest, FindsAlteredFiles) {
  const std::string large(300000, 'x');
  directory_.Write("Contents/Resources/large", large);
  const std::string entry = Member("Resources/large", Sealed(large));
  EXPECT_EQ(CheckUsual(entry), kErrSecSuccess);
  for (const std::string& altered : {large.substr(1) + "y", large.substr(1), std::string()}) {
    directory_.Write("Contents/Resources/large", altered);
    EXPECT_EQ(CheckUsual(entry), kErrSecCSBadResource);
  }
}

TEST_F(ResourceSealTest, FindsAddedAndMissingFiles) {
  const std::string entry = Member("Resources/deep/b.txt", Sealed("more"));
  EXPECT_EQ(CheckUsual(entry), kErrSecCSBadResource);
  directory_.Write("Contents/Resources/deep/b.txt", "more");
  EXPECT_EQ(CheckUsual(entry), kErrSecSuccess);
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, OptionalFilesMayBeMissingButNotAltered) {
  const std::string entry = Member("Resources/b.txt", Sealed("more", kOptional));
  EXPECT_EQ(CheckUsual(entry), kErrSecSuccess);
  directory_.Write("Contents/Resources/b.txt", "other");
  EXPECT_EQ(CheckUsual(entry), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, FindsAlteredLinks) {
  EXPECT_EQ(Check(List2(FileEntry() + LinkEntry("b.txt"))), kErrSecCSBadResource);
  EXPECT_EQ(Check(List2(FileEntry() + LinkEntry("a.txt2"))), kErrSecCSBadResource);
  EXPECT_EQ(Check(List2(FileEntry() + LinkEntry("a.tx"))), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, FindsChangedKinds) {
  directory_.Remove("Contents/Resources/link");
  directory_.Write("Contents/Resources/link", "text");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
  directory_.Remove("Contents/Resources/link");
  directory_.MakeDirectory("Contents/Resources/link");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
  directory_.Remove("Contents/Resources/link");
  directory_.MakeLink("Contents/Resources/link", "a.txt");
  directory_.Remove("Contents/Resources/a.txt");
  directory_.Write("outside", "text");
  directory_.MakeLink("Contents/Resources/a.txt", "../../outside");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, IgnoresDirectoriesAndPathsThatRulesOmit) {
  directory_.Write("Contents/Resources/.DS_Store", "x");
  directory_.MakeDirectory("Contents/Resources/empty/directories");
  EXPECT_EQ(CheckUsual(), kErrSecSuccess);
}

TEST_F(ResourceSealTest, PipesAreNeverSealed) {
  ASSERT_EQ(mkfifo(directory_.Path("Contents/Resources/pipe").c_str(), 0600), 0);
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, OmittedDirectoriesAreEntered) {
  const std::string rules = UsualRules() + Member("^Resources/private$", "<false/>") +
                            Member("^Resources/private2$",
                                   "<dict><key>omit</key><true/>"
                                   "<key>weight</key><real>50</real></dict>");
  EXPECT_EQ(Check(List2(FileEntry() + LinkEntry(), rules)), kErrSecSuccess);
  directory_.Write("Contents/Resources/private2/file", "x");
  EXPECT_EQ(Check(List2(FileEntry() + LinkEntry(), rules)), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, ASealedFileThatARuleOmitsIsMissing) {
  EXPECT_EQ(CheckUsual(Member("Info.plist", Sealed("information"))), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, UnmatchedFilesAreNotSealed) {
  EXPECT_EQ(Check(List2("", "")), kErrSecSuccess);
  EXPECT_EQ(Check(List2("", Member("^nothing$", "<true/>"))), kErrSecSuccess);
}

TEST_F(ResourceSealTest, ExcludesTheSignatureTheReceiptAndTheExecutable) {
  directory_.Write("Contents/_MASReceipt/receipt", "x");
  directory_.MakeLink("Contents/CodeResources", "_CodeSignature/CodeResources");
  EXPECT_EQ(CheckUsual(), kErrSecSuccess);
  directory_.Write("Contents/MacOS/tool2", "x");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
  directory_.Remove("Contents/MacOS/tool2");
  directory_.Write("Contents/Resources/_CodeSignature/file", "x");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, RejectsLinksNamedLikeFinderFilesAtOnce) {
  directory_.MakeLink("Contents/Resources/.ds_store", "a.txt");
  directory_.Write("Contents/Resources/added", "x");
  EXPECT_EQ(CheckUsual(), kErrSecCSDSStoreSymlink);
}

TEST_F(ResourceSealTest, WhatCannotBeExaminedIsAnError) {
  ASSERT_EQ(chmod(directory_.Path().c_str(), 0755), 0);
  directory_.MakeDirectory("Contents/Resources/closed");
  for (const char* const closed : {"Contents/Resources/closed", "Contents/Resources/a.txt"}) {
    ASSERT_EQ(chmod(directory_.Path(closed).c_str(), 0), 0);
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0) setfsuid(kNobody);  // root reads everything
    EXPECT_EQ(CheckUsual(), 100013);
    if (geteuid() == 0) setfsuid(0);
    ASSERT_EQ(chmod(directory_.Path(closed).c_str(), 0755), 0);
    EXPECT_EQ(CheckUsual(), kErrSecSuccess);
  }
}

TEST_F(ResourceSealTest, OnlyAFileMayStandForASealedFile) {
  const std::string entry = Member("Resources/optional", Sealed("x", kOptional));
  EXPECT_EQ(CheckUsual(entry), kErrSecSuccess);
  const std::string path = directory_.Path("Contents/Resources/optional");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(CheckUsual(entry), kErrSecCSBadResource);
  directory_.Remove("Contents/Resources/optional");
  directory_.MakeDirectory("Contents/Resources/optional");
  EXPECT_EQ(CheckUsual(entry), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, NoLinkStandsForAFolderOfSealedFiles) {
  hashTypes_ = {HashType::kSha1};
  const auto list = [](const std::string& path) {
    return List(Member("rules", Dictionary(Member("^Resources/", "<true/>"))) +
                Member("files", Dictionary(FileEntry() + Member(path, Sealed("x", kOptional)))));
  };
  directory_.MakeLink("Contents/Resources/en.lproj", "/tmp");
  EXPECT_EQ(Check(list("Resources/de.lproj/x")), kErrSecSuccess);
  EXPECT_EQ(Check(list("Resources/en.lproj/x")), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, PathsMustNotBeLongerThanAMacAllows) {
  const std::string name(200, 'n');
  std::string path = "Contents/Resources";
  for (int i = 0; i < 4; ++i) path += "/" + name;
  directory_.MakeDirectory(path);
  EXPECT_EQ(CheckUsual(), kErrSecSuccess);
  directory_.MakeDirectory(path + "/" + name + "/" + name);
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, FilesMustNotHaveManyNames) {
  const std::string file = directory_.Path("Contents/Resources/a.txt");
  std::string entries = FileEntry() + LinkEntry();
  const auto add = [&](const std::string& name) {
    std::filesystem::create_hard_link(file, directory_.Path(name));
  };
  for (int i = 0; i < 20; ++i) add("elsewhere" + std::to_string(i));
  for (int i = 0; i < 7; ++i) {
    const std::string name = "Resources/name" + std::to_string(i);
    add("Contents/" + name);
    entries += Member(name, Sealed("text"));
  }
  EXPECT_EQ(Check(List2(entries)), kErrSecSuccess);
  EXPECT_THROW(Check(List2(entries)), BudgetExceeded);
}

TEST_F(ResourceSealTest, EntriesAreLimited) {
  EXPECT_EQ(CheckUsual(), kErrSecSuccess);
  for (int i = 0; i < 65525; ++i) context_.budget.ChargeForEntry(1);
  EXPECT_THROW(CheckUsual(), BudgetExceeded);
}

TEST_F(ResourceSealTest, LinksThroughLinksAreLimited) {
  directory_.MakeLink("Contents/Resources/here", ".");
  EXPECT_EQ(CheckLink("here/a.txt"), kErrSecSuccess);
  context_.budget.ChargeForEntry((std::uint64_t{8} << 20) - (std::uint64_t{100} << 10));
  EXPECT_EQ(CheckLink("a.txt"), kErrSecSuccess);
  EXPECT_THROW(CheckLink("here/a.txt"), BudgetExceeded);
}

TEST_F(ResourceSealTest, SealedLinksStayInTheBundle) {
  directory_.Write("outside", "x");
  directory_.MakeLink("Contents/Resources/here", ".");
  for (const std::string& target :
       {std::string("a.txt"), std::string("../MacOS/tool"), std::string("here/a.txt"),
        std::string("nowhere"), std::string("../nowhere"), directory_.Path("Contents/MacOS")}) {
    EXPECT_EQ(CheckLink(target), kErrSecSuccess) << target;
  }
  for (const std::string& target :
       {std::string("/etc/passwd"), std::string("/nowhere"), std::string("../../../.."),
        std::string("../../nowhere"), std::string("here/../../../..")}) {
    EXPECT_EQ(CheckLink(target), kErrSecCSBadResource) << target;
  }
}

TEST_F(ResourceSealTest, ChecksNestedCodeWithoutEnteringIt) {
  directory_.Write("Contents/Frameworks/B.framework/file", "x");
  directory_.Write("Contents/Frameworks/c.dylib", "x");
  const std::string entry = Dictionary(Member("requirement", Text("identifier b")) +
                                       Member("cdhash", Data(std::string(20, 'c'))));
  const std::string entries =
      Member("Frameworks/B.framework", entry) + Member("Frameworks/c.dylib", entry);
  EXPECT_EQ(CheckUsual(entries), kErrSecSuccess);
  EXPECT_THAT(nested_,
              testing::UnorderedElementsAre(directory_.Path("Contents/Frameworks/B.framework"),
                                            directory_.Path("Contents/Frameworks/c.dylib")));
}

TEST_F(ResourceSealTest, NestedCodeNeedsAnEntry) {
  directory_.Write("Contents/Frameworks/B.framework/file", "x");
  EXPECT_EQ(CheckUsual(), kErrSecCSBadResource);
  EXPECT_EQ(CheckUsual(Member("Frameworks/B.framework/file", Sealed("x"))), kErrSecCSBadResource);
  EXPECT_EQ(CheckUsual(Member("Frameworks/B.framework", Sealed("x"))), 100021);
  directory_.Remove("Contents/Frameworks");
  // A directory without a dot in its name is not nested code.
  directory_.Write("Contents/Frameworks/plain/file", "x");
  EXPECT_EQ(CheckUsual(Member("Frameworks/plain/file", Sealed("x"))), kErrSecSuccess);
}

TEST_F(ResourceSealTest, NestedCodeIsNotReachedByALinkOrABadRequirement) {
  directory_.Write("Contents/Frameworks/c.dylib", "x");
  EXPECT_EQ(CheckUsual(Member("Frameworks/c.dylib",
                              Dictionary(Member("requirement", Text("identifier"))))),
            kErrSecCSResourcesInvalid);
  directory_.Remove("Contents/Frameworks");
  directory_.MakeLink("Contents/Frameworks/B.framework", "elsewhere");
  EXPECT_EQ(CheckUsual(Member("Frameworks/B.framework",
                              Dictionary(Member("requirement", Text("identifier b"))))),
            kErrSecCSBadResource);
  EXPECT_TRUE(nested_.empty());
}

TEST_F(ResourceSealTest, DistinguishesFailedRequirementsFromOtherFailures) {
  directory_.Write("Contents/Frameworks/c.dylib", "x");
  const std::string entry =
      Member("Frameworks/c.dylib", Dictionary(Member("requirement", Text("identifier b"))));
  nestedStatus_ = kErrSecCSReqFailed;
  EXPECT_EQ(CheckUsual(entry), kErrSecCSBadNestedCode);
  nestedStatus_ = kErrSecCSUnsigned;
  EXPECT_EQ(CheckUsual(entry), kErrSecCSUnsigned);
  // A failed requirement does not end the check, but all other failures do.
  directory_.Write("Contents/Added", "x");
  EXPECT_EQ(CheckUsual(entry), kErrSecCSUnsigned);
}

TEST_F(ResourceSealTest, RejectsEntriesOfWrongType) {
  for (const std::string& entry :
       {Text("text"), std::string("<true/>"), std::string("<dict/>"), std::string("<array/>"),
        Dictionary(Member("hash2", Text("text"))), Dictionary(Member("requirement", "<true/>")),
        Dictionary(Member("symlink", "<integer>1</integer>")),
        Sealed("text", "<key>optional</key><integer>1</integer>")}) {
    EXPECT_EQ(Check(List2(Member("Resources/a.txt", entry) + LinkEntry())),
              kErrSecCSResourcesInvalid)
        << entry;
  }
  EXPECT_EQ(CheckUsual(Member("Resources/missing", Text("text"))), kErrSecCSResourcesInvalid);
}

TEST_F(ResourceSealTest, RejectsListsOfWrongShape) {
  EXPECT_EQ(Check("not a property list"), kErrSecCSBadDictionaryFormat);
  EXPECT_EQ(Check(""), kErrSecCSBadDictionaryFormat);
  EXPECT_EQ(Check("<plist><array/></plist>"), kErrSecCoreFoundationUnknown);
  const std::string files = Member("files", "<dict/>");
  const std::string rules = Member("rules", "<dict/>");
  for (const std::string& members :
       {std::string(), files, rules, files + Member("rules", "<array/>"),
        rules + Member("files", "<true/>"),
        Member("files2", "<dict/>") + Member("rules2", "<dict/>")}) {
    EXPECT_EQ(Check(List(members)), kErrSecCSResourcesNotFound) << members;
  }
  for (const std::string& members :
       {Member("files2", "<dict/>"), Member("files2", "<dict/>") + Member("rules2", "<array/>"),
        Member("files2", "<array/>") + Member("rules2", "<dict/>")}) {
    EXPECT_EQ(Check(List(files + rules + members)), kErrSecCSResourcesInvalid) << members;
  }
  EXPECT_EQ(Check(List2("", Member("(", "<true/>"))), kErrSecCSResourceRulesInvalid);
}

TEST_F(ResourceSealTest, Version1IgnoresLinks) {
  const std::string rules = Member("rules", Dictionary(Member("^Resources/", "<true/>")));
  const std::string bare = Data(DigestOf(HashType::kSha1, "text"));
  hashTypes_ = {HashType::kSha1};
  const std::string list =
      List(rules + Member("files", Dictionary(Member("Resources/a.txt", bare))));
  EXPECT_EQ(Check(list), kErrSecSuccess);
  directory_.Write("Contents/Resources/added", "x");
  EXPECT_EQ(Check(list), kErrSecCSBadResource);
  directory_.Remove("Contents/Resources/added");
  directory_.Write("Contents/Resources/a.txt", "altered");
  EXPECT_EQ(Check(list), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, NoLinkStandsForADirectoryOfSealedFiles) {
  const std::string seal = List2(Member("Resources/de.lproj/text", Sealed("text", kOptional)),
                                 Member("^Resources/.", "<true/>"));
  directory_.Remove("Contents/Resources/a.txt");
  directory_.Remove("Contents/Resources/link");
  directory_.Write("elsewhere/de.lproj/text", "changed");
  EXPECT_EQ(Check(seal), kErrSecSuccess);
  directory_.MakeLink("Contents/Resources/de.lproj", "../../elsewhere/de.lproj");
  EXPECT_EQ(Check(seal), kErrSecCSBadResource);
  // No rule matches the directory itself.
  directory_.Remove("Contents/Resources/de.lproj");
  directory_.Remove("Contents/Resources");
  directory_.MakeLink("Contents/Resources", "../elsewhere");
  EXPECT_EQ(Check(seal), kErrSecCSBadResource);
}

TEST_F(ResourceSealTest, RequirementsHaveOneBudget) {
  std::string requirement = "identifier a";
  for (int i = 0; i < 4000; ++i) requirement += " or identifier a";
  const auto check = [&](int count) {
    std::string entries = FileEntry() + LinkEntry();
    for (int i = 0; i < count; ++i) {
      const std::string path = "MacOS/" + std::to_string(i);
      directory_.Write("Contents/" + path, "code");
      entries += Member(path, Dictionary(Member("requirement", Text(requirement))));
    }
    context_.budget = {};
    return Check(List2(entries));
  };
  EXPECT_EQ(check(16), kErrSecSuccess);
  EXPECT_THROW(check(17), BudgetExceeded);
}

TEST_F(ResourceSealTest, OnlyBundlesHaveASeal) {
  const Places file(std::nullopt, directory_.Path("Contents/MacOS/tool"));
  const auto never = [](const auto&, const auto&) { return kErrSecCSInternalError; };
  EXPECT_EQ(CheckResources({file, List2(""), hashTypes_, never}, context_),
            kErrSecCSResourcesNotFound);
}

TEST_F(ResourceSealTest, ReportsAMissingRoot) {
  const Places gone(directory_.Path("gone"), directory_.Path("gone/tool"));
  EXPECT_EQ(CheckResources({gone, List2(""), hashTypes_, nullptr}, context_), 100002);
}

}  // namespace
}  // namespace platform::code_signing
