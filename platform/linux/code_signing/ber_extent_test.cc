#include "platform/linux/code_signing/ber_extent.h"

#include <gtest/gtest.h>

#include <string>

namespace platform::code_signing {
namespace {

using namespace std::string_literals;

TEST(BerExtentTest, FindsTheEndOfAValue) {
  for (const std::string& whole :
       {"\x00\x00"s, "\x05\x00"s, "\x30\x03\x02\x01\x05"s, "\x30\x80\x00\x00"s,
        "\x30\x80\x24\x80\x04\x01\x00\x00\x00\x00\x00"s, "\x04\x81\x01x"s, "\x1F\x81\x01\x00"s,
        "\x30\x80\x30\x02\x00\x00\x00\x00"s}) {
    EXPECT_EQ(FindBerExtent(whole), BerExtent::kComplete) << testing::PrintToString(whole);
    EXPECT_EQ(FindBerExtent(whole + "more"), BerExtent::kComplete);
    for (std::size_t size = 0; size < whole.size(); ++size) {
      EXPECT_EQ(FindBerExtent(whole.substr(0, size)), BerExtent::kTruncated);
    }
  }
}

TEST(BerExtentTest, RejectsInvalidBer) {
  EXPECT_EQ(FindBerExtent("\x04\x80\x00\x00"s), BerExtent::kMalformed);
  EXPECT_EQ(FindBerExtent("\x30\xFF\x00"s), BerExtent::kMalformed);
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "\x30\x80";
  EXPECT_EQ(FindBerExtent(deep), BerExtent::kMalformed);
}

TEST(BerExtentTest, TreatsTheMaximumLengthAsTruncated) {
  EXPECT_EQ(FindBerExtent("\x30\x87\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s), BerExtent::kTruncated);
}

}  // namespace
}  // namespace platform::code_signing
