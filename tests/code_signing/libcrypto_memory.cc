#include "tests/code_signing/libcrypto_memory.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace platform::code_signing {
namespace {

std::mutex mutex;           ///< guards everything below
std::size_t countdown = 0;  ///< to the allocation that fails; 0 while all succeed
Failing failing = Failing::kOne;
bool hasFailed = false;
long living = 0;

/// Counts an allocation. @return false when it must fail.
bool Begin() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (countdown > 0 && --countdown == 0) {
    hasFailed = true;
    return false;
  }
  if (hasFailed && failing == Failing::kOneAndAllThatFollow) return false;
  ++living;
  return true;
}

void End(const void* memory) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (memory != nullptr) --living;
}

void* Allocate(std::size_t size, const char*, int) { return Begin() ? std::malloc(size) : nullptr; }

void Free(void* memory, const char*, int) {
  End(memory);
  std::free(memory);
}

// An allocation that grows counts as a new one.
void* Reallocate(void* memory, std::size_t size, const char*, int) {
  if (!Begin()) return nullptr;
  End(memory);
  return std::realloc(memory, size);
}

/// libcrypto accepts this only before its first allocation.
const bool isWatched = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

}  // namespace

long LiveLibcryptoAllocations() {
  OPENSSL_thread_stop();
  const std::lock_guard<std::mutex> lock(mutex);
  return living;
}

bool WithFailedAllocation(std::size_t number, Failing which, const std::function<void()>& act) {
  const auto arm = [which](std::size_t count) {
    const std::lock_guard<std::mutex> lock(mutex);
    countdown = count;
    failing = which;
    return std::exchange(hasFailed, false);
  };
  if (!isWatched) std::abort();
  arm(number);
  try {
    act();
  } catch (const std::bad_alloc&) {
  }
  ERR_clear_error();
  return arm(0);
}

void WithEachFailedAllocation(const std::function<void()>& act) {
  for (const Failing which : {Failing::kOne, Failing::kOneAndAllThatFollow}) {
    for (std::size_t number = 1; WithFailedAllocation(number, which, act);) ++number;
  }
}

}  // namespace platform::code_signing
