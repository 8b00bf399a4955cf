#ifndef PLATFORM_MACOS_SCOPED_CF_H_
#define PLATFORM_MACOS_SCOPED_CF_H_

#include <CoreFoundation/CoreFoundation.h>

namespace platform {

/// Owner of one reference to a Core Foundation object, or of none. Takes over the result of a
/// Create or Copy function, returned or stored through a pointer, and releases it on destruction.
template <typename Reference>
class ScopedCf {
 public:
  ScopedCf() = default;
  explicit ScopedCf(Reference reference) : reference_(reference) {}
  ~ScopedCf() {
    if (reference_ != nullptr) CFRelease(reference_);
  }
  ScopedCf(const ScopedCf&) = delete;
  ScopedCf& operator=(const ScopedCf&) = delete;

  Reference Get() const { return reference_; }
  explicit operator bool() const { return reference_ != nullptr; }

  /// Returns the address at which a Create function stores its reference. Call it once, on an empty
  /// owner.
  Reference* Receive() { return &reference_; }

 private:
  Reference reference_ = nullptr;
};

}  // namespace platform

#endif  // PLATFORM_MACOS_SCOPED_CF_H_
