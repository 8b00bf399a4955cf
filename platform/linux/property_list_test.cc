// Hostile and unusual lists. The contract tests read the usual ones.

#include "platform/linux/property_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace platform {
namespace {

using Kind = PropertyListValue::Kind;

std::string Xml(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
         body + "</plist>\n";
}

std::string Repeat(const std::string& text, std::size_t count) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

/// A binary list whose objects (given as their bytes) are referred to by one byte each.
std::string Binary(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += static_cast<char>(bytes.size() >> 8);
    table += static_cast<char>(bytes.size() & 0xFF);
    bytes += object;
  }
  const std::size_t tableOffset = bytes.size();
  bytes += table + std::string(6, '\0') + '\2' + '\1';
  bytes += std::string(7, '\0') + static_cast<char>(objects.size()) + std::string(8, '\0');
  bytes += std::string(6, '\0') + static_cast<char>(tableOffset >> 8);
  return bytes + static_cast<char>(tableOffset & 0xFF);
}

TEST(PropertyListTest, RejectsTruncationAnywhere) {
  const std::string xml = Xml("<dict><key>k</key><array><string>v</string></array></dict>");
  const std::size_t end = xml.size() - 1;  // without the newline
  for (std::size_t length = 0; length < end; ++length) {
    EXPECT_FALSE(ParsePropertyList(xml.substr(0, length))) << length;
  }
  EXPECT_TRUE(ParsePropertyList(xml.substr(0, end)));
  const std::string binary = Binary({"\xD1\1\2", "\x51k", "\x51v"});
  for (std::size_t length = 0; length < binary.size(); ++length) {
    EXPECT_FALSE(ParsePropertyList(binary.substr(0, length))) << length;
  }
  EXPECT_TRUE(ParsePropertyList(binary));
}

TEST(PropertyListTest, BoundsTheNesting) {
  EXPECT_TRUE(ParsePropertyList(Xml(Repeat("<array>", 200) + Repeat("</array>", 200))));
  for (const std::size_t depth : {300U, 1000000U}) {
    EXPECT_FALSE(ParsePropertyList(Xml(Repeat("<array>", depth))));
    EXPECT_FALSE(ParsePropertyList(Xml(Repeat("<array>", depth) + Repeat("</array>", depth))));
  }
  // What only looks like the end of a container must not hide the depth.
  for (const std::string decoy :
       {"<!-- </array> -->", "<?x </array> ?>", "<?x \"</array>\"?>", "<![CDATA[</array>]]>",
        "<!DOCTYPE a </array> >", "<!DOCTYPE \"</array>\">"}) {
    EXPECT_FALSE(ParsePropertyList(Xml(Repeat("<array>" + decoy, 100000)))) << decoy;
  }
}

std::string Keys(std::size_t count, const std::function<std::string(std::size_t)>& name) {
  std::string keys;
  for (std::size_t i = 0; i < count; ++i) keys += "<key>" + name(i) + "</key><true/>";
  return Xml("<dict>" + keys + "</dict>");
}

std::string SealedPath(std::size_t i) {
  return "Resources/de.lproj/some folder/file" + std::to_string(i) + ".png";
}

TEST(PropertyListTest, BoundsTheMemoryOfValues) {
  EXPECT_TRUE(ParsePropertyList(Xml("<array>" + Repeat("<true/>", 100000) + "</array>")));
  EXPECT_TRUE(ParsePropertyList(Keys(60000, SealedPath)));
  for (const std::string value :
       {"<true/>", "<array/>", "<array><true/></array>", "<string>0123456789abcdef</string>",
        "<dict><key>a</key><true/></dict>", "<data>AAECAwQFBgcICQoLDA0ODw==</data>"}) {
    EXPECT_FALSE(ParsePropertyList(Xml("<array>" + Repeat(value, 400000) + "</array>"))) << value;
  }
  EXPECT_FALSE(ParsePropertyList(Keys(200000, SealedPath)));
  EXPECT_FALSE(ParsePropertyList(std::string(kMaxPropertyListSize + 1, ' ')));
}

TEST(PropertyListTest, OneBudgetCanServeSeveralLists) {
  const std::string list = Keys(20000, SealedPath);
  PropertyListBudget budget;
  EXPECT_TRUE(ParsePropertyList(list, budget));
  EXPECT_FALSE(budget.IsExceeded());
  for (int i = 0; i < 20; ++i) ParsePropertyList(list, budget);
  EXPECT_TRUE(budget.IsExceeded());
  EXPECT_FALSE(ParsePropertyList(Xml("<true/>"), budget));
  EXPECT_TRUE(ParsePropertyList(list));
}

TEST(PropertyListTest, ReadsTheSealOfManyFiles) {
  const std::string hash = "<key>hash</key><data>\n\t\tAAECAwQFBgcICQoLDA0ODxAREhM=\n\t\t</data>";
  const std::string hash2 =
      "<key>hash2</key><data>\n\t\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=\n\t\t</data>";
  const std::string optional = "<key>optional</key><true/>";
  std::string files;
  std::string files2;
  for (std::size_t i = 0; i < 20000; ++i) {
    const std::string key = "<key>" + SealedPath(i) + "</key>";
    files += key + "<dict>" + hash + optional + "</dict>";
    files2 += key + "<dict>" + hash + hash2 + optional + "</dict>";
  }
  const auto list =
      ParsePropertyList(Xml("<dict><key>files</key><dict>" + files +
                            "</dict><key>files2</key><dict>" + files2 + "</dict></dict>"));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Find("files")->members.size(), 20000U);
  EXPECT_EQ(list->Find("files2")->members.back().second.Find("hash2")->text.size(), 32U);
}

// Common property-list libraries take quadratic time for these.
TEST(PropertyListTest, ReadsManyReferencesAndKeysOfOneHash) {
  const auto text = ParsePropertyList(Xml("<string>" + Repeat("&lt;", 1000000) + "</string>"));
  ASSERT_TRUE(text);
  EXPECT_EQ(text->text, std::string(1000000, '<'));
  const auto keys = ParsePropertyList(Keys(60000, [](std::size_t i) {
    std::string name;
    for (std::size_t bit = 0; bit < 17; ++bit) name += (i >> bit & 1) != 0 ? "AB" : "B!";
    return name;
  }));
  ASSERT_TRUE(keys);
  EXPECT_EQ(keys->members.size(), 60000U);
}

TEST(PropertyListTest, TheLastValueOfARepeatedKeyTakesThePlaceOfTheFirst) {
  const auto list = ParsePropertyList(
      Xml("<dict><key>a</key><integer>1</integer><key>b</key><integer>2</integer><key>a</key>"
          "<integer>3</integer><key>c</key><integer>4</integer><key>a</key><integer>5</integer>"
          "</dict>"));
  ASSERT_TRUE(list);
  ASSERT_EQ(list->members.size(), 3U);
  EXPECT_EQ(list->members[0].second.integer, 5);
  EXPECT_EQ(list->members[1].second.integer, 2);
  EXPECT_EQ(list->members[2].first, "c");
}

TEST(PropertyListTest, ReadsTextWithCommentsSectionsAndReferences) {
  const auto list = ParsePropertyList(
      "<!-- a --><?b c?><plist><!-- <dict> --><array a=\"<>\"><string> a<!-- </string> -->b"
      "<![CDATA[<&lt;>]]>&quot;&apos;&gt;&#xE9;&#x20AC;&#128512;</string ><key>k</key></array>"
      "</plist>");
  ASSERT_TRUE(list);
  ASSERT_EQ(list->elements.size(), 2U);
  EXPECT_EQ(list->elements[0].text, " ab<&lt;>\"'>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(list->elements[1].text, "k");
}

TEST(PropertyListTest, ReadsNumbers) {
  const auto list = ParsePropertyList(
      Xml("<array><integer> 0x1F\n</integer><integer>+7</integer><integer>010</integer>"
          "<integer>18446744073709551615</integer><real> -1.5e3 </real><real>inf</real></array>"));
  ASSERT_TRUE(list);
  std::vector<std::int64_t> integers;
  for (const PropertyListValue& element : list->elements) integers.push_back(element.integer);
  EXPECT_THAT(integers, testing::ElementsAre(31, 7, 10, -1, 0, 0));
  EXPECT_EQ(list->elements[4].real, -1500);
  EXPECT_GT(list->elements[5].real, 1e308);
}

TEST(PropertyListTest, RejectsMalformedValues) {
  for (const std::string body : {"<integer/>",
                                 "<integer>1a</integer>",
                                 "<integer>--1</integer>",
                                 "<integer>-9223372036854775809</integer>",
                                 "<integer>18446744073709551616</integer>",
                                 "<real>x</real>",
                                 "<real></real>",
                                 "<data>A?==</data>",
                                 "<data>AAE</data>",
                                 "<data>AAE=AA==</data>",
                                 "<data>A===</data>",
                                 "<string>&none;</string>",
                                 "<string>&#0;</string>",
                                 "<string>&#xD800;</string>",
                                 "<string>&#1114112;</string>",
                                 "<string>&amp</string>",
                                 "<string>a</key>",
                                 "<string>a</>",
                                 "<string>a<b/></string>",
                                 "<dict><key>a</key></dict>",
                                 "<dict><true/></dict>",
                                 "<array></dict>",
                                 "<unknown/>",
                                 "",
                                 "<true/><true/>",
                                 "text",
                                 "<true",
                                 "<true <",
                                 "<true a=\"",
                                 "<!-- ",
                                 "<?a ><true/>",
                                 "<>",
                                 "<string><![CDATA[a</string>",
                                 "<string><!-- </string>"}) {
    EXPECT_FALSE(ParsePropertyList(Xml(body))) << body;
  }
  EXPECT_FALSE(ParsePropertyList(Xml("<string>a" + std::string(1, '\0') + "</string>")));
  EXPECT_FALSE(ParsePropertyList("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>"));
  EXPECT_FALSE(ParsePropertyList("<plist/>"));
}

TEST(PropertyListTest, ReadsEveryKindOfBinaryValue) {
  const auto list = ParsePropertyList(
      Binary({"\xAA\1\2\3\4\5\6\7\x8\x9\xA", "\x08", "\x10\xFF", "\x13" + std::string(8, '\xFF'),
              "\x14" + std::string(15, '\0') + "\7", std::string("\x22\x3F\0\0\0", 5),
              "\x23\x3F\xE0" + std::string(6, '\0'), "\x33" + std::string(8, '\0'), "\x42\1\2",
              std::string("\x64\0a\x20\xAC\xD8\x3D\xDE\0", 9), "\x80\1"}));
  ASSERT_TRUE(list);
  const std::vector<PropertyListValue>& values = list->elements;
  ASSERT_EQ(values.size(), 10U);
  EXPECT_EQ(values[0].kind, Kind::kBoolean);
  EXPECT_EQ(values[1].integer, 255);
  EXPECT_EQ(values[2].integer, -1);
  EXPECT_EQ(values[3].integer, 7);
  EXPECT_EQ(values[4].real, 0.5);
  EXPECT_EQ(values[5].real, 0.5);
  EXPECT_EQ(values[6].kind, Kind::kDate);
  EXPECT_EQ(values[7].text, "\1\2");
  EXPECT_EQ(values[8].text, "a\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(values[9].kind, Kind::kOther);
}

TEST(PropertyListTest, RejectsMalformedBinaryValues) {
  for (const std::string& object : {std::string("\0", 1),
                                    std::string("\x0F"),
                                    std::string("\x12\1\2"),
                                    "\x15" + std::string(32, '\0'),
                                    "\x24" + std::string(16, '\0'),
                                    std::string("\x21\1\2"),
                                    std::string("\x32\0\0\0\0", 5),
                                    std::string("\x43\1\2"),
                                    std::string("\x4F\x15"),
                                    std::string("\x4F\x51\1"),
                                    std::string("\x4F\x11\1"),
                                    "\x4F\x13" + std::string(8, '\xFF'),
                                    std::string("\x51\0", 2),
                                    std::string("\x61\0\0", 3),
                                    std::string("\x61\xD8\0", 3),
                                    std::string("\x61\xDC\0", 3),
                                    std::string("\x70"),
                                    std::string("\x81\1"),
                                    std::string("\xA1\1"),
                                    std::string("\xA2\0", 2),
                                    std::string("\xD1\0\0", 3),
                                    std::string("\xE0"),
                                    "\xAF\x13" + std::string(8, '\xFF')}) {
    EXPECT_FALSE(ParsePropertyList(Binary({object}))) << testing::PrintToString(object);
  }
  EXPECT_FALSE(ParsePropertyList(Binary({})));
  EXPECT_FALSE(ParsePropertyList("bplist00" + Repeat("\xFF", 40)));
  const std::string whole = Binary({"\x09"});
  ASSERT_TRUE(ParsePropertyList(whole));
  for (const std::size_t fromEnd : {26U, 25U, 17U, 9U, 1U}) {
    for (const char value : {'\0', '\x7F'}) {
      std::string changed = whole;
      if (changed[changed.size() - fromEnd] == value) continue;
      changed[changed.size() - fromEnd] = value;
      EXPECT_FALSE(ParsePropertyList(changed)) << fromEnd;
    }
  }
}

TEST(PropertyListTest, BoundsWhatBinaryListsExpandTo) {
  // Each array holds the next one twice.
  std::vector<std::string> doubling;
  for (char i = 1; i < 60; ++i) doubling.push_back(std::string("\xA2") + i + i);
  doubling.push_back("\x09");
  EXPECT_FALSE(ParsePropertyList(Binary(doubling)));
  EXPECT_FALSE(ParsePropertyList(Binary({std::string("\xA1\0", 2)})));  // holds itself
  EXPECT_FALSE(ParsePropertyList(Binary({"\xA1\1", std::string("\xA1\0", 2)})));
  EXPECT_TRUE(ParsePropertyList(Binary({"\xA2\1\1", "\xA2\2\2", "\x09"})));
}

TEST(PropertyListTest, EndlessFilesAreNotLists) {
  EXPECT_FALSE(ReadPropertyListDictionary("/dev/zero"));
}

}  // namespace
}  // namespace platform
