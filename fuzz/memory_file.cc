#include "fuzz/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace fuzz {

MemoryFile::MemoryFile() : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
  if (descriptor_ < 0) std::abort();
  path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

MemoryFile::~MemoryFile() { close(descriptor_); }

void MemoryFile::Fill(const std::uint8_t* data, std::size_t size) {
  if (ftruncate(descriptor_, 0) != 0 ||
      pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
}

}  // namespace fuzz
