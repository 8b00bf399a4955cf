#include "tests/code_signing/libcrypto_memory.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace platform::code_signing {
namespace {

class Allocations {
 public:
  void Arm(std::size_t number, Failing failing) {
    const std::lock_guard<std::mutex> lock(mutex_);
    countdown_ = number;
    failing_ = failing;
  }

  /// @return whether the armed allocation was reached.
  bool Disarm() {
    const std::lock_guard<std::mutex> lock(mutex_);
    countdown_ = 0;
    return std::exchange(hasFailed_, false);
  }

  /// @return whether there may be another one, which then counts.
  bool Begin() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (hasFailed_ ? failing_ == Failing::kOneAndAllThatFollow : IsTheArmedOne()) {
      hasFailed_ = true;
      return false;
    }
    ++living_;
    return true;
  }

  void End() {
    const std::lock_guard<std::mutex> lock(mutex_);
    --living_;
  }

  long Living() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return living_;
  }

 private:
  bool IsTheArmedOne() { return countdown_ > 0 && --countdown_ == 0; }

  std::mutex mutex_;
  std::size_t countdown_ = 0;  ///< up to and with the one that fails; 0 while none is to fail
  Failing failing_ = Failing::kOne;
  bool hasFailed_ = false;
  long living_ = 0;
};

Allocations& TheAllocations() {
  static auto& allocations = *new Allocations;
  return allocations;
}

void* Allocate(std::size_t size, const char*, int) {
  return TheAllocations().Begin() ? std::malloc(size) : nullptr;
}

void Free(void* memory, const char*, int) {
  if (memory != nullptr) TheAllocations().End();
  std::free(memory);
}

// One that grows is one that begins anew.
void* Reallocate(void* memory, std::size_t size, const char*, int) {
  if (!TheAllocations().Begin()) return nullptr;
  if (memory != nullptr) TheAllocations().End();
  return std::realloc(memory, size);
}

}  // namespace

bool WatchLibcryptoMemory() { return CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1; }

long LivingLibcryptoAllocations() {
  OPENSSL_thread_stop();
  return TheAllocations().Living();
}

bool WithFailedAllocation(std::size_t number, Failing failing, const std::function<void()>& act) {
  TheAllocations().Arm(number, failing);
  try {
    act();
  } catch (const std::bad_alloc&) {
  }
  ERR_clear_error();
  return TheAllocations().Disarm();
}

void WithEachFailedAllocation(const std::function<void()>& act) {
  for (const Failing failing : {Failing::kOne, Failing::kOneAndAllThatFollow}) {
    for (std::size_t number = 1; WithFailedAllocation(number, failing, act);) ++number;
  }
}

}  // namespace platform::code_signing
