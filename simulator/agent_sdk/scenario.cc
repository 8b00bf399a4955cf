#include "simulator/agent_sdk/scenario.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/istreamwrapper.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>
#include <utility>

#include "simulator/stand_in.h"

namespace simulator {
namespace {

template <typename Value>
using NamedValues = std::pair<std::string_view, Value>;

constexpr std::array<NamedValues<Moment>, 6> kMoments = {{
    {"duringRegister", Moment::kDuringRegister},
    {"insideRun", Moment::kInsideRun},
    {"duringRun", Moment::kDuringRun},
    {"afterRun", Moment::kAfterRun},
    {"duringUnregister", Moment::kDuringUnregister},
    {"afterUnregister", Moment::kAfterUnregister},
}};
constexpr std::array<NamedValues<Batch>, 4> kBatches = {{
    {"own", Batch::kOwn},
    {"previous", Batch::kPrevious},
    {"foreign", Batch::kForeign},
    {"none", Batch::kNone},
}};
constexpr std::array<NamedValues<Context>, 3> kContexts = {{
    {"own", Context::kOwn},
    {"foreign", Context::kForeign},
    {"none", Context::kNone},
}};

const rapidjson::Value& Member(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  if (member == object.MemberEnd()) Panic("the scenario lacks the member ", name);
  return member->value;
}

std::string Text(const rapidjson::Value& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

std::optional<std::string> OptionalText(const rapidjson::Value& value) {
  if (value.IsNull()) return std::nullopt;
  return Text(value);
}

template <typename Value, std::size_t Count>
Value Named(const std::array<NamedValues<Value>, Count>& values, const rapidjson::Value& name) {
  const std::string_view wanted(name.GetString(), name.GetStringLength());
  const auto found = std::find_if(values.begin(), values.end(),
                                  [wanted](const auto& value) { return value.first == wanted; });
  if (found == values.end()) Panic("the scenario has the unknown word ", name.GetString());
  return found->second;
}

Statuses ReadStatuses(const rapidjson::Value& list) {
  std::vector<int> values;
  for (const rapidjson::Value& status : list.GetArray()) values.push_back(status.GetInt());
  return Statuses(std::move(values));
}

Delivery ReadDelivery(const rapidjson::Value& object) {
  Delivery delivery;
  delivery.isEvent = object.HasMember("event");
  delivery.when = Named(kMoments, Member(object, "when"));
  delivery.delay = std::chrono::milliseconds(Member(object, "delay").GetInt64());
  delivery.repeat = Member(object, "repeat").GetUint();
  delivery.tryNumber = Member(object, "try").GetInt();
  delivery.padding = Member(object, "padding").GetUint();
  delivery.context = Named(kContexts, Member(object, "context"));
  if (delivery.isEvent) {
    delivery.name = OptionalText(Member(object, "event"));
    delivery.data = OptionalText(Member(object, "data"));
    return delivery;
  }
  delivery.method = Text(Member(object, "method"));
  delivery.batch = Named(kBatches, Member(object, "batch"));
  delivery.error = Member(object, "errorNumber").GetInt();
  delivery.result = OptionalText(Member(object, "result"));
  return delivery;
}

}  // namespace

int Statuses::Next() {
  const int status = values_[next_];
  if (next_ + 1 < values_.size()) ++next_;
  return status;
}

Scenario ReadScenario(const char* path) {
  std::ifstream file(path);
  if (!file) Panic("cannot read the scenario ", path);
  rapidjson::IStreamWrapper stream(file);
  rapidjson::Document document;
  document.ParseStream(stream);
  if (document.HasParseError()) {
    Panic("the scenario is not JSON: ", rapidjson::GetParseError_En(document.GetParseError()));
  }

  Scenario scenario;
  const rapidjson::Value& statuses = Member(document, "statuses");
  scenario.getInstance = ReadStatuses(Member(statuses, "getInstance"));
  scenario.registerCallbacks = ReadStatuses(Member(statuses, "register"));
  scenario.run = ReadStatuses(Member(statuses, "run"));
  scenario.unregisterCallbacks = ReadStatuses(Member(statuses, "unregister"));
  for (const rapidjson::Value& delivery : Member(document, "deliveries").GetArray()) {
    scenario.deliveries.push_back(ReadDelivery(delivery));
  }
  return scenario;
}

}  // namespace simulator
