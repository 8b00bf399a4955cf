#include "platform/linux/code_signing/resource_rules.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace platform::code_signing {
namespace {

using Kind = PropertyListValue::Kind;

constexpr std::size_t kMaximumRules = 256;
constexpr std::size_t kMaximumPatternLength = 1024;
constexpr std::size_t kMaximumPositions = 512;
constexpr std::size_t kMaximumRepetitions = 2;

// glibc keeps each state of the automaton that it meets; they go when it is compiled anew.
constexpr std::size_t kMaximumWork = std::size_t{4} << 20;
constexpr std::size_t kWorkOfState = 128;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Counts the positions of the automaton that glibc makes from a pattern: repeated parts are
/// copied, so nested repetitions multiply. Few of them one in the other keep glibc busy for
/// minutes.
class PatternSize {
 public:
  explicit PatternSize(const std::string& pattern) : pattern_(pattern) {}

  /// @return nothing for a pattern that is too large, too deeply repeated, or refers back.
  std::optional<std::size_t> Measure() {
    std::vector<Part> outer;
    Part group;
    for (position_ = 0; position_ < pattern_.size(); ++position_) {
      const char c = pattern_[position_];
      if (c == '(') {
        outer.push_back(group);
        group = {};
        continue;
      }
      Part part = {1, 0};
      if (c == ')' && !outer.empty()) {
        part = {group.positions + 1, group.repetitions};
        group = outer.back();
        outer.pop_back();
      } else if (c == '[') {
        SkipBracket();
      } else if (c == '\\' && IsDigit(Peek(++position_))) {
        return std::nullopt;
      }
      Repeat(part);
      group.positions += part.positions;
      group.repetitions = std::max(group.repetitions, part.repetitions);
      if (group.positions > kMaximumPositions || group.repetitions > kMaximumRepetitions) {
        return std::nullopt;
      }
    }
    for (const Part& part : outer) group.positions += part.positions;
    return group.positions;
  }

 private:
  struct Part {
    std::size_t positions = 0;
    std::size_t repetitions = 0;  ///< how many are one in the other
  };

  char Peek(std::size_t position) const {
    return position < pattern_.size() ? pattern_[position] : '\0';
  }

  void SkipBracket() {
    std::size_t first = position_ + 1;
    if (Peek(first) == '^') ++first;
    position_ = std::min(pattern_.find(']', first + 1), pattern_.size());
  }

  /// Applies the repetitions that follow a part to it.
  void Repeat(Part& part) {
    for (; part.positions <= kMaximumPositions; ++position_) {
      const char next = Peek(position_ + 1);
      if (next == '{') {
        part.positions *= LargestCount() + 1;
        position_ = std::min(pattern_.find('}', position_ + 1), pattern_.size()) - 1;
      } else if (next == '+') {
        part.positions *= 2;
      } else if (next != '*' && next != '?') {
        return;
      }
      ++part.repetitions;
    }
  }

  /// @return the largest number between the braces that open at the next position.
  std::size_t LargestCount() const {
    std::size_t largest = 0;
    std::size_t count = 0;
    for (std::size_t i = position_ + 2; IsDigit(Peek(i)) || Peek(i) == ','; ++i) {
      count = Peek(i) == ',' ? 0 : count * 10 + static_cast<std::size_t>(Peek(i) - '0');
      largest = std::max(largest, count);
      if (largest > kMaximumPositions) break;
    }
    return largest;
  }

  const std::string& pattern_;
  std::size_t position_ = 0;
};

/// Reads a member of a rule that must be a boolean where there is one.
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
  constexpr double kMaximum = std::numeric_limits<std::uint32_t>::max();
  const bool fits = value->real >= 0 && value->real <= kMaximum;
  weight = fits ? static_cast<std::uint32_t>(value->real) : 0;
  return value->kind == Kind::kReal;
}

bool ReadRule(const PropertyListValue& value, ResourceRule& rule) {
  if (value.kind == Kind::kBoolean) {
    rule.isOmitted = !value.boolean;
    return true;
  }
  bool isOptional = false;  // of interest to signing tools only
  return value.kind == Kind::kDictionary && ReadWeight(value, rule.weight) &&
         ReadFlag(value, "omit", rule.isOmitted) && ReadFlag(value, "optional", isOptional) &&
         ReadFlag(value, "nested", rule.isNestedCode);
}

}  // namespace

void ResourcePattern::Free::operator()(regex_t* expression) const {
  regfree(expression);
  delete expression;
}

ResourcePattern::Expression ResourcePattern::CompileExpression(const std::string& text) {
  auto expression = std::make_unique<regex_t>();
  if (regcomp(expression.get(), text.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return nullptr;
  return Expression(expression.release());
}

std::optional<ResourcePattern> ResourcePattern::Compile(const std::string& text) {
  if (text.size() > kMaximumPatternLength) return std::nullopt;
  const std::optional<std::size_t> positions = PatternSize(text).Measure();
  if (!positions) return std::nullopt;
  ResourcePattern pattern;
  pattern.text_ = text;
  pattern.positions_ = *positions;
  pattern.expression_ = CompileExpression(text);
  if (pattern.expression_ == nullptr) return std::nullopt;
  return pattern;
}

std::optional<bool> ResourcePattern::Matches(const std::string& path) {
  work_ += path.size() * (positions_ + kWorkOfState);
  if (work_ > kMaximumWork) {
    work_ = 0;
    expression_ = CompileExpression(text_);
    if (expression_ == nullptr) return std::nullopt;
  }
  switch (regexec(expression_.get(), path.c_str(), 0, nullptr, 0)) {
    case 0:
      return true;
    case REG_NOMATCH:
      return false;
    default:
      return std::nullopt;
  }
}

OsStatus ResourceRules::Load(const PropertyListValue& rules) {
  entries_.clear();
  if (rules.members.size() > kMaximumRules) return kErrSecCSResourceRulesInvalid;
  for (const PropertyListValue::Member& member : rules.members) {
    ResourceRule rule;
    std::optional<ResourcePattern> pattern = ResourcePattern::Compile(member.first);
    if (!pattern || !ReadRule(member.second, rule)) return kErrSecCSResourceRulesInvalid;
    entries_.push_back({std::move(*pattern), rule});
  }
  return kErrSecSuccess;
}

OsStatus ResourceRules::Find(const std::string& path, const ResourceRule*& rule) {
  rule = nullptr;
  for (Entry& entry : entries_) {
    const std::optional<bool> matches = entry.pattern.Matches(path);
    if (!matches) return kErrSecCSResourceRulesInvalid;
    if (*matches && (rule == nullptr || entry.rule.weight > rule->weight)) rule = &entry.rule;
  }
  return kErrSecSuccess;
}

}  // namespace platform::code_signing
