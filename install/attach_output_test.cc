#include "install/attach_output.h"

#include <gmock/gmock.h>

#include "tests/support/property_list_builder.h"

namespace install {
namespace {

using fake::Array;
using fake::Dictionary;
using fake::Mounted;
using fake::Text;
using platform::PropertyListValue;
using Kind = PropertyListValue::Kind;
using testing::Optional;

PropertyListValue Of(Kind kind) {
  PropertyListValue value;
  value.kind = kind;
  value.text = "/Volumes/X";
  return value;
}

TEST(FindMountPointTest, TheUsualForm) {
  EXPECT_THAT(
      FindMountPoint(Dictionary(
          {{"system-entities", Array({Dictionary({{"content-hint", Text("GUID_partition_scheme")},
                                                  {"dev-entry", Text("/dev/disk4")},
                                                  {"potentially-mountable", Of(Kind::kBoolean)}}),
                                      Dictionary({{"content-hint", Text("Apple_HFS")},
                                                  {"dev-entry", Text("/dev/disk4s1")},
                                                  {"mount-point", Text("/private/tmp/dmg.x1")},
                                                  {"volume-kind", Text("hfs")}})})}})),
      Optional(std::string("/private/tmp/dmg.x1")));
}

TEST(FindMountPointTest, NothingToFind) {
  EXPECT_EQ(FindMountPoint(Dictionary({})), std::nullopt);
  EXPECT_EQ(FindMountPoint(Dictionary({{"system-entities", Array({})}})), std::nullopt);
  EXPECT_EQ(FindMountPoint(Dictionary({{"a", Array({Dictionary({})})}})), std::nullopt);
}

TEST(FindMountPointTest, AnyArrayOfTheTopCounts) {
  EXPECT_THAT(FindMountPoint(Dictionary({{"whatever", Array({Mounted("/a")})}})),
              Optional(std::string("/a")));
}

TEST(FindMountPointTest, FirstInTheListsOrderWins) {
  EXPECT_THAT(FindMountPoint(Dictionary(
                  {{"z", Array({Mounted("/z1"), Mounted("/z2")})}, {"a", Array({Mounted("/a")})}})),
              Optional(std::string("/z1")));
}

TEST(FindMountPointTest, DictionariesAtTheTopAreSkipped) {
  EXPECT_EQ(FindMountPoint(Dictionary({{"a", Mounted("/a")}})), std::nullopt);
  EXPECT_EQ(FindMountPoint(Dictionary({{"mount-point", Text("/a")}})), std::nullopt);
  EXPECT_THAT(FindMountPoint(Dictionary({{"a", Mounted("/a")}, {"b", Array({Mounted("/b")})}})),
              Optional(std::string("/b")));
}

TEST(FindMountPointTest, OtherValuesAtTheTopAreSkipped) {
  for (const Kind kind : {Kind::kBoolean, Kind::kInteger, Kind::kReal, Kind::kString, Kind::kData,
                          Kind::kDate, Kind::kOther}) {
    EXPECT_THAT(FindMountPoint(Dictionary({{"a", Of(kind)}, {"b", Array({Mounted("/b")})}})),
                Optional(std::string("/b")));
  }
}

TEST(FindMountPointTest, OtherElementsAreSkipped) {
  for (const PropertyListValue& element :
       {Of(Kind::kBoolean), Of(Kind::kInteger), Of(Kind::kString), Of(Kind::kData),
        Array({Mounted("/inner")}), Dictionary({{"Mount-Point", Text("/a")}}),
        Dictionary({{"inner", Mounted("/a")}})}) {
    EXPECT_THAT(FindMountPoint(Dictionary({{"a", Array({element, Mounted("/b")})}})),
                Optional(std::string("/b")));
  }
}

TEST(FindMountPointTest, MountPointOfAnotherTypeIsSkipped) {
  for (const PropertyListValue& value : {Of(Kind::kInteger), Of(Kind::kData), Of(Kind::kBoolean),
                                         Array({Text("/a")}), Mounted("/a")}) {
    EXPECT_THAT(FindMountPoint(Dictionary(
                    {{"a", Array({Dictionary({{"mount-point", value}}), Mounted("/b")})}})),
                Optional(std::string("/b")));
  }
}

TEST(FindDeviceTest, OnlyAtTheTop) {
  EXPECT_EQ(FindDevice(Dictionary({})), std::nullopt);
  EXPECT_EQ(FindDevice(Dictionary({{"system-entities", Array({Mounted("/a")})}})), std::nullopt);
  EXPECT_EQ(FindDevice(Dictionary({{"a", Mounted("/a")}})), std::nullopt);
  EXPECT_THAT(FindDevice(Dictionary({{"system-entities", Array({Mounted("/a")})},
                                     {"dev-entry", Text("/dev/disk4")}})),
              Optional(std::string("/dev/disk4")));
}

TEST(FindDeviceTest, OfAnotherType) {
  for (const PropertyListValue& value :
       {Of(Kind::kInteger), Of(Kind::kData), Array({Text("/dev/disk4")}), Mounted("/a")}) {
    EXPECT_EQ(FindDevice(Dictionary({{"dev-entry", value}})), std::nullopt);
  }
}

}  // namespace
}  // namespace install
