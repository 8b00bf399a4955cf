// Compares the walks of all status queries with a second implementation, which knows nothing of
// the JSON library, over thousands of generated outputs.

#include <algorithm>
#include <cstdint>
#include <random>
#include <string_view>

#include "tests/support/query_test.h"

namespace queries {
namespace {

using fake::Lines;

/// A JSON value as it was generated.
struct Json {
  enum class Kind { kNull, kTrue, kFalse, kNumber, kString, kArray, kObject };

  Kind kind = Kind::kNull;
  std::string text = {};  ///< of a string; of a number the literal
  std::vector<Json> elements = {};
  std::vector<std::pair<std::string, Json>> members = {};
};

/// Makes product-status outputs: mostly of the right shape, wrong at any place now and then.
class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed) {}

  Json Output() {
    Json output = Object();
    if (Often()) Add(output, "Locations", Maybe(Locations()));
    if (Often()) Add(output, "Alerts", Maybe(Alerts()));
    if (Often()) Add(output, "Features", Maybe(Features()));
    if (Often()) Add(output, "LastUpdateTime", Maybe(Number()));
    Disturb(output);
    return output;
  }

  /// A location to ask for, often one that is there.
  std::string LocationName() {
    return OneOf({"Product", "ctc", "locA", "locB", "two words", "a|b", "", "é漢"});
  }

  /// JSON text of `json`, spelled one way or the other.
  std::string Spell(const Json& json) {
    switch (json.kind) {
      case Json::Kind::kNull:
        return "null";
      case Json::Kind::kTrue:
        return "true";
      case Json::Kind::kFalse:
        return "false";
      case Json::Kind::kNumber:
        return json.text;
      case Json::Kind::kString:
        return SpellString(json.text);
      case Json::Kind::kArray: {
        std::string text;
        for (const Json& element : json.elements) {
          text += (text.empty() ? "" : ",") + Blanks() + Spell(element) + Blanks();
        }
        return "[" + text + "]";
      }
      case Json::Kind::kObject: {
        std::string text;
        for (const auto& [name, value] : json.members) {
          text += (text.empty() ? "" : ",") + Blanks() + SpellString(name) + Blanks() + ":" +
                  Blanks() + Spell(value) + Blanks();
        }
        return "{" + text + "}";
      }
    }
    return "";
  }

 private:
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  bool Often() { return Below(8) != 0; }
  bool Rarely() { return Below(12) == 0; }

  std::string OneOf(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }

  static Json Object() { return {Json::Kind::kObject}; }

  /// Adds a member, now and then twice.
  void Add(Json& object, const std::string& name, Json value) {
    if (Rarely()) object.members.emplace_back(name, Any(2));
    object.members.emplace_back(name, std::move(value));
    if (Rarely()) object.members.emplace_back(name, Any(2));
  }

  /// Adds members of no meaning, and changes the order.
  void Disturb(Json& object) {
    if (Rarely()) Add(object, AnyName(), Any(2));
    std::shuffle(object.members.begin(), object.members.end(), random_);
  }

  /// `value`, or something else in its place.
  Json Maybe(Json value) { return Rarely() ? Any(2) : std::move(value); }

  Json Any(int depth) {
    switch (Below(depth > 0 ? 8 : 5)) {
      case 0:
        return {Json::Kind::kNull};
      case 1:
        return {Json::Kind::kTrue};
      case 2:
        return {Json::Kind::kFalse};
      case 3:
        return Number();
      case 4:
        return Text(AnyName());
      case 5: {
        Json array = {Json::Kind::kArray};
        for (std::size_t count = Below(4); count > 0; --count) {
          array.elements.push_back(Any(depth - 1));
        }
        return array;
      }
      default: {
        Json object = Object();
        for (std::size_t count = Below(4); count > 0; --count) {
          object.members.emplace_back(AnyName(), Any(depth - 1));
        }
        return object;
      }
    }
  }

  std::string AnyName() {
    using std::string_literals::operator""s;
    return OneOf({"Product",   "ctc",
                  "locA",      "locB",
                  "two words", "a|b",
                  "c=d",       "\"",
                  "\\",        "é漢",
                  "😀",         "",
                  "nul\0nul"s, "line\nline",
                  "update",    "error",
                  "time",      "lastSucceededTime",
                  "severity",  "critical",
                  "id",        "isFunctioning",
                  "enabled",   "Version",
                  "Locations", "Alerts",
                  "Features",  "LastUpdateTime",
                  "true",      "0"});
  }

  static Json Text(const std::string& text) { return {Json::Kind::kString, text}; }

  Json Number() {
    if (Below(3) == 0) return {Json::Kind::kNumber, std::to_string(1699827199 + Below(4))};
    return {Json::Kind::kNumber, OneOf({"0",
                                        "-0",
                                        "1",
                                        "-1",
                                        "5",
                                        "-2003",
                                        "2003",
                                        "-2002",
                                        "1700000000",
                                        "1699827200",
                                        "1699827199",
                                        "1700000001",
                                        "2147483647",
                                        "2147483648",
                                        "-2147483648",
                                        "-2147483649",
                                        "4294967295",
                                        "4294967296",
                                        "4294965293",
                                        "3000000000",
                                        "9223372036854775807",
                                        "9223372036854775808",
                                        "-9223372036854775808",
                                        "-9223372036854775809",
                                        "18446744073709551615",
                                        "18446744073709551616",
                                        "0.0",
                                        "-2003.0",
                                        "5.0",
                                        "0.5",
                                        "1e3",
                                        "1E-3",
                                        "-1e+2",
                                        "1e300",
                                        "0e0"})};
  }

  Json Error() {
    return Below(2) == 0 ? Json{Json::Kind::kNumber, OneOf({"0", "-2003"})} : Number();
  }

  Json Locations() {
    Json locations = Object();
    for (std::size_t count = Below(5); count > 0; --count) {
      Json update = Object();
      if (Often()) Add(update, "error", Maybe(Error()));
      if (Often()) Add(update, "time", Maybe(Number()));
      if (Often()) Add(update, "lastSucceededTime", Maybe(Number()));
      Disturb(update);
      Json location = Object();
      if (Often()) Add(location, "update", Maybe(update));
      if (Often()) Add(location, "Version", Maybe(Text(AnyName())));
      Disturb(location);
      Add(locations, Often() ? LocationName() : AnyName(), Maybe(location));
    }
    return locations;
  }

  Json Alerts() {
    Json alerts = Object();
    for (std::size_t count = Below(5); count > 0; --count) {
      Json alert = Object();
      if (Often()) {
        Add(alert, "severity",
            Maybe(Text(OneOf({"critical", "Critical", "CRITICAL", "criticaL", "critical ",
                              " critical", "warning", "", "critica"}))));
      }
      Disturb(alert);
      Add(alerts, AnyName(), Maybe(alert));
    }
    return alerts;
  }

  Json Features() {
    Json features = {Json::Kind::kArray};
    for (std::size_t count = Below(5); count > 0; --count) {
      Json feature = Object();
      if (Often()) Add(feature, "id", Maybe(Text(AnyName())));
      if (Below(2) == 0) Add(feature, "isFunctioning", Maybe(Boolean()));
      if (Often()) Add(feature, "enabled", Maybe(Boolean()));
      Disturb(feature);
      features.elements.push_back(Maybe(feature));
    }
    return features;
  }

  Json Boolean() { return {Below(2) == 0 ? Json::Kind::kTrue : Json::Kind::kFalse}; }

  std::string Blanks() { return Rarely() ? OneOf({" ", "\t", "\r\n", "  "}) : ""; }

  std::string SpellString(const std::string& text) {
    std::string spelled = "\"";
    for (const char character : text) {
      const auto byte = static_cast<unsigned char>(character);
      if (byte < 0x20 || (byte < 0x80 && Below(20) == 0)) {
        constexpr char kDigits[] = "0123456789abcdef";
        spelled += "\\u00";
        spelled += kDigits[byte / 16];
        spelled += kDigits[byte % 16];
      } else {
        if (character == '"' || character == '\\') spelled += '\\';
        spelled += character;
      }
    }
    return spelled + "\"";
  }

  std::mt19937_64 random_;
};

/// What a query should come to.
struct Expected {
  int code = 0;
  std::string result = {};
  Lines lines = {};
};

const Json* Member(const Json* json, const std::string& name) {
  if (json == nullptr || json->kind != Json::Kind::kObject) return nullptr;
  for (const auto& member : json->members) {
    if (member.first == name) return &member.second;
  }
  return nullptr;
}

bool Is(const Json* json, Json::Kind kind) { return json != nullptr && json->kind == kind; }
bool IsObject(const Json* json) { return Is(json, Json::Kind::kObject); }

/// Whether `json` is a number without fraction or exponent, from -`lowest` to `highest`, which are
/// digits.
bool IsInteger(const Json* json, const std::string& lowest, const std::string& highest,
               std::int64_t& value) {
  if (!Is(json, Json::Kind::kNumber)) return false;
  const bool isNegative = json->text.front() == '-';
  const std::string digits = json->text.substr(isNegative ? 1 : 0);
  if (digits.find_first_not_of("0123456789") != std::string::npos) return false;
  const std::string& limit = isNegative ? lowest : highest;
  if (digits.size() > limit.size() || (digits.size() == limit.size() && digits > limit)) {
    return false;
  }
  value = std::stoll(json->text);
  return true;
}

bool Is32Bit(const Json* json, std::int64_t& value) {
  return IsInteger(json, "2147483648", "2147483647", value);
}

bool Is64Bit(const Json* json, std::int64_t& value) {
  return IsInteger(json, "9223372036854775808", "9223372036854775807", value);
}

std::string Join(const Lines& entries) {
  std::string joined;
  for (const std::string& entry : entries) {
    if (joined != "") joined = joined + "|";
    joined = joined + entry;
  }
  return joined;
}

Expected ExpectedUpdateErrors(const Json& output, const std::string&) {
  Expected expected;
  expected.lines = {"Checking for \"Locations\" field"};
  const Json* const locations = Member(&output, "Locations");
  if (!IsObject(locations)) return expected;
  Lines entries;
  for (const auto& [name, location] : locations->members) {
    std::int64_t error = 0;
    if (!Is32Bit(Member(Member(&location, "update"), "error"), error) || error == 0) continue;
    entries.push_back(name + "=" + std::to_string(error));
    expected.lines.push_back("Found an error: " + entries.back());
  }
  expected.result = Join(entries);
  return expected;
}

Expected ExpectedUpdateStatus(const Json& output, const std::string& name) {
  const Json* const locations = Member(&output, "Locations");
  if (!IsObject(locations)) return {0, "", {}};
  const Json* const location = Member(locations, name);
  if (!IsObject(location)) {
    return {22, "", {"Invalid JSON. Cannot find \" " + name + "\" field"}};
  }
  const Json* const update = Member(location, "update");
  if (!IsObject(update)) return {0, "", {}};
  Expected expected;
  std::int64_t number = 0;
  if (Is32Bit(Member(update, "error"), number)) {
    expected.result += std::to_string(number);
  } else {
    expected.lines.push_back("Invalid JSON. Cannot find \"error\" field");
  }
  for (const std::string field : {"time", "lastSucceededTime"}) {
    if (Is64Bit(Member(update, field), number)) {
      expected.result += "|" + std::to_string(number);
    } else {
      expected.lines.push_back("Invalid JSON. Cannot find \"" + field + "\" field");
    }
  }
  expected.code = expected.lines.empty() ? 0 : 3;
  return expected;
}

Expected ExpectedUpToDate(const Json& output, const std::string&) {
  const Json* const locations = Member(&output, "Locations");
  if (!IsObject(locations)) return {0, "1", {}};
  for (const auto& [name, location] : locations->members) {
    if (name == "Product" || name == "ctc") continue;
    const Json* const error = Member(Member(&location, "update"), "error");
    const Json* const time = Member(Member(&location, "update"), "lastSucceededTime");
    if (error == nullptr || time == nullptr) continue;
    std::int64_t number = 0;
    const bool hasFailed = Is32Bit(error, number) && number != 0 && number != -2003;
    const bool isStale = Is64Bit(time, number) && number < 1700000000 - 172800;
    if (hasFailed || isStale) return {0, "0", {"Product is not up to date"}};
  }
  return {0, "1", {}};
}

Expected ExpectedUpdateLocations(const Json& output, const std::string& before) {
  const Json* const locations = Member(&output, "Locations");
  if (!IsObject(locations)) return {0, before, {}};
  Expected expected;
  Lines names;
  for (const auto& member : locations->members) {
    names.push_back(member.first);
    expected.lines.push_back("Location found: " + member.first);
  }
  expected.result = Join(names);
  return expected;
}

Expected ExpectedLastUpdate(const Json& output, const std::string& before) {
  std::int64_t number = 0;
  if (!Is64Bit(Member(&output, "LastUpdateTime"), number)) return {0, before, {}};
  const std::string value = std::to_string(number);
  return {0, value, {"Last update time found with value: " + value}};
}

Expected ExpectedCriticalIssues(const Json& output, const std::string& before) {
  const Json* const alerts = Member(&output, "Alerts");
  if (!IsObject(alerts)) return {0, before, {}};
  Expected expected;
  Lines names;
  for (const auto& [name, alert] : alerts->members) {
    const Json* const severity = Member(&alert, "severity");
    if (!Is(severity, Json::Kind::kString)) continue;
    std::string lower;
    for (const char letter : severity->text) {
      lower += letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter | 0x20) : letter;
    }
    if (lower != "critical") continue;
    names.push_back(name);
    expected.lines.push_back("Critical issue found: " + name);
  }
  expected.result = Join(names);
  return expected;
}

Expected ExpectedProductVersion(const Json& output, const std::string& before) {
  const Json* const version = Member(Member(Member(&output, "Locations"), "Product"), "Version");
  if (!Is(version, Json::Kind::kString)) return {0, before, {}};
  return {0, version->text, {"Found product version: " + version->text}};
}

Expected ExpectedFeatureStatus(const Json& output, const std::string& before) {
  const Json* const features = Member(&output, "Features");
  if (!Is(features, Json::Kind::kArray) || features->elements.empty()) return {0, before, {}};
  Expected expected;
  Lines entries;
  for (const Json& feature : features->elements) {
    const Json* const id = Member(&feature, "id");
    if (!Is(id, Json::Kind::kString)) continue;
    const Json* const functioning = Member(&feature, "isFunctioning");
    std::string verdict;
    if (functioning != nullptr) {
      verdict = functioning->kind == Json::Kind::kTrue ? "1" : "0";
      expected.lines.push_back("Feature with id= " + id->text + " is functioning: " + verdict);
    } else {
      verdict = Is(Member(&feature, "enabled"), Json::Kind::kTrue) ? "1" : "0";
      if (verdict == "0") expected.lines.push_back("Feature " + id->text + " is not enabled");
    }
    entries.push_back(id->text + "=" + verdict);
  }
  expected.result = Join(entries);
  return expected;
}

class WalksPropertyTest : public fake::QueryTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Seeds, WalksPropertyTest, testing::Range(1, 9));

TEST_P(WalksPropertyTest, AgreeWithASlowObviousImplementation) {
  constexpr int kOutputs = 500 / KX_SLOWDOWN;
  const auto seed = static_cast<std::uint64_t>(GetParam());
  Generator generator(seed);
  for (int number = 0; number < kOutputs && !HasFailure(); ++number) {
    const Json output = generator.Output();
    const std::string text = generator.Spell(output);
    const std::string location = generator.LocationName();
    SCOPED_TRACE("seed " + std::to_string(seed) + ", output " + std::to_string(number) +
                 ", location \"" + location + "\": " + text);
    const auto expect = [&](const fake::Query& query, const Expected& expected) {
      ExpectWalk(query, text, expected.code, expected.result, expected.lines);
    };
    expect(fake::UpdateErrors(), ExpectedUpdateErrors(output, kBefore));
    expect(fake::UpdateStatus(location), ExpectedUpdateStatus(output, location));
    expect(fake::IsUpToDate(), ExpectedUpToDate(output, kBefore));
    expect(fake::UpdateLocations(), ExpectedUpdateLocations(output, kBefore));
    expect(fake::LastUpdate(), ExpectedLastUpdate(output, kBefore));
    expect(fake::CriticalIssues(), ExpectedCriticalIssues(output, kBefore));
    expect(fake::ProductVersion(), ExpectedProductVersion(output, kBefore));
    expect(fake::FeatureStatus(), ExpectedFeatureStatus(output, kBefore));
  }
}

}  // namespace
}  // namespace queries
