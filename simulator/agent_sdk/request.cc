#include "simulator/agent_sdk/request.h"

#include <rapidjson/document.h>

namespace simulator {

std::string MethodOf(const char* requestJson) {
  rapidjson::Document request;
  request.Parse(requestJson);
  if (request.HasParseError() || !request.IsObject()) return "";
  const auto data = request.FindMember("data");
  if (data == request.MemberEnd() || !data->value.IsObject()) return "";
  if (data->value.MemberCount() != 1) return "";
  const auto operations = data->value.MemberBegin();
  if (!operations->value.IsArray() || operations->value.Size() != 1) return "";
  const rapidjson::Value& operation = operations->value[0];
  if (!operation.IsObject()) return "";
  const auto name = operation.FindMember("@name");
  const auto input = operation.FindMember("input");
  if (name == operation.MemberEnd() || !name->value.IsString()) return "";
  if (input == operation.MemberEnd() || !input->value.IsObject()) return "";
  return std::string(operations->name.GetString()) + "." + name->value.GetString();
}

}  // namespace simulator
