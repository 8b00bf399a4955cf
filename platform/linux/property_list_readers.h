#ifndef PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
#define PLATFORM_LINUX_PROPERTY_LIST_READERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/property_list.h"

namespace platform {

/// The first bytes of a binary property list.
constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

/// The maximum nesting of arrays and dictionaries.
constexpr std::size_t kMaxPropertyListDepth = 256;

/// Reads one kind of property list.
/// @return false when `bytes` is not such a list, is nested too deeply, or exceeds the budget;
///     `list` is then incomplete.
bool ReadXmlPropertyList(std::string_view bytes, PropertyListBudget& budget,
                         PropertyListValue& list);
bool ReadBinaryPropertyList(std::string_view bytes, PropertyListBudget& budget,
                            PropertyListValue& list);

/// Appends a character in UTF-8.
/// @return false when it is zero, a surrogate or not Unicode, which makes the text invalid.
bool AppendUtf8(std::uint32_t character, std::string& text);

/// Replaces the first value of a repeated key with the last.
void MergeRepeatedKeys(std::vector<PropertyListValue::Member>& members);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
