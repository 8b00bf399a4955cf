#ifndef TESTS_MACOS_DECLARATIONS_SYS_STAT_H_
#define TESTS_MACOS_DECLARATIONS_SYS_STAT_H_

// Adds to the system's own header.
#pragma GCC system_header

#ifdef KX_DECLARATIONS_MATCH
#include <type_traits>
static_assert(std::is_same<decltype(stat::st_mtimespec), timespec>::value, "st_mtimespec");
#else
#include_next <sys/stat.h>
// The member's name on macOS.
#define st_mtimespec st_mtim
#endif

#endif  // TESTS_MACOS_DECLARATIONS_SYS_STAT_H_
