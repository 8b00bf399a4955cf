#include <filesystem>
#include <system_error>

#include "platform/dynamic_library.h"

// The vendor's libraries fill a std::string of the tool, so both must use the same ABI.
static_assert(_GLIBCXX_USE_CXX11_ABI == 1);

namespace platform {

// On Linux the loader never looks up a bare name in the working directory.
DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(name, error);
  return error ? DynamicLibrary() : Open(path, binding);
}

}  // namespace platform
