#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/linux/property_list.h"
#include "platform/linux/property_list_readers.h"

namespace platform {
namespace {

using Kind = PropertyListValue::Kind;
using Member = PropertyListValue::Member;

constexpr std::string_view kWhiteSpace = " \t\r\n";

constexpr std::pair<std::string_view, char> kReferences[] = {
    {"amp", '&'}, {"apos", '\''}, {"gt", '>'}, {"lt", '<'}, {"quot", '"'}};

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

/// Converts the whole of `text`.
template <typename Number>
bool ConvertNumber(std::string_view text, Number& number, int base) {
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, number, base);
  return result.ec == std::errc() && result.ptr == end;
}

std::string_view Trim(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  return text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
}

/// Reads a decimal or hexadecimal number. A number above the maximum of the signed type becomes
/// negative.
bool ReadInteger(std::string_view text, std::int64_t& integer) {
  const bool isNegative = StartsWith(text, "-");
  if (isNegative || StartsWith(text, "+")) text.remove_prefix(1);
  const bool isHexadecimal = StartsWith(text, "0x") || StartsWith(text, "0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  if (!ConvertNumber(text, magnitude, isHexadecimal ? 16 : 10)) return false;
  constexpr std::uint64_t kMaxNegative = std::uint64_t{1} << 63;
  if (isNegative && magnitude > kMaxNegative) return false;
  integer = static_cast<std::int64_t>(isNegative ? -magnitude : magnitude);
  return true;
}

bool ReadReal(const std::string& text, double& real) {
  char* end = nullptr;
  real = std::strtod(text.c_str(), &end);
  return end != text.c_str() && Trim(end).empty();
}

/// Decodes Base64, skipping white space.
bool DecodeBase64(std::string_view encoded, std::string& bytes) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::uint32_t bits = 0;
  unsigned count = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : encoded) {
    if (kWhiteSpace.find(c) != kWhiteSpace.npos) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == kAlphabet.npos || padding != 0) return false;
    ++digits;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count);
  }
  return padding <= 2 && (digits + padding) % 4 == 0;
}

/// Appends the text between two tags and resolves its character references.
bool AppendText(std::string_view source, std::string& text) {
  for (;;) {
    const std::size_t reference = source.find('&');
    text += source.substr(0, reference);
    if (reference == source.npos) return true;
    source.remove_prefix(reference + 1);
    const std::size_t length = source.find(';');
    if (length == source.npos) return false;
    const std::string_view name = source.substr(0, length);
    source.remove_prefix(length + 1);
    std::uint32_t character = 0;
    if (StartsWith(name, "#x") || StartsWith(name, "#X")) {
      if (!ConvertNumber(name.substr(2), character, 16)) return false;
    } else if (StartsWith(name, "#")) {
      if (!ConvertNumber(name.substr(1), character, 10)) return false;
    } else {
      for (const auto& [known, value] : kReferences) {
        if (name == known) character = static_cast<unsigned char>(value);
      }
    }
    if (!AppendUtf8(character, text)) return false;
  }
}

class XmlReader {
 public:
  XmlReader(std::string_view bytes, PropertyListBudget& budget) : rest_(bytes), budget_(budget) {}

  /// Reads the value, inside a "plist" element or not. Ignores what follows.
  bool Read(PropertyListValue& list) {
    Tag tag;
    if (!ReadTag(tag)) return false;
    if (tag.name != "plist") return ReadValue(tag, list);
    return !tag.isEmpty && ReadTag(tag) && ReadValue(tag, list) && ReadTag(tag) &&
           tag.name == "/plist";
  }

 private:
  struct Tag {
    std::string_view name;  ///< of an end tag, with its slash
    bool isEmpty = false;
  };

  /// Moves past `end`, searching from `from`.
  bool SkipPast(std::string_view end, std::size_t from) {
    const std::size_t found = rest_.find(end, from);
    if (found == rest_.npos) return false;
    rest_.remove_prefix(found + end.size());
    return true;
  }

  /// Reads the text between angle brackets. Quoted parts may hold any character. Rejects
  /// declarations inside a document type.
  bool ReadMarkup(std::string_view& markup) {
    if (!StartsWith(rest_, "<")) return false;
    std::size_t end = rest_.find_first_of("\"<>[", 1);
    while (end != rest_.npos && rest_[end] == '"') {
      end = rest_.find_first_of("\"<>[", std::min(rest_.find('"', end + 1), rest_.size() - 1) + 1);
    }
    if (end == rest_.npos || rest_[end] != '>') return false;
    markup = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    return !markup.empty();
  }

  /// Reads the next tag. Only white space and comments may come before it.
  bool ReadTag(Tag& tag) {
    for (;;) {
      rest_.remove_prefix(std::min(rest_.find_first_not_of(kWhiteSpace), rest_.size()));
      if (StartsWith(rest_, "<!--")) {
        if (!SkipPast("-->", 4)) return false;
        continue;
      }
      std::string_view markup;
      if (!ReadMarkup(markup)) return false;
      if (StartsWith(markup, "!DOCTYPE")) continue;
      if (StartsWith(markup, "?")) {
        if (markup.back() != '?') return false;
        continue;
      }
      tag.isEmpty = markup.back() == '/';
      if (tag.isEmpty) markup.remove_suffix(1);
      tag.name = markup.substr(0, markup.find_first_of(kWhiteSpace));
      return true;
    }
  }

  bool ReadValue(const Tag& tag, PropertyListValue& value) {
    const bool isDictionary = tag.name == "dict";
    if (!isDictionary && tag.name != "array") return ReadScalar(tag, value);
    value.kind = isDictionary ? Kind::kDictionary : Kind::kArray;
    if (tag.isEmpty) return true;
    if (++depth_ > kMaxPropertyListDepth) return false;
    if (!(isDictionary ? ReadMembers(value.members) : ReadElements(value.elements))) return false;
    --depth_;
    return true;
  }

  bool ReadElements(std::vector<PropertyListValue>& elements) {
    for (;;) {
      Tag tag;
      PropertyListValue value;
      if (!ReadTag(tag)) return false;
      if (tag.name == "/array") return true;
      if (!ReadValue(tag, value) || !budget_.Add(elements, std::move(value))) return false;
    }
  }

  bool ReadMembers(std::vector<Member>& members) {
    for (;;) {
      Tag tag;
      Member member;
      if (!ReadTag(tag)) return false;
      if (tag.name == "/dict") break;
      if (tag.name != "key" || !ReadText(tag, member.first) || !ReadTag(tag) ||
          !ReadValue(tag, member.second) || !budget_.Add(members, std::move(member))) {
        return false;
      }
    }
    MergeRepeatedKeys(members);
    return true;
  }

  bool ReadScalar(const Tag& tag, PropertyListValue& value) {
    std::string text;
    if (!ReadText(tag, text)) return false;
    if (tag.name == "true" || tag.name == "false") {
      value.kind = Kind::kBoolean;
      value.boolean = tag.name == "true";
      return true;
    }
    if (tag.name == "string" || tag.name == "key") {
      value.kind = Kind::kString;
      value.text = std::move(text);
      return true;
    }
    if (tag.name == "data") {
      value.kind = Kind::kData;
      return DecodeBase64(text, value.text);
    }
    if (tag.name == "integer") {
      value.kind = Kind::kInteger;
      return ReadInteger(Trim(text), value.integer);
    }
    if (tag.name == "real") {
      value.kind = Kind::kReal;
      return ReadReal(text, value.real);
    }
    value.kind = Kind::kDate;
    return tag.name == "date";
  }

  /// Reads the text between a tag and its end tag. Only comments may be nested in it.
  bool ReadText(const Tag& tag, std::string& text) {
    if (tag.isEmpty) return true;
    for (;;) {
      const std::size_t length = rest_.find('<');
      if (length == rest_.npos || !budget_.Take(length) ||
          !AppendText(rest_.substr(0, length), text)) {
        return false;
      }
      rest_.remove_prefix(length);
      constexpr std::string_view kCdata = "<![CDATA[";
      if (StartsWith(rest_, "</")) break;
      if (StartsWith(rest_, kCdata)) {
        const std::size_t end = rest_.find("]]>");
        if (end == rest_.npos || !budget_.Take(end)) return false;
        text += rest_.substr(kCdata.size(), end - kCdata.size());
        rest_.remove_prefix(end + 3);
      } else if (!StartsWith(rest_, "<!--") || !SkipPast("-->", 4)) {
        return false;
      }
    }
    Tag end;
    return text.find('\0') == text.npos && ReadTag(end) && StartsWith(end.name, "/") &&
           end.name.substr(1) == tag.name;
  }

  std::string_view rest_;
  PropertyListBudget& budget_;
  std::size_t depth_ = 0;
};

}  // namespace

bool ReadXmlPropertyList(std::string_view bytes, PropertyListBudget& budget,
                         PropertyListValue& list) {
  return XmlReader(bytes, budget).Read(list);
}

}  // namespace platform
