#ifndef PLATFORM_PROPERTY_LIST_H_
#define PLATFORM_PROPERTY_LIST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

/// A value of a property list, XML or binary.
struct PropertyListValue {
  enum class Kind {
    kBoolean,
    kInteger,
    kReal,
    kString,
    kData,
    kDate,
    kArray,
    kDictionary,
    kOther,
  };
  using Member = std::pair<std::string, PropertyListValue>;

  Kind kind = Kind::kOther;
  bool boolean = false;
  std::int64_t integer = 0;
  double real = 0;
  std::string text;                         ///< of kString in UTF-8, of kData the bytes
  std::vector<PropertyListValue> elements;  ///< of kArray
  std::vector<Member> members;  ///< of kDictionary, in the list's order where it has one

  /// @return the member `key` of a dictionary, or null.
  const PropertyListValue* Find(const std::string& key) const;
};

/// Reads a property-list file.
/// @return its top dictionary; nothing when the file cannot be read, is not a property list, or has
///     something else at the top.
std::optional<PropertyListValue> ReadPropertyListDictionary(const std::string& path);

}  // namespace platform

#endif  // PLATFORM_PROPERTY_LIST_H_
