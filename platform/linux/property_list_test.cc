#include "platform/linux/property_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
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

TEST(PropertyListTest, ReadsEveryKindOfXmlValue) {
  const auto list = ParsePropertyList(
      Xml("<dict><key>yes</key><true/><key>no</key><false/><key>number</key><integer>-7</integer>"
          "<key>half</key><real>0.5</real><key>text</key><string>a &amp; b&lt;&#65;</string>"
          "<key>data</key><data>AAEC</data><key>date</key><date>2020-01-02T03:04:05Z</date>"
          "<key>list</key><array><string>x</string><dict/></array></dict>"));
  ASSERT_TRUE(list);
  ASSERT_EQ(list->kind, Kind::kDictionary);
  EXPECT_TRUE(list->Find("yes")->boolean);
  EXPECT_EQ(list->Find("no")->kind, Kind::kBoolean);
  EXPECT_FALSE(list->Find("no")->boolean);
  EXPECT_EQ(list->Find("number")->integer, -7);
  EXPECT_EQ(list->Find("half")->real, 0.5);
  EXPECT_EQ(list->Find("text")->text, "a & b<A");
  EXPECT_EQ(list->Find("data")->kind, Kind::kData);
  EXPECT_EQ(list->Find("data")->text, std::string("\0\1\2", 3));
  EXPECT_EQ(list->Find("date")->kind, Kind::kDate);
  ASSERT_EQ(list->Find("list")->elements.size(), 2U);
  EXPECT_EQ(list->Find("list")->elements[0].text, "x");
  EXPECT_EQ(list->Find("list")->elements[1].kind, Kind::kDictionary);
  EXPECT_EQ(list->Find("none"), nullptr);
}

TEST(PropertyListTest, KeepsTheOrderOfMembers) {
  const auto list = ParsePropertyList(Xml("<dict><key>b</key><true/><key>a</key><true/></dict>"));
  ASSERT_TRUE(list);
  ASSERT_EQ(list->members.size(), 2U);
  EXPECT_EQ(list->members[0].first, "b");
  EXPECT_EQ(list->members[1].first, "a");
}

TEST(PropertyListTest, ReadsBinaryLists) {
  // {"k": ["text", true, 300]}; the text as UTF-16 too.
  const auto list =
      ParsePropertyList(Binary({"\xD1\1\2", "\x51k", "\xA4\3\4\5\6", "\x54text", "\x09",
                                std::string("\x11\x01\x2C", 3), std::string("\x61\0\xE9", 3)}));
  ASSERT_TRUE(list);
  const PropertyListValue* const values = list->Find("k");
  ASSERT_NE(values, nullptr);
  ASSERT_EQ(values->elements.size(), 4U);
  EXPECT_EQ(values->elements[0].text, "text");
  EXPECT_TRUE(values->elements[1].boolean);
  EXPECT_EQ(values->elements[2].integer, 300);
  EXPECT_EQ(values->elements[3].text, "\xC3\xA9");
}

TEST(PropertyListTest, RefusesWhatIsNoPropertyList) {
  for (const std::string& bytes :
       {std::string(), std::string("plain text"), std::string("{\"json\": 1}"), Xml("<dict><key>a"),
        Xml("<dict></array>"), std::string("bplist00"),
        std::string("bplist00") + Repeat("\xFF", 40), std::string(1000, '\0')}) {
    EXPECT_FALSE(ParsePropertyList(bytes)) << bytes;
  }
}

TEST(PropertyListTest, RefusesTruncationAnywhere) {
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
  // Ends of containers that are none must not hide how deep the list is.
  for (const std::string decoy :
       {"<!-- </array> -->", "<?x </array> ?>", "<?x \"</array>\"?>", "<![CDATA[</array>]]>",
        "<!DOCTYPE a </array> >", "<!DOCTYPE \"</array>\">"}) {
    EXPECT_FALSE(ParsePropertyList(Xml(Repeat("<array>" + decoy, 100000)))) << decoy;
  }
}

TEST(PropertyListTest, BoundsTheNumberOfValues) {
  EXPECT_TRUE(ParsePropertyList(Xml("<array>" + Repeat("<true/>", 100000) + "</array>")));
  EXPECT_FALSE(ParsePropertyList(Xml("<array>" + Repeat("<true/>", 1000000) + "</array>")));
  EXPECT_FALSE(ParsePropertyList(std::string(kMaximumPropertyListSize + 1, ' ')));
}

TEST(PropertyListTest, BoundsTheWorkForEntities) {
  EXPECT_TRUE(ParsePropertyList(Xml("<string>" + Repeat("&lt;", 10000) + "</string>")));
  EXPECT_FALSE(ParsePropertyList(Xml("<string>" + Repeat("&lt;", 1000000) + "</string>")));
}

std::string Keys(std::size_t count, const std::function<std::string(std::size_t)>& name) {
  std::string keys;
  for (std::size_t i = 0; i < count; ++i) keys += "<key>" + name(i) + "</key><true/>";
  return Xml("<dict>" + keys + "</dict>");
}

TEST(PropertyListTest, BoundsTheWorkForKeys) {
  constexpr std::size_t kCount = 100000;
  const auto path = [](std::size_t i) { return "Resources/file" + std::to_string(i) + ".png"; };
  const auto list = ParsePropertyList(Keys(kCount, path));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->members.size(), kCount);
  EXPECT_TRUE(ParsePropertyList(Keys(kCount, [&](std::size_t i) {
    return i % 1000 == 0 ? "a &amp; b" + std::to_string(i) : path(i);
  })));
  // Names of one hash, written plainly and not, and names that all come twice.
  const auto colliding = [](std::size_t i) {
    std::string name;
    for (std::size_t bit = 0; bit < 17; ++bit) name += (i >> bit & 1) != 0 ? "AB" : "B!";
    return name;
  };
  EXPECT_FALSE(ParsePropertyList(Keys(kCount, colliding)));
  EXPECT_FALSE(ParsePropertyList(Keys(kCount, [&](std::size_t i) {
    return "&#" + std::to_string(i % 2 + 65) + ";" + colliding(i);
  })));
  EXPECT_FALSE(ParsePropertyList(
      Keys(kCount, [&](std::size_t i) { return "<![CDATA[" + colliding(i) + "]]>"; })));
  EXPECT_FALSE(ParsePropertyList(Keys(kCount, [&](std::size_t i) { return path(i / 2); })));
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

TEST(PropertyListTest, RefusesZerosInUtf16Text) {
  EXPECT_TRUE(ParsePropertyList(Binary({"\xD1\1\2", std::string("\x61\0k", 3), "\x09"})));
  EXPECT_FALSE(ParsePropertyList(Binary({"\xD1\1\2", std::string("\x62\0k\0\0", 5), "\x09"})));
}

class PropertyListFileTest : public testing::Test {
 protected:
  ~PropertyListFileTest() override { std::remove(path_.c_str()); }

  void Write(const std::string& contents) { std::ofstream(path_, std::ios::binary) << contents; }

  const std::string path_ = testing::TempDir() + "list" + std::to_string(getpid()) + ".plist";
};

TEST_F(PropertyListFileTest, ReadsOnlyDictionaries) {
  Write(Xml("<dict><key>a</key><string>b</string></dict>"));
  const auto list = ReadPropertyListDictionary(path_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Find("a")->text, "b");
  for (const std::string top : {"<array/>", "<string>a</string>", "<true/>"}) {
    Write(Xml(top));
    EXPECT_FALSE(ReadPropertyListDictionary(path_)) << top;
  }
}

TEST_F(PropertyListFileTest, AnswersNothingWhereThereIsNoFileToRead) {
  EXPECT_FALSE(ReadPropertyListDictionary(path_));
  EXPECT_FALSE(ReadPropertyListDictionary(testing::TempDir()));
  EXPECT_FALSE(ReadPropertyListDictionary("/dev/zero"));
  Write("");
  EXPECT_FALSE(ReadPropertyListDictionary(path_));
}

}  // namespace
}  // namespace platform
