#include "platform/linux/code_signing/chain_policy.h"

#include <gtest/gtest.h>

#include "tests/code_signing/cms_builder.h"
#include "tests/code_signing/libcrypto_memory.h"

namespace platform::code_signing {
namespace {

constexpr std::int64_t kWithin = 1500;

/// A chain of leaf, intermediate and root, which each test breaks in a different way. A lack of
/// memory must not make it valid.
class ChainPolicyTest : public testing::Test {
 protected:
  ChainPolicyTest() {
    root_.name = "Root";
    root_.issuerName = "Root";
    root_.key = root_.issuerKey = MakeEcKey();
    root_.extensions = {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "keyCertSign"}};
    intermediate_.name = "Intermediate";
    intermediate_.issuerName = "Root";
    intermediate_.key = MakeEcKey();
    intermediate_.issuerKey = root_.key;
    intermediate_.extensions = root_.extensions;
    leaf_.name = "Leaf";
    leaf_.issuerName = "Intermediate";
    leaf_.key = MakeEcKey();
    leaf_.issuerKey = intermediate_.key;
    leaf_.extensions = {{"keyUsage", "critical,digitalSignature"},
                        {"extendedKeyUsage", "critical,codeSigning"}};
  }

  CertificateChain MakeChain() const {
    return {MakeCertificate(leaf_), MakeCertificate(intermediate_), MakeCertificate(root_)};
  }

  OsStatus Evaluate(std::int64_t time = kWithin, DateRule dateRule = DateRule::kEnforce,
                    ChainPurpose purpose = ChainPurpose::kCodeSigning) const {
    const CertificateChain chain = MakeChain();
    const TrustStore trust({chain.back()});
    const OsStatus usual = EvaluateChain(chain, purpose, time, dateRule, trust);
    WithEachFailedAllocation([&] {
      if (EvaluateChain(chain, purpose, time, dateRule, trust) == kErrSecSuccess) {
        EXPECT_EQ(usual, kErrSecSuccess) << "when memory is short";
      }
    });
    return usual;
  }

  CertificatePlan leaf_;
  CertificatePlan intermediate_;
  CertificatePlan root_;
};

TEST_F(ChainPolicyTest, AcceptsAProperChain) { EXPECT_EQ(Evaluate(), kErrSecSuccess); }

TEST_F(ChainPolicyTest, BothEndsOfThePeriodAreValid) {
  EXPECT_EQ(Evaluate(1000), kErrSecSuccess);
  EXPECT_EQ(Evaluate(2000), kErrSecSuccess);
  EXPECT_EQ(Evaluate(999), kTpCertExpired);
  EXPECT_EQ(Evaluate(2001), kTpCertExpired);
}

TEST_F(ChainPolicyTest, EveryCertificateMustBeValid) {
  root_.notAfter = 1400;
  EXPECT_EQ(Evaluate(), kTpCertExpired);
  root_.notAfter = 2000;
  intermediate_.notBefore = 1600;
  EXPECT_EQ(Evaluate(), kTpCertExpired);
}

TEST_F(ChainPolicyTest, DatesCanBeTolerated) {
  EXPECT_EQ(Evaluate(1, DateRule::kTolerate), kErrSecSuccess);
  EXPECT_EQ(Evaluate(9999, DateRule::kTolerate), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, AnyExtendedKeyUsageIsNotEnough) {
  leaf_.extensions[1].second = "anyExtendedKeyUsage";
  EXPECT_EQ(Evaluate(), kTpInvalidExtendedKeyUsage);
  leaf_.extensions[1].second = "serverAuth,codeSigning";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, NonRepudiationIsAUseForSigning) {
  leaf_.extensions[0].second = "nonRepudiation";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.extensions[0].second = "keyAgreement";
  EXPECT_EQ(Evaluate(), kTpInvalidKeyUsage);
}

TEST_F(ChainPolicyTest, TimeStampingAsksForNoKeyUsage) {
  leaf_.extensions = {{"extendedKeyUsage", "critical,timeStamping"}};
  EXPECT_EQ(Evaluate(kWithin, DateRule::kEnforce, ChainPurpose::kTimeStamping), kErrSecSuccess);
  leaf_.extensions = {{"extendedKeyUsage", "codeSigning"}};
  EXPECT_EQ(Evaluate(kWithin, DateRule::kEnforce, ChainPurpose::kTimeStamping),
            kTpInvalidExtendedKeyUsage);
}

TEST_F(ChainPolicyTest, IssuersMustBeAuthorities) {
  intermediate_.extensions = {{"keyUsage", "keyCertSign"}};
  EXPECT_EQ(Evaluate(), kTpNoBasicConstraints);
  intermediate_.extensions = {{"basicConstraints", "CA:FALSE"}};
  EXPECT_EQ(Evaluate(), kTpInvalidCa);
  intermediate_.extensions = {{"basicConstraints", "CA:TRUE"}, {"keyUsage", "digitalSignature"}};
  EXPECT_EQ(Evaluate(), kTpInvalidKeyUsage);
  intermediate_.extensions = {{"basicConstraints", "CA:TRUE"}};
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, OnlyAnchorsMayBeOfOldVersions) {
  root_.version = X509_VERSION_1;
  root_.extensions.clear();
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  root_ = intermediate_;
  root_.name = root_.issuerName = "Root";
  root_.key = root_.issuerKey;
  for (const long version : {X509_VERSION_1, X509_VERSION_2}) {
    intermediate_.version = version;
    intermediate_.extensions.clear();
    EXPECT_EQ(Evaluate(), kTpNoBasicConstraints);
    intermediate_.extensions = root_.extensions;
    EXPECT_EQ(Evaluate(), kTpNoBasicConstraints);
  }
}

TEST_F(ChainPolicyTest, PathLengthCountsIntermediates) {
  root_.extensions[0].second = "CA:TRUE,pathlen:0";
  EXPECT_EQ(Evaluate(), kTpPathLengthExceeded);
  root_.extensions[0].second = "CA:TRUE,pathlen:1";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  intermediate_.extensions[0].second = "CA:TRUE,pathlen:0";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, PathLengthMayBeAnyNumber) {
  // A sequence of TRUE and an integer.
  root_.extensions[0] = {"2.5.29.19", "DER:30:0E:01:01:FF:02:09:01:00:00:00:00:00:00:00:00"};
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  root_.extensions[0].second = "DER:30:0E:01:01:FF:02:09:80:00:00:00:00:00:00:00:00";
  EXPECT_EQ(Evaluate(), kTpPathLengthExceeded);
  root_.extensions[0].second = "DER:30:06:01:01:FF:02:01:FF";
  EXPECT_EQ(Evaluate(), kTpPathLengthExceeded);
}

TEST_F(ChainPolicyTest, KeyIdentifiersMustAgree) {
  intermediate_.extensions.emplace_back("subjectKeyIdentifier", "0102");
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.extensions.emplace_back("2.5.29.35", "DER:30:04:80:02:01:02");
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.extensions.back().second = "DER:30:04:80:02:01:03";
  EXPECT_EQ(Evaluate(), kTpInvalidAuthorityId);
  leaf_.extensions.back().second = "DER:30:00";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, CriticalExtensionsMustBeKnown) {
  leaf_.extensions.emplace_back("1.2.3.4", "DER:05:00");
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.extensions.back().second = "critical,DER:05:00";
  EXPECT_EQ(Evaluate(), kTpUnknownCriticalExtension);
  std::string longest = "1.2.840.113635.100.6";
  while (longest.size() < 128) longest += ".1";
  leaf_.extensions.back().first = longest;
  EXPECT_EQ(Evaluate(), kTpUnknownCriticalExtension);
}

TEST_F(ChainPolicyTest, AppleExtensionsAreKnown) {
  for (const char* known :
       {"1.2.840.113635.100.6.1.13", "1.2.840.113635.100.11.1", "1.2.840.113635.100.12.2",
        "1.2.840.113635.100.13.1", "1.2.840.113635.100.15.9"}) {
    leaf_.extensions.emplace_back(known, "critical,DER:05:00");
    EXPECT_EQ(Evaluate(), kErrSecSuccess) << known;
  }
  leaf_.extensions.emplace_back("1.2.840.113635.100.60.1", "critical,DER:05:00");
  EXPECT_EQ(Evaluate(), kTpUnknownCriticalExtension);
}

TEST_F(ChainPolicyTest, UnprocessedPolicyConstraintsMayNotBeCritical) {
  intermediate_.extensions.emplace_back("policyConstraints", "critical,requireExplicitPolicy:0");
  EXPECT_EQ(Evaluate(), kTpUnknownCriticalExtension);
}

TEST_F(ChainPolicyTest, ExtensionsMustBeReadableAndUnique) {
  leaf_.extensions.emplace_back("2.5.29.14", "DER:05:00");
  EXPECT_EQ(Evaluate(), kTpUnknownCertificateExtension);
  leaf_.extensions.back() = leaf_.extensions.front();
  // A repeated usage counts as absent. Both failures have the same rank, and the leaf's is first.
  EXPECT_EQ(Evaluate(), kTpInvalidKeyUsage);
}

TEST_F(ChainPolicyTest, NamesMustBePermitted) {
  intermediate_.extensions.emplace_back("nameConstraints", "critical,excluded;email:example.com");
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.extensions.emplace_back("subjectAltName", "email:somebody@example.com");
  EXPECT_EQ(Evaluate(), kTpInvalidCertificate);
}

// libcrypto decodes the names of a certificate once and remembers a failure.
TEST_F(ChainPolicyTest, NamesThatWereNotDecodedAreNotPermitted) {
  intermediate_.extensions.emplace_back("nameConstraints", "critical,excluded;email:example.com");
  leaf_.extensions.emplace_back("subjectAltName", "email:somebody@example.com");
  CertificateChain chain;
  OsStatus status = kErrSecSuccess;
  std::size_t number = 0;
  do {
    chain = MakeChain();
    status = kErrSecAllocate;
    ++number;
  } while (WithFailedAllocation(number, Failing::kOne, [&] {
    status = EvaluateChain(chain, ChainPurpose::kCodeSigning, kWithin, DateRule::kEnforce,
                           TrustStore({chain.back()}));
    EXPECT_NE(status, kErrSecSuccess) << number;
  }));
  EXPECT_EQ(status, kTpInvalidCertificate);
}

TEST_F(ChainPolicyTest, KeysMustBeLongEnough) {
  leaf_.key = MakeRsaKey(1016);
  EXPECT_EQ(Evaluate(), kTpInvalidCertificate);
  leaf_.key = MakeRsaKey(1024);
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  leaf_.key = MakeEcKey("secp112r1");
  EXPECT_EQ(Evaluate(), kTpInvalidCertificate);
}

TEST_F(ChainPolicyTest, OldDigestsAreForRootsOnly) {
  root_.key = root_.issuerKey = intermediate_.issuerKey = MakeRsaKey(1024);
  root_.digest = EVP_md5();
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  intermediate_.digest = EVP_sha1();
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
  intermediate_.digest = EVP_md5();
  EXPECT_EQ(Evaluate(), kInvalidDigestAlgorithm);
}

TEST_F(ChainPolicyTest, SubjectsMustHaveANameSomewhere) {
  leaf_.name.clear();
  EXPECT_EQ(Evaluate(), kTpInvalidEmptySubject);
  leaf_.extensions.emplace_back("subjectAltName", "email:somebody@example.com");
  EXPECT_EQ(Evaluate(), kTpInvalidEmptySubject);
  leaf_.extensions.back().second = "critical,email:somebody@example.com";
  EXPECT_EQ(Evaluate(), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, ReportsTheGravestFailure) {
  leaf_.extensions.clear();
  EXPECT_EQ(Evaluate(), kTpInvalidExtendedKeyUsage);
  EXPECT_EQ(Evaluate(9999), kTpCertExpired);
  intermediate_.extensions.clear();
  EXPECT_EQ(Evaluate(9999), kTpNoBasicConstraints);
}

TEST_F(ChainPolicyTest, TheTopMustBeAnAnchorByItsBytes) {
  const CertificateChain chain = {MakeCertificate(leaf_), MakeCertificate(intermediate_),
                                  MakeCertificate(root_)};
  const auto evaluate = [&](const TrustStore& trust) {
    return EvaluateChain(chain, ChainPurpose::kCodeSigning, kWithin, DateRule::kEnforce, trust);
  };
  EXPECT_EQ(evaluate(TrustStore()), kTpNotTrusted);
  EXPECT_EQ(evaluate(TrustStore({chain[1]})), kTpNotTrusted);
  // The same names and the same key, but another serial number.
  EXPECT_EQ(evaluate(TrustStore({MakeCertificate(root_)})), kTpNotTrusted);
  EXPECT_EQ(evaluate(TrustStore({chain[2]})), kErrSecSuccess);
}

TEST_F(ChainPolicyTest, ForgedMarkersDoNotMakeAnAppleDeveloper) {
  leaf_.extensions.emplace_back("1.2.840.113635.100.6.1.13", "DER:05:00");
  intermediate_.extensions.emplace_back("1.2.840.113635.100.6.2.6", "DER:05:00");
  EXPECT_FALSE(IsAppleDeveloperChain(
      {MakeCertificate(leaf_), MakeCertificate(intermediate_), MakeCertificate(root_)}));
}

}  // namespace
}  // namespace platform::code_signing
