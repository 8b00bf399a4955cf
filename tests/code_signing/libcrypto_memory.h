#ifndef TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_
#define TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_

#include <cstddef>
#include <functional>

namespace platform::code_signing {

// A program that links this counts libcrypto's allocations from its start.

/// Returns the number of allocations that libcrypto has not released. Drops what it keeps for the
/// calling thread, such as the queue of errors.
long LiveLibcryptoAllocations();

enum class Failing { kOne, kOneAndAllThatFollow };

/// Calls `act` and fails libcrypto's `number`th allocation (from 1) in any thread. Catches
/// std::bad_alloc.
/// @return whether `act` reached that allocation.
bool WithFailedAllocation(std::size_t number, Failing which, const std::function<void()>& act);

/// Calls WithFailedAllocation() for each allocation that `act` reaches, once for each value of
/// Failing.
void WithEachFailedAllocation(const std::function<void()>& act);

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_
