#ifndef PLATFORM_DYNAMIC_LIBRARY_H_
#define PLATFORM_DYNAMIC_LIBRARY_H_

#include <string>

namespace platform {

/// How a library's symbols are bound and who sees them (dlopen() modes).
enum class Binding {
  kNow,         ///< RTLD_NOW
  kLazyGlobal,  ///< RTLD_LAZY | RTLD_GLOBAL
};

/// Owner of one loaded library; unloads it when it goes. Moves only.
class DynamicLibrary {
 public:
  DynamicLibrary() = default;
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;
  DynamicLibrary(DynamicLibrary&& other) noexcept;
  DynamicLibrary& operator=(DynamicLibrary&& other) noexcept;

  /// Loads the library at `path`. @return an owner that is not open when loading fails.
  static DynamicLibrary Open(const std::string& path, Binding binding);

  /// Loads the library file `name` (no "/") of the working directory. Where the host's loader
  /// looks a bare name up itself, it is handed the bare name first.
  /// @return an owner that is not open when loading fails.
  static DynamicLibrary OpenFromWorkingDirectory(const std::string& name, Binding binding);

  bool IsOpen() const { return handle_ != nullptr; }

  /// @return the address of the exported `name`, or null; valid until Close(). Must be open.
  void* FindSymbol(const char* name) const;

  /// Unloads the library; does nothing when it is not open.
  void Close();

 private:
  void* handle_ = nullptr;
};

}  // namespace platform

#endif  // PLATFORM_DYNAMIC_LIBRARY_H_
