#ifndef PLATFORM_LINUX_PROPERTY_LIST_H_
#define PLATFORM_LINUX_PROPERTY_LIST_H_

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list.h"

namespace platform {

/// The maximum size of a property list in bytes.
constexpr std::size_t kMaxPropertyListSize = std::size_t{16} << 20;

/// Limits the bytes of one or more lists plus the memory of the values read from them, and thus the
/// time they take, whether or not the values are still held. The limit is 32 MiB; a list of 20,000
/// sealed files takes about two thirds of it.
class PropertyListBudget {
 public:
  PropertyListBudget() = default;
  explicit PropertyListBudget(std::size_t bytes) : left_(bytes) {}

  /// Accounts for `size` bytes.
  /// @return false when fewer are left; every later call then fails, too.
  bool Take(std::size_t size) {
    isExceeded_ = isExceeded_ || size > left_;
    if (!isExceeded_) left_ -= size;
    return !isExceeded_;
  }

  /// @return false, without adding the item, when the budget does not cover its memory.
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

  /// Whether a request has exceeded the budget.
  bool IsExceeded() const { return isExceeded_; }

 private:
  std::size_t left_ = std::size_t{32} << 20;
  bool isExceeded_ = false;
};

/// Parses an XML or binary property list. Hostile input costs bounded memory, stack and time.
///
/// @return nothing when `bytes` is not a property list, is nested too deeply, or exceeds the
/// budget.
std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes,
                                                   PropertyListBudget& budget);

/// Parses a list with a separate budget.
std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_H_
