#include "tests/support/allocation_failure.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace {

/// Allocations up to and including the one that fails; 0 while none is to fail.
thread_local std::size_t countdown = 0;
thread_local bool hasFailed = false;

}  // namespace

void* operator new(std::size_t size) {
  if (countdown > 0 && --countdown == 0) {
    hasFailed = true;
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace fake {

void AllocationFailure::Arm(std::size_t number) {
  hasFailed = false;
  countdown = number;
}

bool AllocationFailure::Disarm() {
  countdown = 0;
  return std::exchange(hasFailed, false);
}

AllocationFailure::Pause::Pause() : left_(std::exchange(countdown, 0)) {}

AllocationFailure::Pause::~Pause() { countdown = left_; }

}  // namespace fake
