#ifndef PLATFORM_POSIX_DESCRIPTOR_H_
#define PLATFORM_POSIX_DESCRIPTOR_H_

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/scoped_handle.h"

namespace platform {

struct DescriptorTraits {
  using Handle = int;
  static constexpr Handle kNone = -1;
  static void Close(Handle descriptor) { close(descriptor); }
};

using Descriptor = ScopedHandle<DescriptorTraits>;

/// openat(), repeated when a signal interrupts it.
/// @param mode of a file that is created
/// @return an owner that is not open, with errno set, when opening failed.
inline Descriptor OpenAt(int directory, const std::string& path, int flags, mode_t mode = 0) {
  int number = openat(directory, path.c_str(), flags, mode);
  while (number < 0 && errno == EINTR) number = openat(directory, path.c_str(), flags, mode);
  return Descriptor(number);
}

}  // namespace platform

#endif  // PLATFORM_POSIX_DESCRIPTOR_H_
