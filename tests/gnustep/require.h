#ifndef TESTS_GNUSTEP_REQUIRE_H_
#define TESTS_GNUSTEP_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace gnustep {

/// Aborts when the tool breaks a rule of a framework.
inline void Require(bool condition, const char* rule) {
  if (condition) return;
  std::fprintf(stderr, "the tool broke a rule: %s\n", rule);
  std::abort();
}

}  // namespace gnustep

#endif  // TESTS_GNUSTEP_REQUIRE_H_
