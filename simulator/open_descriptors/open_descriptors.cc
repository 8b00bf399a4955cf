#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

/// Preloaded into the tool, appends what its descriptors above the standard ones lead to when it
/// exits, one a line, to the file that KX_DESCRIPTOR_RECORD names.
[[gnu::destructor]] void RecordOpenDescriptors() {
  const char* const path = std::getenv("KX_DESCRIPTOR_RECORD");
  DIR* const descriptors = opendir("/proc/self/fd");
  std::FILE* const record = path == nullptr ? nullptr : std::fopen(path, "a");
  if (descriptors == nullptr || record == nullptr) std::abort();
  while (const dirent* const entry = readdir(descriptors)) {
    const long number = std::strtol(entry->d_name, nullptr, 10);
    if (number <= STDERR_FILENO || number == dirfd(descriptors) || number == fileno(record)) {
      continue;
    }
    char target[4096];
    const ssize_t length =
        readlinkat(dirfd(descriptors), entry->d_name, target, sizeof(target) - 1);
    std::fprintf(record, "%ld %.*s\n", number, static_cast<int>(length < 0 ? 0 : length), target);
  }
  std::fclose(record);
  closedir(descriptors);
}

}  // namespace
