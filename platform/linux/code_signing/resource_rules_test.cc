#include "platform/linux/code_signing/resource_rules.h"

#include <gtest/gtest.h>

#include <cctype>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "platform/linux/property_list.h"

namespace platform::code_signing {
namespace {

PropertyListValue Rules(const std::string& members) {
  return ParsePropertyList("<plist><dict>" + members + "</dict></plist>").value();
}

std::string Rule(const std::string& pattern, const std::string& value) {
  return "<key>" + pattern + "</key>" + value;
}

std::string Weight(const std::string& number, const std::string& more = "") {
  return "<dict><key>weight</key>" + number + more + "</dict>";
}

class ResourceRulesTest : public testing::Test {
 protected:
  OsStatus TryToLoad(const std::string& members) { return rules_.Load(Rules(members), patterns_); }

  void Load(const std::string& members) { ASSERT_EQ(TryToLoad(members), kErrSecSuccess); }

  /// Whether patterns are accepted on their own.
  static bool IsAccepted(const ResourcePatterns::List& patterns) {
    return ResourcePatterns().Compile(patterns) != nullptr;
  }

  const ResourceRule* Find(const std::string& path) {
    const ResourceRule* rule = nullptr;
    EXPECT_EQ(rules_.Find(path, rule), kErrSecSuccess);
    return rule;
  }

  ResourcePatterns patterns_;
  ResourceRules rules_;
};

TEST_F(ResourceRulesTest, SearchesPatternsUnlessTheyAreAnchored) {
  Load(Rule("^Resources/", "<true/>") + Rule("b\\.txt$", "<true/>"));
  EXPECT_NE(Find("Resources/a"), nullptr);
  EXPECT_NE(Find("x/b.txt"), nullptr);
  EXPECT_EQ(Find("x/Resources/a"), nullptr);
  EXPECT_EQ(Find("x/b.txt2"), nullptr);
  EXPECT_EQ(Find("x/B.txt"), nullptr);
  EXPECT_EQ(Find("bxtxt"), nullptr);
}

TEST_F(ResourceRulesTest, PrefersTheHeaviest) {
  Load(Rule(".", "<true/>") +
       Rule("^a", Weight("<integer>10</integer>", "<key>omit</key><true/>")) +
       Rule("^ab", Weight("<real>20</real>", "<key>nested</key><true/>")) +
       Rule("^abc", Weight("<real>20</real>", "<key>omit</key><true/>")));
  EXPECT_EQ(Find("x")->weight, 1U);
  EXPECT_FALSE(Find("x")->isOmitted);
  EXPECT_TRUE(Find("ax")->isOmitted);
  EXPECT_EQ(Find("abx")->weight, 20U);
  EXPECT_TRUE(Find("abx")->isNestedCode);
  // The first of equal ones.
  EXPECT_FALSE(Find("abc")->isOmitted);
}

TEST_F(ResourceRulesTest, FalseOmits) {
  Load(Rule("^a", "<false/>") + Rule("^b", "<true/>"));
  EXPECT_TRUE(Find("a")->isOmitted);
  EXPECT_FALSE(Find("b")->isOmitted);
}

TEST_F(ResourceRulesTest, RejectsValuesOfWrongType) {
  for (const std::string value : {"<string>yes</string>", "<integer>1</integer>", "<array/>",
                                  "<data/>", "<dict><key>weight</key><string>1</string></dict>",
                                  "<dict><key>omit</key><integer>1</integer></dict>",
                                  "<dict><key>nested</key><string>no</string></dict>",
                                  "<dict><key>optional</key><integer>0</integer></dict>"}) {
    EXPECT_EQ(TryToLoad(Rule("^a", value)), kErrSecCSResourceRulesInvalid) << value;
  }
  EXPECT_EQ(TryToLoad(Rule("^a", "<dict><key>other</key><array/></dict>")), kErrSecSuccess);
}

TEST_F(ResourceRulesTest, EmptyRulesMatchNothing) {
  Load("");
  EXPECT_EQ(Find("a"), nullptr);
}

TEST_F(ResourceRulesTest, ReadsPatternsAsPosixDoes) {
  const struct {
    const char* pattern;
    const char* path;
    bool isMatch;
  } kCases[] = {
      {"^a.b$", "a\nb", true},         {"^a[^c]b$", "a\nb", true},     {"^b", "a\nb", false},
      {"a$", "a\nb", false},           {"a$", "a\n", false},           {"^.$", "\xE9", true},
      {"^[\xE0-\xEF]$", "\xE9", true}, {"^[[:digit:]]+$", "42", true}, {"^[]a]+$", "]a", true},
      {"^[^]a]$", "]", false},         {"^[a-]$", "-", true},          {"^(a|b|)c$", "c", true},
      {"^a{2,3}$", "aaaa", false},     {"^a{2,}$", "aaaa", true},      {"^a{2}{2}$", "aaaa", true},
      {"^\\$\\{\\}$", "${}", true},    {"(^a|b$)", "xb", true},        {"", "a", true},
  };
  for (const auto& [pattern, path, isMatch] : kCases) {
    ResourcePatterns patterns;
    const re2::RE2::Set* const set = patterns.Compile({pattern});
    ASSERT_NE(set, nullptr) << pattern;
    EXPECT_EQ(set->Match(path, nullptr), isMatch) << pattern;
  }
}

TEST_F(ResourceRulesTest, RejectsMalformedPatterns) {
  EXPECT_EQ(TryToLoad(Rule("(", "<true/>")), kErrSecCSResourceRulesInvalid);
  for (const std::string pattern :
       {")", "[a", "a{1", "a{2,1}", "*(", "a\\", "[b-a]", "[[:none:]]"}) {
    EXPECT_FALSE(IsAccepted({pattern})) << pattern;
  }
}

// Regular-expression libraries read these differently.
TEST_F(ResourceRulesTest, RejectsPatternsThatAreNotPortable) {
  for (const std::string pattern : {"(a)\\1", "\\d", "\\x41", "\\Qa", "[\\]]", "[[.a.]]", "[[=a=]]",
                                    "a{,2}", "a{", "{", "(?i)a", "(?:a)"}) {
    EXPECT_FALSE(IsAccepted({pattern})) << pattern;
  }
}

/// Measures processor time from its construction.
class Stopwatch {
 public:
  double Seconds() const { return static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC; }

 private:
  std::clock_t start_ = std::clock();
};

TEST_F(ResourceRulesTest, RejectsPatternsThatCostTooMuch) {
  const Stopwatch stopwatch;
  ResourcePatterns::List many;
  for (int i = 0; i < 100; ++i) many.push_back(std::to_string(i) + "(a|b|c){99}");
  for (const ResourcePatterns::List& patterns :
       {ResourcePatterns::List{"((a{160}[[.].]))]){160}){160}"},
        ResourcePatterns::List{"((a{60}b){60}){60}"}, ResourcePatterns::List{"a{100}"},
        ResourcePatterns::List{"a{99999999999999999999}"},
        ResourcePatterns::List(300, "([^a]?.){0,99}"),
        ResourcePatterns::List{std::string(5000, 'a')}, many}) {
    EXPECT_FALSE(IsAccepted(patterns)) << patterns.front().substr(0, 60);
  }
  EXPECT_LT(stopwatch.Seconds(), 5);
}

/// Makes a path of random letters.
std::string RandomPath(const std::string& letters, int length, std::mt19937& random) {
  std::string path;
  for (int i = 0; i < length; ++i) path += letters[random() % letters.size()];
  return path;
}

TEST_F(ResourceRulesTest, RejectsRulesWhoseAutomatonGrows) {
  Load(Rule("a[ab]{20}c", "<true/>"));
  std::mt19937 random;
  const ResourceRule* rule = nullptr;
  OsStatus status = kErrSecSuccess;
  for (int i = 0; i < 100 && status == kErrSecSuccess; ++i) {
    status = rules_.Find(RandomPath("ab", 1000, random), rule);
  }
  EXPECT_EQ(status, kErrSecCSResourceRulesInvalid);
}

// The maximum cost of nested bundles, each with different rules whose automaton is about to become
// too large.
TEST_F(ResourceRulesTest, BoundsTheCostOfAllRulesOfACheck) {
  std::mt19937 random;
  std::string letters;
  for (int c = 1; c < 256; ++c) {
    if (std::isalnum(c) != 0 || c > 127) letters += static_cast<char>(c);
  }
  std::string alternatives;
  for (int i = 0; i < 800; ++i)
    alternatives += std::string(1, letters[random() % letters.size()]) + "|";
  std::vector<std::string> paths;
  for (int i = 0; i < 1000; ++i)
    paths.push_back(RandomPath(i % 2 == 0 ? letters : "ab", 1000, random));
  const Stopwatch stopwatch;
  int accepted = 0;
  for (int i = 0; i < 20; ++i) {
    const std::string members = Rule("(" + alternatives + "a)*", "<true/>") +
                                Rule("(" + alternatives + "b){2}Q", "<true/>") +
                                Rule("a[ab].{4}z" + std::to_string(i), "<true/>");
    if (TryToLoad(members) != kErrSecSuccess) continue;
    ++accepted;
    // Other bundles with the same rules cost nothing more.
    ASSERT_EQ(TryToLoad(members), kErrSecSuccess);
    const ResourceRule* rule = nullptr;
    for (const std::string& path : paths) {
      if (rules_.Find(path, rule) != kErrSecSuccess) break;
    }
  }
  EXPECT_EQ(accepted, 8);
  EXPECT_LT(stopwatch.Seconds(), 5);
}

TEST_F(ResourceRulesTest, FollowsTheUsualRulesForManyFiles) {
  const std::string omit = "<key>omit</key><true/>";
  const std::string nested = "<key>nested</key><true/>";
  Load(Rule("^.*", "<true/>") + Rule("^[^/]+$", Weight("<real>10</real>", nested)) +
       Rule("^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
            "Library/(Automator|Spotlight|LoginItems))/",
            Weight("<real>10</real>", nested)) +
       Rule(".*\\.dSYM($|/)", Weight("<real>11</real>")) +
       Rule("^(.*/)?\\.DS_Store$", Weight("<real>2000</real>", omit)) +
       Rule("^Info\\.plist$", Weight("<real>20</real>", omit)) +
       Rule("^version\\.plist$", Weight("<real>20</real>")) +
       Rule("^embedded\\.provisionprofile$", Weight("<real>20</real>")) +
       Rule("^PkgInfo$", Weight("<real>20</real>", omit)) +
       Rule("^Resources/", Weight("<real>20</real>")) +
       Rule("^Resources/.*\\.lproj/", Weight("<real>1000</real>")) +
       Rule("^Resources/Base\\.lproj/", Weight("<real>1010</real>")) +
       Rule("^Resources/.*\\.lproj/locversion.plist$", Weight("<real>1100</real>", omit)));
  std::mt19937 random;
  const Stopwatch stopwatch;
  for (int i = 0; i < 20000; ++i) {
    std::string path = RandomPath("abcdefghijklmnopqrstuvwxyz0123456789-_ ./", 100, random);
    path = (i % 2 == 0 ? "Resources/en.lproj/" : "Frameworks/") + path + "/";
    ASSERT_EQ(Find(path + "file")->weight, i % 2 == 0 ? 1000U : 10U) << path;
    ASSERT_TRUE(Find(path + ".DS_Store")->isOmitted) << path;
  }
  EXPECT_EQ(Find("Resources/Base.lproj/a")->weight, 1010U);
  EXPECT_TRUE(Find("Resources/de.lproj/locversion.plist")->isOmitted);
  EXPECT_TRUE(Find("PkgInfo")->isOmitted);
  EXPECT_TRUE(Find("tool")->isNestedCode);
  EXPECT_EQ(Find("MacOS/tool.dSYM")->weight, 11U);
  EXPECT_LT(stopwatch.Seconds(), 5);
}

}  // namespace
}  // namespace platform::code_signing
