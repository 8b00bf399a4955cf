#include "platform/uuid.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <set>
#include <string>

namespace platform {
namespace {

TEST(UuidContract, TextHasTheFormOfARandomUuid) {
  char text[kUuidTextSize];
  std::memset(text, 'z', sizeof(text));
  RandomUuidText(text);
  const std::string form = "xxxxxxxx-xxxx-4xxx-vxxx-xxxxxxxxxxxx";
  ASSERT_EQ(std::strlen(text), form.size());
  for (std::size_t place = 0; place < form.size(); ++place) {
    const char character = text[place];
    switch (form[place]) {
      case 'x':
        EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(character))) << text;
        break;
      case 'v':
        EXPECT_NE(std::strchr("89ABab", character), nullptr) << text;
        break;
      default:
        EXPECT_EQ(character, form[place]) << text;
    }
  }
}

TEST(UuidContract, LetterCaseIsTheHosts) {
  for (int round = 0; round < 20; ++round) {
    char text[kUuidTextSize];
    RandomUuidText(text);
    for (const char character : std::string(text)) {
#ifdef __APPLE__
      EXPECT_FALSE(std::islower(static_cast<unsigned char>(character))) << text;
#else
      EXPECT_FALSE(std::isupper(static_cast<unsigned char>(character))) << text;
#endif
    }
  }
}

TEST(UuidContract, NoTwoAreAlike) {
  std::set<std::string> seen;
  for (int round = 0; round < 1000; ++round) {
    char text[kUuidTextSize];
    RandomUuidText(text);
    EXPECT_TRUE(seen.insert(text).second) << text;
  }
}

}  // namespace
}  // namespace platform
