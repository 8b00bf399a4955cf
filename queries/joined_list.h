#ifndef QUERIES_JOINED_LIST_H_
#define QUERIES_JOINED_LIST_H_

#include <string>
#include <string_view>

namespace queries {

/// Appends `entry` to a list whose entries are separated by single "|" characters. No separator is
/// added while the list is an empty string, even if it already has empty entries.
inline void AppendToList(std::string& list, std::string_view entry) {
  if (!list.empty()) list += '|';
  list += entry;
}

}  // namespace queries

#endif  // QUERIES_JOINED_LIST_H_
