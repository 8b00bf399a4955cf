#ifndef PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_
#define PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_

#include <re2/re2.h>
#include <re2/set.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/code_signing/status.h"
#include "platform/property_list.h"

namespace platform::code_signing {

/// Compiles the patterns of rules, which are POSIX extended regular expressions. One object serves
/// all seals of a check. Seals with the same patterns share an automaton, and the number of
/// automata is limited, so that hostile rules cost limited time and memory.
class ResourcePatterns {
 public:
  using List = std::vector<std::string>;

  /// @return the automaton, owned by this object; null when a pattern is malformed or rejected, or
  ///     there are too many automata.
  const re2::RE2::Set* Compile(const List& patterns);

 private:
  std::map<List, std::unique_ptr<re2::RE2::Set>> compiled_;
};

/// The effect of a rule on the paths that it matches.
struct ResourceRule {
  std::uint32_t weight = 1;
  bool isOmitted = false;
  bool isNestedCode = false;
};

/// The rules of a CodeResources file: which files a seal covers.
class ResourceRules {
 public:
  /// @param rules the dictionary of the rules.
  /// @param patterns must outlive this object.
  /// @return kErrSecCSResourceRulesInvalid for rules that cannot be followed.
  OsStatus Load(const PropertyListValue& rules, ResourcePatterns& patterns);

  /// Finds the rule for `path`: of those that match, the first with the greatest weight.
  /// @param rule receives null when none matches.
  /// @return kErrSecCSResourceRulesInvalid when the automaton grows beyond its bound.
  OsStatus Find(const std::string& path, const ResourceRule*& rule) const;

 private:
  const re2::RE2::Set* patterns_ = nullptr;
  std::vector<ResourceRule> rules_;  ///< in the order of their patterns
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_
