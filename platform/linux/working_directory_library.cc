#include "platform/dynamic_library.h"

namespace platform {

// The loader never looks a bare name up in the working directory here; a path with a slash is
// opened as it stands.
DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  return Open("./" + name, binding);
}

}  // namespace platform
