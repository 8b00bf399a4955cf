#include "platform/linux/code_signing/certificate_chain.h"

#include <gtest/gtest.h>

#include "tests/code_signing/cms_builder.h"

namespace platform::code_signing {
namespace {

CertificatePtr Issue(const std::string& name, const TestKey& key, const std::string& issuerName,
                     const TestKey& issuerKey) {
  CertificatePlan plan;
  plan.name = name;
  plan.key = key;
  plan.issuerName = issuerName;
  plan.issuerKey = issuerKey;
  return MakeCertificate(plan);
}

std::vector<std::string> Encoded(const CertificateChain& chain) {
  std::vector<std::string> encoded;
  for (const CertificatePtr& certificate : chain) {
    encoded.push_back(EncodedCertificate(*certificate));
  }
  return encoded;
}

class CertificateChainTest : public testing::Test {
 protected:
  static CertificateChain Build(const CertificatePtr& leaf, const CertificateList& embedded,
                                const CertificateList& anchors = {}) {
    CheckContext context = {TrustStore(anchors)};
    return BuildChain(leaf, embedded, context);
  }

  const TestKey rootKey_ = MakeEcKey();
  const TestKey middleKey_ = MakeEcKey();
  const TestKey leafKey_ = MakeEcKey();
  const CertificatePtr root_ = Issue("Root", rootKey_, "Root", rootKey_);
  const CertificatePtr middle_ = Issue("Middle", middleKey_, "Root", rootKey_);
  const CertificatePtr leaf_ = Issue("Leaf", leafKey_, "Middle", middleKey_);
};

TEST_F(CertificateChainTest, OrdersTheChainFromLeafToRoot) {
  const CertificateChain expected = {leaf_, middle_, root_};
  EXPECT_EQ(Build(leaf_, {middle_, root_, leaf_}, {root_}), expected);
  EXPECT_EQ(Build(leaf_, {root_, leaf_, middle_}), expected);
}

TEST_F(CertificateChainTest, TakesAMissingRootFromTheAnchors) {
  const CertificateChain expected = {leaf_, middle_, root_};
  EXPECT_EQ(Encoded(Build(leaf_, {middle_, leaf_}, {root_})), Encoded(expected));
}

TEST_F(CertificateChainTest, GivesWhatThereIsWithoutARoot) {
  const CertificateChain expected = {leaf_, middle_};
  EXPECT_EQ(Build(leaf_, {middle_}), expected);
  EXPECT_EQ(Build(leaf_, {}), CertificateChain({leaf_}));
}

TEST_F(CertificateChainTest, ANameIsNotEnoughForAnIssuer) {
  const CertificatePtr impostor = Issue("Middle", MakeEcKey(), "Root", rootKey_);
  const CertificateChain expected = {leaf_, middle_, root_};
  EXPECT_EQ(Build(leaf_, {impostor, middle_, root_}, {root_}), expected);
  EXPECT_EQ(Build(leaf_, {impostor, root_}, {root_}), CertificateChain({leaf_}));
}

TEST_F(CertificateChainTest, PrefersAChainThatEndsInAnAnchor) {
  const TestKey otherKey = MakeEcKey();
  const CertificatePtr otherRoot = Issue("Other", otherKey, "Other", otherKey);
  const CertificatePtr crossSigned = Issue("Middle", middleKey_, "Other", otherKey);
  const CertificateList embedded = {middle_, root_, crossSigned, otherRoot};
  const CertificateChain toOther = {leaf_, crossSigned, otherRoot};
  const CertificateChain toRoot = {leaf_, middle_, root_};
  EXPECT_EQ(Build(leaf_, embedded, {otherRoot}), toOther);
  EXPECT_EQ(Build(leaf_, embedded, {root_}), toRoot);
  EXPECT_EQ(Build(leaf_, embedded), toRoot);
}

TEST_F(CertificateChainTest, ASelfSignedLeafIsItsOwnChain) {
  const CertificatePtr alone = Issue("Alone", leafKey_, "Alone", leafKey_);
  EXPECT_EQ(Build(alone, {alone, root_}), CertificateChain({alone}));
}

TEST_F(CertificateChainTest, StopsAtCycles) {
  const CertificatePtr a = Issue("A", rootKey_, "B", middleKey_);
  const CertificatePtr b = Issue("B", middleKey_, "A", rootKey_);
  const CertificatePtr leaf = Issue("Leaf", leafKey_, "A", rootKey_);
  EXPECT_EQ(Build(leaf, {a, b}), CertificateChain({leaf, a, b}));
}

TEST_F(CertificateChainTest, ManyIssuersOfOneNameExceedTheBudget) {
  const CertificatePtr twin = Issue("Middle", rootKey_, "Middle", rootKey_);
  EXPECT_EQ(Build(leaf_, CertificateList(100, twin)), CertificateChain({leaf_}));
  EXPECT_THROW(Build(leaf_, CertificateList(1001, twin)), BudgetExceeded);
}

TEST_F(CertificateChainTest, IssuersOfEachOtherExceedTheBudget) {
  CertificateList ring;
  for (int i = 0; i < 9; ++i) ring.push_back(Issue("Middle", middleKey_, "Middle", middleKey_));
  EXPECT_THROW(Build(leaf_, ring), BudgetExceeded);
}

TEST_F(CertificateChainTest, AnIssuerIsVerifiedOnce) {
  CheckContext context = {TrustStore({root_})};
  for (int i = 0; i < 1001; ++i) BuildChain(leaf_, {middle_, root_}, context);
  EXPECT_NO_THROW(context.budget.ChargeForVerifications(998));
}

TEST_F(CertificateChainTest, LargeKeysCostMore) {
  const TestKey largeKey = MakeEcKey("P-384");
  const CertificatePtr root = Issue("Large", largeKey, "Large", largeKey);
  const CertificatePtr leaf = Issue("Leaf", leafKey_, "Large", largeKey);
  CheckContext context = {TrustStore({root})};
  BuildChain(leaf, {root}, context);
  context.budget.ChargeForVerifications(996);
  EXPECT_THROW(context.budget.ChargeForVerifications(1), BudgetExceeded);
}

TEST_F(CertificateChainTest, DoesNotTryKeysUnsuitableForCodeSigning) {
  const TestKey dsaLike = MakeEcKey("secp160r1");
  const CertificatePtr odd = Issue("Odd", dsaLike, "Odd", dsaLike);
  const CertificatePtr leaf = Issue("Leaf", leafKey_, "Odd", dsaLike);
  EXPECT_EQ(Build(leaf, {odd}, {odd}), CertificateChain({leaf}));
}

}  // namespace
}  // namespace platform::code_signing
