#ifndef PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_
#define PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/code_signing/status.h"
#include "platform/property_list.h"

namespace platform::code_signing {

/// A POSIX extended regular expression that is searched for. Compiling a hostile pattern and
/// matching with it cost bounded memory: patterns whose automaton would be large, and references
/// back, are refused.
class ResourcePattern {
 public:
  /// @return nothing for a pattern that is malformed or refused.
  static std::optional<ResourcePattern> Compile(const std::string& text);

  /// @return nothing when there was no memory for it.
  std::optional<bool> Matches(const std::string& path);

 private:
  struct Free {
    void operator()(regex_t* expression) const;
  };
  using Expression = std::unique_ptr<regex_t, Free>;

  static Expression CompileExpression(const std::string& text);

  std::string text_;
  std::size_t positions_ = 0;  ///< of the automaton
  std::size_t work_ = 0;       ///< since the expression was compiled
  Expression expression_;
};

/// What a rule says about the paths that it matches.
struct ResourceRule {
  std::uint32_t weight = 1;
  bool isOmitted = false;
  bool isNestedCode = false;
};

/// The rules of a CodeResources file: which files a seal covers.
class ResourceRules {
 public:
  /// @param rules the dictionary of the rules.
  /// @return kErrSecCSResourceRulesInvalid for rules that cannot be followed.
  OsStatus Load(const PropertyListValue& rules);

  /// Finds the rule for `path`: the heaviest that matches, the first of several such.
  /// @param rule receives null when none matches.
  OsStatus Find(const std::string& path, const ResourceRule*& rule);

 private:
  struct Entry {
    ResourcePattern pattern;
    ResourceRule rule;
  };

  std::vector<Entry> entries_;
};

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_RESOURCE_RULES_H_
