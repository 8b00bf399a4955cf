#ifndef PLATFORM_LINUX_PROPERTY_LIST_H_
#define PLATFORM_LINUX_PROPERTY_LIST_H_

#include <cstddef>
#include <optional>
#include <string>

#include "platform/property_list.h"

namespace platform {

/// The longest property list that is read, in bytes.
constexpr std::size_t kMaximumPropertyListSize = std::size_t{32} << 20;

/// Parses an XML or binary property list. Hostile input costs bounded memory, stack and time: see
/// property_list_readers.h for the bounds.
///
/// @return nothing when `bytes` is not a property list, or exceeds the bounds.
std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_H_
