#include <filesystem>
#include <system_error>

#include "platform/dynamic_library.h"

// Libraries of the maker fill a std::string of the tool's: both must mean the same type by it.
static_assert(_GLIBCXX_USE_CXX11_ABI == 1);

namespace platform {

// The loader never looks a bare name up in the working directory here.
DynamicLibrary DynamicLibrary::OpenFromWorkingDirectory(const std::string& name, Binding binding) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(name, error);
  return error ? DynamicLibrary() : Open(path, binding);
}

}  // namespace platform
