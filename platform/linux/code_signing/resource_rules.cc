#include "platform/linux/code_signing/resource_rules.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

namespace platform::code_signing {
namespace {

using Kind = PropertyListValue::Kind;

// Signing tools write the same rules, 400 characters in all, for every bundle of an application;
// their automaton takes less than 64 KiB. Compiling hostile rules takes at most 20 ms of processor
// time and 10 MiB, filling an automaton at most 50 ms.
constexpr std::size_t kMaxAutomata = 8;
constexpr std::int64_t kMaxAutomatonSize = std::int64_t{128} << 10;
constexpr std::size_t kMaxTextOfPatterns = std::size_t{4} << 10;

/// Counts how often RE2 discarded the states of an automaton to make room for others.
thread_local std::size_t discardedStates = 0;

re2::RE2::Options PatternOptions() {
  re2::RE2::Options options(re2::RE2::POSIX);
  options.set_encoding(re2::RE2::Options::EncodingLatin1);  // bytes
  options.set_log_errors(false);
  options.set_max_mem(kMaxAutomatonSize);
  options.set_never_capture(true);
  options.set_dot_nl(true);
  options.set_one_line(true);
  return options;
}

/// Whether a pattern means the same to RE2 as to POSIX, if RE2 accepts it: no escaped letters or
/// digits, no escapes, collating symbols or equivalence classes in brackets, and no braces except
/// counts of up to two digits.
bool IsCommonSyntax(const std::string& pattern) {
  static const re2::RE2 kCommon(
      R"(([^\\[{]|\\[^0-9A-Za-z]|\{[0-9]{1,2}(,[0-9]{0,2})?\}|\[\^?\]?([^\\[\]]|\[:[a-z]+:\])*\])*)",
      PatternOptions());
  return re2::RE2::FullMatch(pattern, kCommon);
}

std::unique_ptr<re2::RE2::Set> CompileSet(const ResourcePatterns::List& patterns) {
  re2::hooks::SetDFAStateCacheResetHook(
      [](const re2::hooks::DFAStateCacheReset&) { ++discardedStates; });
  auto set = std::make_unique<re2::RE2::Set>(PatternOptions(), re2::RE2::UNANCHORED);
  std::size_t length = 0;
  for (const std::string& pattern : patterns) {
    length += pattern.size();
    if (length > kMaxTextOfPatterns || !IsCommonSyntax(pattern) || set->Add(pattern, nullptr) < 0) {
      return nullptr;
    }
  }
  return set->Compile() ? std::move(set) : nullptr;
}

/// Reads a member of a rule, which must be a boolean if present.
bool ReadFlag(const PropertyListValue& rule, const char* key, bool& flag) {
  const PropertyListValue* const value = rule.Find(key);
  if (value == nullptr) return true;
  flag = value->boolean;
  return value->kind == Kind::kBoolean;
}

bool ReadWeight(const PropertyListValue& rule, std::uint32_t& weight) {
  const PropertyListValue* const value = rule.Find("weight");
  if (value == nullptr) return true;
  if (value->kind == Kind::kInteger) {
    weight = static_cast<std::uint32_t>(value->integer);
    return true;
  }
  if (value->kind != Kind::kReal) return false;
  constexpr double kMax = std::numeric_limits<std::uint32_t>::max();
  const bool fits = value->real >= 0 && value->real <= kMax;
  weight = fits ? static_cast<std::uint32_t>(value->real) : 0;
  return true;
}

bool ReadRule(const PropertyListValue& value, ResourceRule& rule) {
  if (value.kind == Kind::kBoolean) {
    rule.isOmitted = !value.boolean;
    return true;
  }
  bool isOptional = false;  // matters only to signing tools
  return value.kind == Kind::kDictionary && ReadWeight(value, rule.weight) &&
         ReadFlag(value, "omit", rule.isOmitted) && ReadFlag(value, "optional", isOptional) &&
         ReadFlag(value, "nested", rule.isNestedCode);
}

}  // namespace

const re2::RE2::Set* ResourcePatterns::Compile(const List& patterns) {
  const auto known = compiled_.find(patterns);
  if (known != compiled_.end()) return known->second.get();
  if (compiled_.size() == kMaxAutomata) return nullptr;
  return compiled_.emplace(patterns, CompileSet(patterns)).first->second.get();
}

OsStatus ResourceRules::Load(const PropertyListValue& rules, ResourcePatterns& patterns) {
  rules_.clear();
  ResourcePatterns::List list;
  for (const PropertyListValue::Member& member : rules.members) {
    ResourceRule rule;
    if (!ReadRule(member.second, rule)) return kErrSecCSResourceRulesInvalid;
    rules_.push_back(rule);
    list.push_back(member.first);
  }
  patterns_ = patterns.Compile(list);
  return patterns_ != nullptr ? kErrSecSuccess : kErrSecCSResourceRulesInvalid;
}

OsStatus ResourceRules::Find(const std::string& path, const ResourceRule*& rule) const {
  rule = nullptr;
  std::vector<int> matching;
  re2::RE2::Set::ErrorInfo error = {re2::RE2::Set::kNoError};
  discardedStates = 0;
  patterns_->Match(path, &matching, &error);
  if (error.kind != re2::RE2::Set::kNoError || discardedStates != 0) {
    return kErrSecCSResourceRulesInvalid;
  }
  std::sort(matching.begin(), matching.end());
  for (const int index : matching) {
    const ResourceRule& candidate = rules_[static_cast<std::size_t>(index)];
    if (rule == nullptr || candidate.weight > rule->weight) rule = &candidate;
  }
  return kErrSecSuccess;
}

}  // namespace platform::code_signing
