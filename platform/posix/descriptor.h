#ifndef PLATFORM_POSIX_DESCRIPTOR_H_
#define PLATFORM_POSIX_DESCRIPTOR_H_

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace platform {

/// Owner of a file descriptor; closes it when it goes. Moves only.
class Descriptor {
 public:
  static constexpr int kNone = -1;

  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  int Get() const { return number_; }
  bool IsOpen() const { return number_ >= 0; }

  /// @return the descriptor, which the caller owns from now on.
  int Release() { return std::exchange(number_, kNone); }

  /// Closes the descriptor and takes `number` over.
  void Reset(int number = kNone) {
    const int previous = std::exchange(number_, number);
    if (previous >= 0) close(previous);
  }

 private:
  int number_ = kNone;
};

/// openat() that no signal interrupts. @return an owner that is not open when it failed, with
/// errno.
inline Descriptor OpenAt(int directory, const std::string& path, int flags) {
  int number = openat(directory, path.c_str(), flags);
  while (number < 0 && errno == EINTR) number = openat(directory, path.c_str(), flags);
  return Descriptor(number);
}

}  // namespace platform

#endif  // PLATFORM_POSIX_DESCRIPTOR_H_
