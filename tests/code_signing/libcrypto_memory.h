#ifndef TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_
#define TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_

#include <cstddef>
#include <functional>

namespace platform::code_signing {

/// Counts libcrypto's allocations from now on. To be called before libcrypto makes its first one.
/// @return whether it was.
bool WatchLibcryptoMemory();

/// The allocations of libcrypto's that were not given back. Drops what it keeps for the calling
/// thread, such as the queue of errors.
long LivingLibcryptoAllocations();

enum class Failing { kOne, kOneAndAllThatFollow };

/// Calls `act` while the `number`th (from 1) of libcrypto's allocations fails, in whatever thread.
/// @return whether `act` came that far.
bool WithFailedAllocation(std::size_t number, Failing which, const std::function<void()>& act);

/// Calls `act` for each allocation that it comes to, which then fails, alone and with all that
/// follow. What it throws of the type std::bad_alloc is caught.
void WithEachFailedAllocation(const std::function<void()>& act);

}  // namespace platform::code_signing

#endif  // TESTS_CODE_SIGNING_LIBCRYPTO_MEMORY_H_
