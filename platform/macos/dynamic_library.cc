#include "platform/dynamic_library.h"

#include <unistd.h>

#include <climits>

namespace platform {

// The loader searches for a bare name itself, last in the working directory. It skips that
// directory for a restricted process.
DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  DynamicLibrary library = Open(name, binding);
  char directory[PATH_MAX];
  if (!library.IsOpen() && getcwd(directory, sizeof(directory)) != nullptr) {
    library = Open(std::string(directory) + '/' + name, binding);
  }
  return library;
}

}  // namespace platform
