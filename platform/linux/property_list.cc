#include "platform/linux/property_list.h"

#include <algorithm>
#include <numeric>

#include "platform/files.h"
#include "platform/linux/property_list_readers.h"

namespace platform {

bool AppendUtf8(std::uint32_t character, std::string& text) {
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  if (character == 0 || isSurrogate || character > 0x10FFFF) return false;
  if (character < 0x80) {
    text += static_cast<char>(character);
    return true;
  }
  unsigned more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  text += static_cast<char>(0xFF80U >> more | character >> 6 * more);
  while (more-- > 0) text += static_cast<char>(0x80 | (character >> 6 * more & 0x3F));
  return true;
}

void MergeRepeatedKeys(std::vector<PropertyListValue::Member>& members) {
  std::vector<std::size_t> byKey(members.size());
  std::iota(byKey.begin(), byKey.end(), std::size_t{0});
  std::stable_sort(byKey.begin(), byKey.end(), [&](std::size_t a, std::size_t b) {
    return members[a].first < members[b].first;
  });
  std::vector<bool> isRepeated(members.size());
  for (std::size_t i = byKey.size(); i-- > 1;) {
    PropertyListValue::Member& earlier = members[byKey[i - 1]];
    PropertyListValue::Member& later = members[byKey[i]];
    isRepeated[byKey[i]] = earlier.first == later.first;
    if (isRepeated[byKey[i]]) earlier.second = std::move(later.second);
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (!isRepeated[i]) std::swap(members[kept++], members[i]);
  }
  members.resize(kept);
}

std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes,
                                                   PropertyListBudget& budget) {
  if (bytes.size() > kMaxPropertyListSize || !budget.Take(bytes.size())) return std::nullopt;
  PropertyListValue list;
  const bool isBinary =
      bytes.compare(0, kBinaryPropertyListMagic.size(), kBinaryPropertyListMagic) == 0;
  if (!(isBinary ? ReadBinaryPropertyList(bytes, budget, list)
                 : ReadXmlPropertyList(bytes, budget, list))) {
    return std::nullopt;
  }
  return list;
}

std::optional<PropertyListValue> ParsePropertyList(const std::string& bytes) {
  PropertyListBudget budget;
  return ParsePropertyList(bytes, budget);
}

std::optional<PropertyListValue> ReadPropertyListDictionary(const std::string& path) {
  std::string contents;
  if (ReadFile(path, contents, kMaxPropertyListSize) != 0) return std::nullopt;
  std::optional<PropertyListValue> list = ParsePropertyList(contents);
  if (!list || list->kind != PropertyListValue::Kind::kDictionary) return std::nullopt;
  return list;
}

}  // namespace platform
