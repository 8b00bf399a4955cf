#include "diag/text.h"

#include <gtest/gtest.h>

namespace {

using Utils::EqualsIgnoringCase;

TEST(EqualsIgnoringCase, ComparesAsciiLettersWithoutCase) {
  EXPECT_TRUE(EqualsIgnoringCase("", ""));
  EXPECT_TRUE(EqualsIgnoringCase("aZ-09", "Az-09"));
  EXPECT_FALSE(EqualsIgnoringCase("a", "ab"));
  EXPECT_FALSE(EqualsIgnoringCase("ab", "a"));
  EXPECT_FALSE(EqualsIgnoringCase("a", "b"));
  EXPECT_FALSE(EqualsIgnoringCase({"a\0b", 3}, {"a\0c", 3}));
  // The characters around the letters, and letters outside ASCII.
  EXPECT_FALSE(EqualsIgnoringCase("@", "`"));
  EXPECT_FALSE(EqualsIgnoringCase("[", "{"));
  EXPECT_FALSE(EqualsIgnoringCase("\r", "-"));
  EXPECT_FALSE(EqualsIgnoringCase("\xC3\x84", "\xC3\xA4"));
  EXPECT_FALSE(EqualsIgnoringCase("\xC4", "\xE4"));
}

}  // namespace
