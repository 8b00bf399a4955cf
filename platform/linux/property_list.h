#ifndef PLATFORM_LINUX_PROPERTY_LIST_H_
#define PLATFORM_LINUX_PROPERTY_LIST_H_

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list.h"

namespace platform {

/// The longest property list that is read, in bytes.
constexpr std::size_t kMaximumPropertyListSize = std::size_t{16} << 20;

/// Bounds the bytes of one or several lists together with the memory of the values read from them,
/// and so the time that they take, whether or not the values are still held: 40 MiB, of which a
/// list of 20,000 sealed files takes somewhat more than half.
class PropertyListBudget {
 public:
  /// Accounts for `size` bytes.
  /// @return false when they are not left. Nothing is left from then on.
  bool Take(std::size_t size) {
    isExceeded_ = isExceeded_ || size > left_;
    if (!isExceeded_) left_ -= size;
    return !isExceeded_;
  }

  /// @return false, without adding the item, when its memory is not left.
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

  /// Whether more was asked for than there was.
  bool IsExceeded() const { return isExceeded_; }

 private:
  std::size_t left_ = std::size_t{40} << 20;
  bool isExceeded_ = false;
};

/// Parses an XML or binary property list. Hostile input costs bounded memory, stack and time.
///
/// @return nothing when `bytes` is not a property list, is nested too deeply, or exceeds the
/// budget.
std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes,
                                                   PropertyListBudget& budget);

/// Parses a list with a budget of its own.
std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_H_
