#include "platform/linux/code_signing/requirement.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdio>
#include <optional>
#include <string>

#include "tests/code_signing/cms_builder.h"

namespace platform::code_signing {
namespace {

constexpr char kLeafMarker[] = "1.2.840.113635.100.6.1.13";
constexpr char kIntermediateMarker[] = "1.2.840.113635.100.6.2.6";

std::string Hexadecimal(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

class RequirementTest : public testing::Test {
 protected:
  RequirementTest() {
    subject_.identifier = "com.example.helper";
    subject_.cdHash = std::string(20, '\xAB');
    subject_.certificates = {leaf_.get(), intermediate_.get(), root_.get()};
  }

  /// @return nothing when the text cannot be parsed.
  std::optional<bool> Evaluate(const std::string& text) const {
    const std::optional<Requirement> requirement = ParseRequirement(text);
    if (!requirement) return std::nullopt;
    return (*requirement)(subject_);
  }

  const CertificatePtr leaf_ =
      MakeNamedCertificate({{"UID", "TEAM123456"},
                            {"CN", "Developer ID Application: Example (TEAM123456)"},
                            {"OU", "FIRST"},
                            {"OU", "TEAM123456"},
                            {"C", "US"}},
                           {kLeafMarker});
  const CertificatePtr intermediate_ =
      MakeNamedCertificate({{"CN", "Example CA"}, {"O", "Ex\xC3\xA4mple"}}, {kIntermediateMarker});
  const CertificatePtr root_ = MakeNamedCertificate({{"CN", "Example Root"}});
  RequirementSubject subject_;
};

TEST_F(RequirementTest, ComparesTheIdentifier) {
  EXPECT_EQ(Evaluate("identifier \"com.example.helper\""), true);
  EXPECT_EQ(Evaluate("identifier com.example.helper"), true);
  EXPECT_EQ(Evaluate("identifier = com.example.helper"), true);
  EXPECT_EQ(Evaluate("identifier == \"com.example.helper\";"), true);
  EXPECT_EQ(Evaluate("identifier \"com.example.Helper\""), false);
  EXPECT_EQ(Evaluate("identifier \"com.example\""), false);
  subject_.identifier = "with \"quotes\"";
  EXPECT_EQ(Evaluate("identifier \"with \\\"quotes\\\"\""), true);
}

TEST_F(RequirementTest, ComparesTheCdHash) {
  EXPECT_EQ(Evaluate("cdhash H\"" + std::string(40, 'a') + "\""), false);
  EXPECT_EQ(Evaluate("cdhash H\"" + Hexadecimal(subject_.cdHash) + "\""), true);
  EXPECT_EQ(Evaluate("cdhash = H\"" + Hexadecimal(subject_.cdHash) + "\""), true);
  EXPECT_EQ(Evaluate("cdhash H\"abababab\""), std::nullopt);
  EXPECT_EQ(Evaluate("cdhash H\"" + std::string(64, 'a') + "\""), std::nullopt);
  EXPECT_EQ(Evaluate("cdhash abab"), std::nullopt);
}

TEST_F(RequirementTest, LooksForExtensions) {
  EXPECT_EQ(Evaluate(std::string("certificate leaf[field.") + kLeafMarker + "]"), true);
  EXPECT_EQ(Evaluate(std::string("certificate 0[field.") + kLeafMarker + "] exists"), true);
  EXPECT_EQ(Evaluate(std::string("certificate 1[field.") + kLeafMarker + "] /* exists */"), false);
  EXPECT_EQ(Evaluate(std::string("cert 1[field.") + kIntermediateMarker + "]"), true);
  EXPECT_EQ(Evaluate(std::string("certificate -2[field.") + kIntermediateMarker + "]"), true);
  EXPECT_EQ(Evaluate(std::string("certificate -3[field.") + kLeafMarker + "]"), true);
  EXPECT_EQ(Evaluate(std::string("certificate root[field.") + kLeafMarker + "]"), false);
  EXPECT_EQ(Evaluate(std::string("certificate 3[field.") + kLeafMarker + "]"), false);
  EXPECT_EQ(Evaluate(std::string("certificate -4[field.") + kLeafMarker + "]"), false);
  EXPECT_EQ(Evaluate("certificate leaf[field.nonsense]"), false);
}

TEST_F(RequirementTest, ComparesSubjectAttributes) {
  EXPECT_EQ(Evaluate("certificate leaf[subject.CN] = "
                     "\"Developer ID Application: Example (TEAM123456)\""),
            true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.UID] = TEAM123456"), true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.C] = US"), true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.C] = us"), false);
  EXPECT_EQ(Evaluate("certificate 1[subject.O] = \"Ex\xC3\xA4mple\""), true);
  EXPECT_EQ(Evaluate("anchor[subject.CN] = \"Example Root\""), true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.O] exists"), false);
  EXPECT_EQ(Evaluate("certificate leaf[subject.CN] exists"), true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.XX] = US"), std::nullopt);
}

TEST_F(RequirementTest, ComparesTheLastOfSeveralAttributes) {
  EXPECT_EQ(Evaluate("certificate leaf[subject.OU] = TEAM123456"), true);
  EXPECT_EQ(Evaluate("certificate leaf[subject.OU] = FIRST"), false);
}

TEST_F(RequirementTest, ComparesCertificateDigests) {
  unsigned char sha1[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  ASSERT_EQ(X509_digest(root_.get(), EVP_sha1(), sha1, &length), 1);
  const std::string digest = Hexadecimal(std::string(sha1, sha1 + length));
  EXPECT_EQ(Evaluate("certificate root = H\"" + digest + "\""), true);
  EXPECT_EQ(Evaluate("anchor = H\"" + digest + "\""), true);
  EXPECT_EQ(Evaluate("anchor H\"" + digest + "\""), true);
  EXPECT_EQ(Evaluate("certificate leaf = H\"" + digest + "\""), false);
}

TEST_F(RequirementTest, RejectsAppleAnchorsForOtherChains) {
  EXPECT_EQ(Evaluate("anchor apple"), false);
  EXPECT_EQ(Evaluate("anchor apple generic"), false);
  EXPECT_EQ(Evaluate("anchor generic apple"), false);
  EXPECT_EQ(Evaluate("! anchor apple generic"), true);
}

TEST_F(RequirementTest, EvaluatesAdHocSignedCode) {
  subject_.certificates.clear();
  EXPECT_EQ(Evaluate("anchor apple or anchor apple generic"), false);
  EXPECT_EQ(Evaluate("certificate leaf[subject.CN] exists"), false);
  EXPECT_EQ(Evaluate("certificate root = H\"" + std::string(40, '0') + "\""), false);
  EXPECT_EQ(Evaluate("identifier com.example.helper"), true);
}

TEST_F(RequirementTest, BindsAndTighterThanOr) {
  const std::string yes = "identifier com.example.helper";
  const std::string no = "identifier other";
  EXPECT_EQ(Evaluate(yes + " or " + no + " and " + no), true);
  EXPECT_EQ(Evaluate("(" + yes + " or " + no + ") and " + no), false);
  EXPECT_EQ(Evaluate(no + " and " + no + " or " + yes), true);
  EXPECT_EQ(Evaluate("!" + no + " and !!" + yes), true);
  EXPECT_EQ(Evaluate("!(" + no + " or " + yes + ")"), false);
  EXPECT_EQ(Evaluate(yes + " and " + yes + " and " + no), false);
}

TEST_F(RequirementTest, SkipsComments) {
  EXPECT_EQ(Evaluate("# first line\n// second\nidentifier /* the /* name */ "
                     "com.example.helper\t// end"),
            true);
  EXPECT_EQ(Evaluate("identifier /* open com.example.helper"), std::nullopt);
}

TEST_F(RequirementTest, RejectsUnsupportedText) {
  for (const char* const text : {
           "",
           " ",
           "and",
           "identifier",
           "identifier \"open",
           "identifier \"a\\n\"",
           "identifier a identifier b",
           "identifier a and",
           "identifier a or",
           "or identifier a",
           "(identifier a",
           "identifier a)",
           "()",
           "!",
           "cdhash",
           "anchor",
           "certificate",
           "certificate leaf",
           "certificate leaf[",
           "certificate leaf[field.1.2",
           "certificate leaf[subject.CN] =",
           "certificate middle[field.1.2]",
           "certificate 99999999999999999999[field.1.2]",
           "certificate - leaf[field.1.2]",
           "info[CFBundleVersion] >= 17.4",
           "entitlement[a] exists",
           "notarized",
           "anchor trusted",
           "designated => identifier a",
           "identifier a;;; b",
           "H\"ab",
           "identifier H\"abc\"",
           "identifier \x01",
           "cdhash H\"zz\"",
       }) {
    EXPECT_EQ(Evaluate(text), std::nullopt) << text;
  }
  EXPECT_EQ(Evaluate(std::string("identifier a\0", 13)), std::nullopt);
}

TEST_F(RequirementTest, BoundsLengthAndDepth) {
  const std::string inner = "identifier com.example.helper";
  EXPECT_EQ(Evaluate(std::string(50, '(') + inner + std::string(50, ')')), true);
  EXPECT_EQ(Evaluate(std::string(5000, '(') + inner + std::string(5000, ')')), std::nullopt);
  EXPECT_EQ(Evaluate(std::string(5000, '!') + inner), std::nullopt);
  EXPECT_EQ(Evaluate(std::string(100000, ' ') + inner), std::nullopt);
  std::string chain = inner;
  for (int i = 0; i < 1000; ++i) chain += " and " + inner;
  EXPECT_EQ(Evaluate(chain), true);
}

TEST_F(RequirementTest, UnderstandsWhatSigningToolsWriteForDeveloperIds) {
  const std::string text =
      "anchor apple generic and identifier \"com.example.helper\" and (certificate "
      "leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or certificate "
      "1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate "
      "leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = "
      "TEAM123456)";
  EXPECT_EQ(Evaluate(text), false);  // only because the root is not Apple's
  EXPECT_EQ(Evaluate(text.substr(text.find("identifier"))), true);
}

}  // namespace
}  // namespace platform::code_signing
