#include "platform/property_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

using contract::TemporaryTree;
using Kind = PropertyListValue::Kind;

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";

std::string Xml(const std::string& body) { return kHead + body + "</plist>\n"; }

std::optional<PropertyListValue> Read(const std::string& contents) {
  const TemporaryTree tree;
  return ReadPropertyListDictionary(tree.MakeFile("list \xC3\xA4.plist", contents));
}

/// The member `key`, which must be there and of `kind`.
const PropertyListValue& Member(const PropertyListValue& dictionary, const std::string& key,
                                Kind kind) {
  static const PropertyListValue none;
  const PropertyListValue* const value = dictionary.Find(key);
  EXPECT_NE(value, nullptr) << key;
  if (value == nullptr) return none;
  EXPECT_EQ(value->kind, kind) << key;
  return *value;
}

TEST(PropertyListContract, ReadsEveryKind) {
  const auto list = Read(
      Xml("<dict><key>yes</key><true/><key>no</key><false/>"
          "<key>one</key><integer>1</integer><key>zero</key><integer>0</integer>"
          "<key>big</key><integer>9223372036854775807</integer>"
          "<key>low</key><integer>-9223372036854775808</integer>"
          "<key>real</key><real>0.25</real><key>whole real</key><real>2</real>"
          "<key>text</key><string>a&lt;b&gt; &amp; \xE2\x82\xAC</string><key>empty</key><string/>"
          "<key>data</key><data>AAH/</data><key>date</key><date>2020-01-02T03:04:05Z</date>"
          "<key>list</key><array><string>x</string><integer>5</integer><dict/></array>"
          "<key>inner</key><dict><key>k</key><string>v</string></dict></dict>"));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->kind, Kind::kDictionary);
  EXPECT_EQ(list->members.size(), 14u);
  EXPECT_TRUE(Member(*list, "yes", Kind::kBoolean).boolean);
  EXPECT_FALSE(Member(*list, "no", Kind::kBoolean).boolean);
  EXPECT_EQ(Member(*list, "one", Kind::kInteger).integer, 1);
  EXPECT_EQ(Member(*list, "zero", Kind::kInteger).integer, 0);
  EXPECT_EQ(Member(*list, "big", Kind::kInteger).integer, INT64_MAX);
  EXPECT_EQ(Member(*list, "low", Kind::kInteger).integer, INT64_MIN);
  EXPECT_EQ(Member(*list, "real", Kind::kReal).real, 0.25);
  EXPECT_EQ(Member(*list, "whole real", Kind::kReal).real, 2.0);
  EXPECT_EQ(Member(*list, "text", Kind::kString).text, "a<b> & \xE2\x82\xAC");
  EXPECT_EQ(Member(*list, "empty", Kind::kString).text, "");
  EXPECT_EQ(Member(*list, "data", Kind::kData).text, std::string("\0\1\xFF", 3));
  Member(*list, "date", Kind::kDate);
  const PropertyListValue& array = Member(*list, "list", Kind::kArray);
  ASSERT_EQ(array.elements.size(), 3u);
  EXPECT_EQ(array.elements[0].text, "x");
  EXPECT_EQ(array.elements[1].integer, 5);
  EXPECT_EQ(array.elements[2].kind, Kind::kDictionary);
  EXPECT_TRUE(array.elements[2].members.empty());
  EXPECT_EQ(Member(Member(*list, "inner", Kind::kDictionary), "k", Kind::kString).text, "v");
  EXPECT_EQ(list->Find("missing"), nullptr);
}

TEST(PropertyListContract, FindLooksOnlyInDictionaries) {
  PropertyListValue text;
  text.kind = Kind::kString;
  EXPECT_EQ(text.Find("k"), nullptr);
}

// {"system-entities": [{"dev-entry": "/dev/disk4"}, {"mount-point": "/Volumes/X €"}]}
constexpr unsigned char kBinaryList[] = {
    0x62, 0x70, 0x6c, 0x69, 0x73, 0x74, 0x30, 0x30, 0xd1, 0x01, 0x02, 0x5f, 0x10, 0x0f, 0x73, 0x79,
    0x73, 0x74, 0x65, 0x6d, 0x2d, 0x65, 0x6e, 0x74, 0x69, 0x74, 0x69, 0x65, 0x73, 0xa2, 0x03, 0x06,
    0xd1, 0x04, 0x05, 0x59, 0x64, 0x65, 0x76, 0x2d, 0x65, 0x6e, 0x74, 0x72, 0x79, 0x5a, 0x2f, 0x64,
    0x65, 0x76, 0x2f, 0x64, 0x69, 0x73, 0x6b, 0x34, 0xd1, 0x07, 0x08, 0x5b, 0x6d, 0x6f, 0x75, 0x6e,
    0x74, 0x2d, 0x70, 0x6f, 0x69, 0x6e, 0x74, 0x6c, 0x00, 0x2f, 0x00, 0x56, 0x00, 0x6f, 0x00, 0x6c,
    0x00, 0x75, 0x00, 0x6d, 0x00, 0x65, 0x00, 0x73, 0x00, 0x2f, 0x00, 0x58, 0x00, 0x20, 0x20, 0xac,
    0x08, 0x0b, 0x1d, 0x20, 0x23, 0x2d, 0x38, 0x3b, 0x47, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01,
    0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x60};

TEST(PropertyListContract, ReadsTheBinaryForm) {
  const auto list =
      Read(std::string(reinterpret_cast<const char*>(kBinaryList), sizeof(kBinaryList)));
  ASSERT_TRUE(list);
  const PropertyListValue& entities = Member(*list, "system-entities", Kind::kArray);
  ASSERT_EQ(entities.elements.size(), 2u);
  EXPECT_EQ(Member(entities.elements[0], "dev-entry", Kind::kString).text, "/dev/disk4");
  EXPECT_EQ(Member(entities.elements[1], "mount-point", Kind::kString).text,
            "/Volumes/X \xE2\x82\xAC");
}

TEST(PropertyListContract, KeepsTheOrderOfAnArray) {
  std::string body = "<dict><key>list</key><array>";
  constexpr int kCount = 2000;
  for (int number = 0; number < kCount; ++number) {
    body += "<integer>" + std::to_string(number) + "</integer>";
  }
  const auto list = Read(Xml(body + "</array></dict>"));
  ASSERT_TRUE(list);
  const PropertyListValue& array = Member(*list, "list", Kind::kArray);
  ASSERT_EQ(array.elements.size(), static_cast<std::size_t>(kCount));
  for (int number = 0; number < kCount; ++number) {
    EXPECT_EQ(array.elements[static_cast<std::size_t>(number)].integer, number);
  }
}

TEST(PropertyListContract, AnEmptyDictionaryIsOne) {
  const auto list = Read(Xml("<dict/>"));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->kind, Kind::kDictionary);
  EXPECT_TRUE(list->members.empty());
}

TEST(PropertyListContract, ATextIsCopiedByItsLength) {
  const auto list =
      Read(Xml("<dict><key>long</key><string>" + std::string(100000, 'x') + "</string></dict>"));
  ASSERT_TRUE(list);
  EXPECT_EQ(Member(*list, "long", Kind::kString).text, std::string(100000, 'x'));
}

TEST(PropertyListContract, AnythingElseAtTheTopIsNothing) {
  EXPECT_FALSE(Read(Xml("<array><dict/></array>")));
  EXPECT_FALSE(Read(Xml("<string>text</string>")));
  EXPECT_FALSE(Read(Xml("<true/>")));
}

TEST(PropertyListContract, WhatIsNotAPropertyListIsNothing) {
  EXPECT_FALSE(Read(""));
  EXPECT_FALSE(Read(std::string(1000, '\0')));
  EXPECT_FALSE(Read("<html><body/></html>"));
  EXPECT_FALSE(Read("bplist00"));
  EXPECT_FALSE(Read(std::string(reinterpret_cast<const char*>(kBinaryList), 60)));
}

TEST(PropertyListContract, ATruncatedListIsNothing) {
  const std::string whole = Xml("<dict><key>k</key><array><string>v</string></array></dict>");
  for (const std::size_t length :
       {whole.find("v<"), whole.find("</array>"), whole.find("</dict>")}) {
    EXPECT_FALSE(Read(whole.substr(0, length))) << length;
  }
}

TEST(PropertyListContract, AFileThatCannotBeReadIsNothing) {
  const TemporaryTree tree;
  EXPECT_FALSE(ReadPropertyListDictionary(tree.Path("nothing")));
  EXPECT_FALSE(ReadPropertyListDictionary(tree.Root()));
  EXPECT_FALSE(ReadPropertyListDictionary(""));
  contract::SetMode(tree.MakeFile("secret", Xml("<dict/>")), 0);
  const contract::OrdinaryUser user;
  if (user.IsOne()) {
    EXPECT_FALSE(ReadPropertyListDictionary(tree.Path("secret")));
  }
}

}  // namespace
}  // namespace platform
