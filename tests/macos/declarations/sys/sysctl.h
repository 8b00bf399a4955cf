#ifndef TESTS_MACOS_DECLARATIONS_SYS_SYSCTL_H_
#define TESTS_MACOS_DECLARATIONS_SYS_SYSCTL_H_

#include <sys/types.h>

#include <cstddef>

#include "tests/macos/declarations/declare.h"

#ifdef KX_DECLARATIONS_MATCH
#include <type_traits>
static_assert(CTL_KERN == 1 && KERN_ARGMAX == 8 && KERN_PROC == 14 && KERN_PROC_ALL == 0 &&
                  KERN_PROCARGS2 == 49,
              "names of sysctl()");
static_assert(sizeof(kinfo_proc) == 648, "a record of the process table");
static_assert(std::is_same<decltype(kinfo_proc::kp_proc.p_pid), pid_t>::value, "p_pid");
static_assert(std::is_same<decltype(kinfo_proc::kp_proc.p_comm), char[17]>::value, "p_comm");
#else
KX_CONSTANT(int, CTL_KERN, 1);
KX_CONSTANT(int, KERN_ARGMAX, 8);
KX_CONSTANT(int, KERN_PROC, 14);
KX_CONSTANT(int, KERN_PROC_ALL, 0);
KX_CONSTANT(int, KERN_PROCARGS2, 49);

/// The two members that are used.
struct kinfo_proc {
  struct {
    pid_t p_pid;
    char p_comm[17];
  } kp_proc;
};
#endif

extern "C" int sysctl(int* name, unsigned length, void* oldValue, std::size_t* oldSize,
                      void* newValue, std::size_t newSize);

#endif  // TESTS_MACOS_DECLARATIONS_SYS_SYSCTL_H_
