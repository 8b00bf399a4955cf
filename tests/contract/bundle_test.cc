#include "platform/bundle.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(MainBundleTextContract, ReadsTheEmbeddedPropertyList) {
  EXPECT_EQ(MainBundleText("RMMToolVersion"), "1.0.0.206");
  EXPECT_EQ(MainBundleText("LSMinimumSystemVersion"), "10.11");
}

TEST(MainBundleTextContract, AnswersNothingForAMissingKey) {
  EXPECT_FALSE(MainBundleText("KXNoSuchKey"));
  EXPECT_FALSE(MainBundleText(""));
}

}  // namespace
}  // namespace platform
