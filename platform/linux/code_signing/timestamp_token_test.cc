#include "platform/linux/code_signing/timestamp_token.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/code_signing/cms_builder.h"

namespace platform::code_signing {
namespace {

class TimestampTokenTest : public testing::Test {
 protected:
  std::optional<Timestamp> Verify(const std::string& token) {
    return VerifyTimestampToken(token, "signature", context_);
  }

  const TestSigner authority_ = MakeSigner("timeStamping");
  CheckContext context_ = {TrustStore({authority_.chain.back()})};
};

TEST_F(TimestampTokenTest, ReturnsTheTimeOfTheSignature) {
  const auto timestamp = Verify(MakeTimestampToken({authority_}, "signature"));
  ASSERT_TRUE(timestamp);
  EXPECT_EQ(timestamp->time, 1500);
}

TEST_F(TimestampTokenTest, TheImprintMayBeASha1Digest) {
  EXPECT_TRUE(Verify(MakeTimestampToken({authority_}, "signature", HashType::kSha1)));
  EXPECT_FALSE(Verify(MakeTimestampToken({authority_}, "other", HashType::kSha1)));
}

TEST_F(TimestampTokenTest, HasOneSigner) {
  EXPECT_FALSE(Verify(MakeTimestampToken({authority_, authority_}, "signature")));
}

TEST_F(TimestampTokenTest, ChecksTheImprintBeforeVerifyingAnything) {
  const std::string token = MakeTimestampToken({authority_}, "another signature");
  for (int i = 0; i < 1001; ++i) ASSERT_FALSE(Verify(token));
  EXPECT_TRUE(Verify(MakeTimestampToken({authority_}, "signature")));
}

TEST_F(TimestampTokenTest, VerificationsAreLimited) {
  const std::string token = MakeTimestampToken({authority_}, "signature");
  EXPECT_THROW(
      {
        for (int i = 0; i < 1001; ++i) Verify(token);
      },
      BudgetExceeded);
}

}  // namespace
}  // namespace platform::code_signing
