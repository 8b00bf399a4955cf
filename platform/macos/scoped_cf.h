#ifndef PLATFORM_MACOS_SCOPED_CF_H_
#define PLATFORM_MACOS_SCOPED_CF_H_

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace platform {

/// Owner of one reference to a Core Foundation object, or of none. Takes over what a Create or Copy
/// function gives, directly or through a pointer; releases it when it goes. Moves only.
template <typename Reference>
class ScopedCf {
 public:
  ScopedCf() = default;
  explicit ScopedCf(Reference reference) : reference_(reference) {}
  ~ScopedCf() { Reset(); }
  ScopedCf(const ScopedCf&) = delete;
  ScopedCf& operator=(const ScopedCf&) = delete;
  ScopedCf(ScopedCf&& other) noexcept : reference_(other.Release()) {}
  ScopedCf& operator=(ScopedCf&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  Reference Get() const { return reference_; }
  explicit operator bool() const { return reference_ != nullptr; }

  /// @return the reference, which the caller owns from now on.
  Reference Release() { return std::exchange(reference_, nullptr); }

  /// Releases the reference and takes `reference` over.
  void Reset(Reference reference = nullptr) {
    const Reference previous = std::exchange(reference_, reference);
    if (previous != nullptr) CFRelease(previous);
  }

  /// Where a function that creates through a pointer puts its reference.
  Reference* Receive() {
    Reset();
    return &reference_;
  }

 private:
  Reference reference_ = nullptr;
};

}  // namespace platform

#endif  // PLATFORM_MACOS_SCOPED_CF_H_
