#ifndef PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
#define PLATFORM_LINUX_PROPERTY_LIST_READERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/property_list.h"

namespace platform {

/// How a binary property list begins.
constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

/// Arrays and dictionaries may be nested this deeply.
constexpr std::size_t kMaximumPropertyListDepth = 256;

/// Reads one kind of property list.
/// @return false when `bytes` is not such a list, is nested too deeply, or needs too much memory;
///     `list` then holds a part of it.
bool ReadXmlPropertyList(std::string_view bytes, PropertyListValue& list);
bool ReadBinaryPropertyList(std::string_view bytes, PropertyListValue& list);

/// Bounds the memory of the values that are read, and so their number: a list of 20,000 sealed
/// files takes about half of it.
class PropertyListMemory {
 public:
  /// Accounts for a text or data.
  /// @return false when too much memory has been used.
  bool Take(std::size_t size) {
    if (size > left_) return false;
    left_ -= size;
    return true;
  }

  /// @return false, without adding the item, when too much memory has been used.
  template <typename Item>
  bool Add(std::vector<Item>& items, typename std::vector<Item>::value_type item) {
    const std::size_t capacity = items.capacity();
    if (items.size() == capacity) {
      const std::size_t larger = capacity + capacity / 4 + 1;
      if (!Take(larger * sizeof(Item))) return false;
      items.reserve(larger);
      left_ += capacity * sizeof(Item);
    }
    items.push_back(std::move(item));
    return true;
  }

 private:
  std::size_t left_ = std::size_t{28} << 20;
};

/// Appends a character in UTF-8.
/// @return false when it is zero, a surrogate, or beyond Unicode: such texts are refused.
bool AppendUtf8(std::uint32_t character, std::string& text);

/// Lets the last value of a repeated key take the place of the first.
void MergeRepeatedKeys(std::vector<PropertyListValue::Member>& members);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_READERS_H_
