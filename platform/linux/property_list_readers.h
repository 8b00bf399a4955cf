#ifndef PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
#define PLATFORM_LINUX_PROPERTY_LIST_READERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/property_list.h"

namespace platform {

class PropertyListBudget;

/// How a binary property list begins.
constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

/// Arrays and dictionaries may be nested this deeply.
constexpr std::size_t kMaximumPropertyListDepth = 256;

/// Reads one kind of property list.
/// @return false when `bytes` is not such a list, is nested too deeply, or exceeds the budget;
///     `list` then holds a part of it.
bool ReadXmlPropertyList(std::string_view bytes, PropertyListBudget& budget,
                         PropertyListValue& list);
bool ReadBinaryPropertyList(std::string_view bytes, PropertyListBudget& budget,
                            PropertyListValue& list);

/// Appends a character in UTF-8.
/// @return false when it is zero, a surrogate, or beyond Unicode: such texts are refused.
bool AppendUtf8(std::uint32_t character, std::string& text);

/// Lets the last value of a repeated key take the place of the first.
void MergeRepeatedKeys(std::vector<PropertyListValue::Member>& members);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
