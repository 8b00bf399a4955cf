#ifndef TESTS_MACOS_DECLARATIONS_DECLARE_H_
#define TESTS_MACOS_DECLARATIONS_DECLARE_H_

// The declarations beside this file let the macOS adapters be compiled without the macOS SDK.
// If an SDK is available, declarations_match.mm includes both, and each difference is a compile
// error.

#ifdef KX_DECLARATIONS_MATCH
#define KX_CONSTANT(type, name, value) \
  static_assert(static_cast<type>(name) == static_cast<type>(value), #name)
#else
#define KX_CONSTANT(type, name, value) inline constexpr type name = value
#endif

#endif  // TESTS_MACOS_DECLARATIONS_DECLARE_H_
