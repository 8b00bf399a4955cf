#include "platform/bundle.h"

#include <gtest/gtest.h>

#include "tests/contract/support.h"

namespace platform {
namespace {

TEST(MainBundleTextContract, ReadsTheEmbeddedPropertyList) {
  if (contract::kGnustep) {
    GTEST_SKIP() << "GNUstep looks for the list of a tool among files, never in the tool itself";
  }
  EXPECT_EQ(MainBundleText("RMMToolVersion"), "1.0.0.206");
  EXPECT_EQ(MainBundleText("LSMinimumSystemVersion"), "10.11");
}

TEST(MainBundleTextContract, AnswersNothingForAMissingKey) {
  EXPECT_FALSE(MainBundleText("KXNoSuchKey"));
  EXPECT_FALSE(MainBundleText(""));
}

}  // namespace
}  // namespace platform
