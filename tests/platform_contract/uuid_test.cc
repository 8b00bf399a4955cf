#include "platform/uuid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace platform {
namespace {

TEST(UuidContract, IsANewRandomUuidInTheHostsLetterCase) {
  // x stands for any digit, v for the variant, which has the two highest bits 10.
  const std::string form = "xxxxxxxx-xxxx-4xxx-vxxx-xxxxxxxxxxxx";
#ifdef __APPLE__
  const std::string digits = "0123456789ABCDEF";
#else
  const std::string digits = "0123456789abcdef";
#endif
  const auto matches = [&](char expected, char c) {
    if (expected == 'x') return digits.find(c) != digits.npos;
    return expected == 'v' ? digits.substr(8, 4).find(c) != digits.npos : c == expected;
  };
  std::set<std::string> seen;
  for (int round = 0; round < 1000; ++round) {
    char buffer[kUuidTextSize];
    RandomUuidText(buffer);
    const std::string text = buffer;
    EXPECT_TRUE(std::equal(form.begin(), form.end(), text.begin(), text.end(), matches)) << text;
    EXPECT_TRUE(seen.insert(text).second) << text;
  }
}

}  // namespace
}  // namespace platform
