#import <Foundation/Foundation.h>

#include <cstring>

#include "platform/macos/foundation_text.h"
#include "platform/property_list.h"

namespace platform {
namespace {

using Kind = PropertyListValue::Kind;

PropertyListValue Convert(id value);

PropertyListValue ConvertNumber(NSNumber* number) {
  PropertyListValue result;
  // Booleans are numbers of a separate class.
  if ([number isKindOfClass:[[NSNumber numberWithBool:YES] class]]) {
    result.kind = Kind::kBoolean;
    result.boolean = [number boolValue];
  } else if (std::strchr("fd", [number objCType][0]) != nullptr) {
    result.kind = Kind::kReal;
    result.real = [number doubleValue];
  } else {
    result.kind = Kind::kInteger;
    result.integer = [number longLongValue];
  }
  return result;
}

PropertyListValue ConvertArray(NSArray* array) {
  PropertyListValue result;
  result.kind = Kind::kArray;
  for (id element in array) result.elements.push_back(Convert(element));
  return result;
}

PropertyListValue ConvertDictionary(NSDictionary* dictionary) {
  PropertyListValue result;
  result.kind = Kind::kDictionary;
  for (NSString* key in dictionary) {
    result.members.emplace_back(FromNsString(key), Convert([dictionary objectForKey:key]));
  }
  return result;
}

PropertyListValue Convert(id value) {
  if ([value isKindOfClass:[NSDictionary class]]) return ConvertDictionary(value);
  if ([value isKindOfClass:[NSArray class]]) return ConvertArray(value);
  if ([value isKindOfClass:[NSNumber class]]) return ConvertNumber(value);
  PropertyListValue result;
  if ([value isKindOfClass:[NSString class]]) {
    result.kind = Kind::kString;
    result.text = FromNsString(value);
  } else if ([value isKindOfClass:[NSData class]]) {
    result.kind = Kind::kData;
    result.text.assign(static_cast<const char*>([value bytes]), [value length]);
  } else if ([value isKindOfClass:[NSDate class]]) {
    result.kind = Kind::kDate;
  }
  return result;
}

}  // namespace

std::optional<PropertyListValue> ReadPropertyListDictionary(const std::string& path) {
  @autoreleasepool {
    NSString* const pathNs = ToNsString(path);
    if ([pathNs length] == 0) return std::nullopt;
    NSDictionary* const dictionary = [NSDictionary dictionaryWithContentsOfFile:pathNs];
    if (dictionary == nil) return std::nullopt;
    return ConvertDictionary(dictionary);
  }
}

}  // namespace platform
