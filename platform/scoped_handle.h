#ifndef PLATFORM_SCOPED_HANDLE_H_
#define PLATFORM_SCOPED_HANDLE_H_

#include <utility>

namespace platform {

/// Owner of one handle of the host. Closes it on destruction. Move-only.
/// @tparam Traits has the type `Handle`, its invalid value `kNone`, and `Close(Handle)`.
template <typename Traits>
class ScopedHandle {
 public:
  using Handle = typename Traits::Handle;

  ScopedHandle() = default;
  explicit ScopedHandle(Handle handle) : handle_(handle) {}
  ~ScopedHandle() { Reset(); }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;
  ScopedHandle(ScopedHandle&& other) noexcept : handle_(other.Release()) {}
  ScopedHandle& operator=(ScopedHandle&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  Handle Get() const { return handle_; }
  bool IsOpen() const { return handle_ != Traits::kNone; }

  /// Hands the handle over to the caller, who then owns it.
  Handle Release() { return std::exchange(handle_, Traits::kNone); }

  /// Closes the handle and takes ownership of `handle`.
  void Reset(Handle handle = Traits::kNone) {
    const Handle previous = std::exchange(handle_, handle);
    if (previous != Traits::kNone) Traits::Close(previous);
  }

 private:
  Handle handle_ = Traits::kNone;
};

}  // namespace platform

#endif  // PLATFORM_SCOPED_HANDLE_H_
