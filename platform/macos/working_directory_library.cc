#include <unistd.h>

#include <climits>

#include "platform/dynamic_library.h"

namespace platform {

// The loader looks a bare name up itself, at last in the working directory; for a process under
// restrictions it leaves that place out.
DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  DynamicLibrary library = Open(name, binding);
  char directory[PATH_MAX];
  if (!library.IsOpen() && getcwd(directory, sizeof(directory)) != nullptr) {
    library = Open(std::string(directory) + '/' + name, binding);
  }
  return library;
}

}  // namespace platform
