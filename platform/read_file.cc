#include <cerrno>

#include "platform/files.h"

namespace platform {

int ReadFile(const std::string& path, std::string& contents, std::size_t limit) {
  contents.clear();
  InputFile file;
  if (const int error = file.Open(path); error != 0) return error;
  char chunk[std::size_t{16} << 10];
  for (;;) {
    std::size_t count = 0;
    if (const int error = file.Read(chunk, sizeof chunk, count); error != 0) return error;
    if (count == 0) return 0;
    contents.append(chunk, count);
    if (contents.size() > limit) return EFBIG;
  }
}

}  // namespace platform
