#ifndef JSON_LOOKUP_H_
#define JSON_LOOKUP_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "json/document.h"

/// Look-ups in JSON values of any shape. What is absent, or is not of the requested type, yields
/// null or nothing, and no assertion in the JSON library can be triggered. Results live as long as
/// the value. Names are compared byte by byte, with NULs; of members with the same name the
/// first one counts.

namespace json {

/// All bytes of a JSON string, NULs included.
inline std::string_view TextOf(const rapidjson::Value& string) {
  return {string.GetString(), string.GetStringLength()};
}

/// Returns the member `name` of `value`, which is const if `value` is; null when `value` is not an
/// object. Comparing with a constant name takes a few instructions, which matters in answers with
/// a hundred thousand members.
template <typename Value>
auto FindMember(Value& value, std::string_view name) -> decltype(&value.MemberBegin()->value) {
  if (!value.IsObject()) return nullptr;
  for (auto& member : value.GetObject()) {
    if (TextOf(member.name) == name) return &member.value;
  }
  return nullptr;
}

template <typename Value>
auto FindObject(Value& value, std::string_view name) {
  const auto member = FindMember(value, name);
  return member != nullptr && member->IsObject() ? member : nullptr;
}

inline std::optional<std::string_view> FindText(const rapidjson::Value& value,
                                                std::string_view name) {
  const rapidjson::Value* const member = FindMember(value, name);
  if (member == nullptr || !member->IsString()) return std::nullopt;
  return TextOf(*member);
}

inline std::optional<std::int32_t> FindInt32(const rapidjson::Value& value, std::string_view name) {
  const rapidjson::Value* const member = FindMember(value, name);
  if (member == nullptr || !member->IsInt()) return std::nullopt;
  return member->GetInt();
}

inline std::optional<std::int64_t> FindInt64(const rapidjson::Value& value, std::string_view name) {
  const rapidjson::Value* const member = FindMember(value, name);
  if (member == nullptr || !member->IsInt64()) return std::nullopt;
  return member->GetInt64();
}

}  // namespace json

#endif  // JSON_LOOKUP_H_
