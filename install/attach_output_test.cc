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

/// A top-level dictionary with one array.
PropertyListValue WithElements(std::vector<PropertyListValue> elements) {
  return Dictionary({{"system-entities", Array(std::move(elements))}});
}

TEST(FindMountPointTest, NothingToFind) {
  for (const PropertyListValue& output :
       {Dictionary({}), WithElements({}), WithElements({Dictionary({})}),
        Dictionary({{"a", Mounted("/a")}}), Dictionary({{"mount-point", Text("/a")}})}) {
    EXPECT_EQ(FindMountPoint(output), std::nullopt);
  }
}

TEST(FindMountPointTest, FirstOfTheArraysAtTheTopWins) {
  EXPECT_THAT(FindMountPoint(Dictionary(
                  {{"z", Array({Mounted("/z1"), Mounted("/z2")})}, {"a", Array({Mounted("/a")})}})),
              Optional(std::string("/z1")));
}

TEST(FindMountPointTest, OtherValuesAtTheTopAreSkipped) {
  for (const PropertyListValue& value :
       {Of(Kind::kBoolean), Of(Kind::kInteger), Of(Kind::kReal), Of(Kind::kString), Of(Kind::kData),
        Of(Kind::kDate), Of(Kind::kOther), Mounted("/a")}) {
    EXPECT_THAT(FindMountPoint(Dictionary({{"a", value}, {"b", Array({Mounted("/b")})}})),
                Optional(std::string("/b")));
  }
}

TEST(FindMountPointTest, OtherElementsAreSkipped) {
  for (const PropertyListValue& element :
       {Of(Kind::kBoolean), Of(Kind::kInteger), Of(Kind::kString), Of(Kind::kData),
        Array({Mounted("/inner")}), Dictionary({{"Mount-Point", Text("/a")}}),
        Dictionary({{"inner", Mounted("/a")}}), Dictionary({{"mount-point", Of(Kind::kInteger)}}),
        Dictionary({{"mount-point", Of(Kind::kData)}}),
        Dictionary({{"mount-point", Array({Text("/a")})}}),
        Dictionary({{"mount-point", Mounted("/a")}})}) {
    EXPECT_THAT(FindMountPoint(WithElements({element, Mounted("/b")})),
                Optional(std::string("/b")));
  }
}

TEST(FindDeviceTest, IsATextAtTheTop) {
  EXPECT_THAT(FindDevice(Dictionary({{"system-entities", Array({Mounted("/a")})},
                                     {"dev-entry", Text("/dev/disk4")}})),
              Optional(std::string("/dev/disk4")));
  EXPECT_EQ(FindDevice(WithElements({Mounted("/a")})), std::nullopt);
  for (const PropertyListValue& value :
       {Of(Kind::kInteger), Of(Kind::kData), Array({Text("/dev/disk4")}), Mounted("/a")}) {
    EXPECT_EQ(FindDevice(Dictionary({{"dev-entry", value}})), std::nullopt);
  }
}

}  // namespace
}  // namespace install
