#ifndef PLATFORM_DYNAMIC_LIBRARY_H_
#define PLATFORM_DYNAMIC_LIBRARY_H_

#include <string>

#include "platform/scoped_handle.h"

namespace platform {

/// How a library's symbols are bound and who sees them (dlopen() modes).
enum class Binding {
  kNow,         ///< RTLD_NOW
  kLazyGlobal,  ///< RTLD_LAZY | RTLD_GLOBAL
};

struct LibraryTraits {
  using Handle = void*;
  static constexpr Handle kNone = nullptr;
  static void Close(Handle library);
};

/// Owner of one loaded library. Move-only.
class DynamicLibrary {
 public:
  /// Loads the library at `path`. @return an owner that is not open when loading fails.
  static DynamicLibrary Open(const std::string& path, Binding binding);

  /// Loads the library file `name` (no "/") of the working directory. Where the host's loader
  /// searches for a bare name itself, it gets the bare name first.
  /// @return an owner that is not open when loading fails.
  static DynamicLibrary OpenFromWorkingDirectory(const std::string& name, Binding binding);

  bool IsOpen() const { return library_.IsOpen(); }

  /// @return the address of the exported `name`, or null; valid until Close(). Must be open.
  void* FindSymbol(const char* name) const;

  /// Unloads the library; does nothing when it is not open.
  void Close() { library_.Reset(); }

 private:
  ScopedHandle<LibraryTraits> library_;
};

}  // namespace platform

#endif  // PLATFORM_DYNAMIC_LIBRARY_H_
