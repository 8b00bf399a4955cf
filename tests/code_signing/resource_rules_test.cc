#include "platform/linux/code_signing/resource_rules.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
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
  void Load(const std::string& members) { ASSERT_EQ(rules_.Load(Rules(members)), kErrSecSuccess); }

  const ResourceRule* Find(const std::string& path) {
    const ResourceRule* rule = nullptr;
    EXPECT_EQ(rules_.Find(path, rule), kErrSecSuccess);
    return rule;
  }

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
  // Of equal ones, the first.
  EXPECT_FALSE(Find("abc")->isOmitted);
}

TEST_F(ResourceRulesTest, FalseOmits) {
  Load(Rule("^a", "<false/>") + Rule("^b", "<true/>"));
  EXPECT_TRUE(Find("a")->isOmitted);
  EXPECT_FALSE(Find("b")->isOmitted);
}

TEST_F(ResourceRulesTest, RefusesValuesOfWrongType) {
  for (const std::string value : {"<string>yes</string>", "<integer>1</integer>", "<array/>",
                                  "<data/>", "<dict><key>weight</key><string>1</string></dict>",
                                  "<dict><key>omit</key><integer>1</integer></dict>",
                                  "<dict><key>nested</key><string>no</string></dict>",
                                  "<dict><key>optional</key><integer>0</integer></dict>"}) {
    EXPECT_EQ(rules_.Load(Rules(Rule("^a", value))), kErrSecCSResourceRulesInvalid) << value;
  }
  EXPECT_EQ(rules_.Load(Rules(Rule("^a", "<dict><key>other</key><array/></dict>"))),
            kErrSecSuccess);
}

TEST_F(ResourceRulesTest, RefusesMalformedPatterns) {
  for (const std::string pattern : {"(", "[a", "a{1", "a{2,1}", "*(", "a\\"}) {
    EXPECT_EQ(rules_.Load(Rules(Rule(pattern, "<true/>"))), kErrSecCSResourceRulesInvalid)
        << pattern;
  }
}

TEST_F(ResourceRulesTest, RefusesPatternsThatCostTooMuch) {
  const std::string opened(400, '(');
  std::string closed;
  for (int i = 0; i < 400; ++i) closed += ")+";
  for (const std::string& pattern :
       {std::string(5000, 'a'), std::string("(((a{1,255}){1,255}){1,255}){1,255}"),
        std::string("a{99999999999999999999}"), opened + "a" + closed, std::string("(a*)\\1"),
        "v" + std::string(100, '*'), std::string("b+($){1,3}{1,3}++"),
        std::string(100, '(') + "v" + closed, std::string("((a+)+b{9})\\9")}) {
    EXPECT_EQ(rules_.Load(Rules(Rule(pattern, "<true/>"))), kErrSecCSResourceRulesInvalid)
        << pattern.substr(0, 60);
  }
  std::string many;
  for (int i = 0; i < 1000; ++i) many += Rule("^" + std::to_string(i), "<true/>");
  EXPECT_EQ(rules_.Load(Rules(many)), kErrSecCSResourceRulesInvalid);
}

TEST_F(ResourceRulesTest, MatchesHostilePatternsInBoundedTime) {
  Load(Rule("^(a|a)*(a|aa)*(a*)*(.*.*.*.*)*b$", "<true/>") + Rule("(x+x+)+y", "<true/>"));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(Find(std::string(200, 'a') + "c" + std::string(50, 'x')), nullptr);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(ResourceRulesTest, KeepsAnsweringWhenExpressionsAreCompiledAnew) {
  Load(Rule("^(.*/)?\\.DS_Store$", Weight("<real>2000</real>", "<key>omit</key><true/>")) +
       Rule("^.*", "<true/>"));
  for (int i = 0; i < 20000; ++i) {
    const std::string path = "Resources/folder" + std::to_string(i) + "/";
    ASSERT_FALSE(Find(path + "file")->isOmitted);
    ASSERT_TRUE(Find(path + ".DS_Store")->isOmitted);
  }
}

}  // namespace
}  // namespace platform::code_signing
