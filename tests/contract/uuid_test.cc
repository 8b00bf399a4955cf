#include "platform/uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

namespace platform {
namespace {

TEST(UuidContract, IsANewRandomUuidInTheHostsLetterCase) {
#ifdef __APPLE__
  const std::string digit = "[0-9A-F]";
  const std::string variant = "[89AB]";
#else
  const std::string digit = "[0-9a-f]";
  const std::string variant = "[89ab]";
#endif
  const std::regex form(digit + "{8}-" + digit + "{4}-4" + digit + "{3}-" + variant + digit +
                        "{3}-" + digit + "{12}");
  std::set<std::string> seen;
  for (int round = 0; round < 1000; ++round) {
    char text[kUuidTextSize];
    RandomUuidText(text);
    EXPECT_TRUE(std::regex_match(text, form)) << text;
    EXPECT_TRUE(seen.insert(text).second) << text;
  }
}

}  // namespace
}  // namespace platform
