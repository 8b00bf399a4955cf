#ifndef TESTS_GNUSTEP_REQUIRE_H_
#define TESTS_GNUSTEP_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace gnustep {

/// Ends the program where the tool does to a framework what it must not.
inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "the tool did not keep to this: %s\n", what);
  std::abort();
}

}  // namespace gnustep

#endif  // TESTS_GNUSTEP_REQUIRE_H_
