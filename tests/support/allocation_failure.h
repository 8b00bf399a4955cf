#ifndef TESTS_SUPPORT_ALLOCATION_FAILURE_H_
#define TESTS_SUPPORT_ALLOCATION_FAILURE_H_

#include <cstddef>

namespace fake {

/// Makes one allocation by `operator new`, which the test programs replace, fail with
/// std::bad_alloc.
class AllocationFailure {
 public:
  AllocationFailure() = default;
  ~AllocationFailure() { Disarm(); }
  AllocationFailure(const AllocationFailure&) = delete;
  AllocationFailure& operator=(const AllocationFailure&) = delete;

  /// Fails the `number`th (from 1) of the allocations that the calling thread makes from now on.
  static void Arm(std::size_t number);

  /// Lets all allocations succeed again. @return whether the armed one was reached and failed.
  static bool Disarm();

  /// While it exists, the calling thread's allocations succeed and do not count.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    std::size_t left_;  ///< of the countdown
  };
};

}  // namespace fake

#endif  // TESTS_SUPPORT_ALLOCATION_FAILURE_H_
