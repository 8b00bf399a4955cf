#ifndef SDK_JSON_LOOKUP_H_
#define SDK_JSON_LOOKUP_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "sdk/json_document.h"

/// Look-ups in JSON values of any shape. Whatever is absent or of another type than asked for is
/// answered with null or nothing; nothing else of the value is touched, and no assertion of the
/// JSON library can be reached. Answers live as long as the value. Names are compared exactly, by
/// length; of members with the same name the first one counts.

namespace sdk {

/// All bytes of a JSON string, NULs included.
inline std::string_view TextOf(const rapidjson::Value& string) {
  return {string.GetString(), string.GetStringLength()};
}

/// The member `name` of `value`; null when `value` is no object. Where the name is a constant, the
/// comparison takes a few instructions, which counts in answers with a hundred thousand members.
inline const rapidjson::Value* FindMember(const rapidjson::Value& value, std::string_view name) {
  if (!value.IsObject()) return nullptr;
  for (const rapidjson::Value::Member& member : value.GetObject()) {
    if (TextOf(member.name) == name) return &member.value;
  }
  return nullptr;
}

inline const rapidjson::Value* FindObject(const rapidjson::Value& value, std::string_view name) {
  const rapidjson::Value* const member = FindMember(value, name);
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

}  // namespace sdk

#endif  // SDK_JSON_LOOKUP_H_
