#include "platform/dynamic_library.h"

#include <dlfcn.h>

namespace platform {
namespace {

int Mode(Binding binding) { return binding == Binding::kNow ? RTLD_NOW : RTLD_LAZY | RTLD_GLOBAL; }

}  // namespace

void LibraryTraits::Close(Handle library) { dlclose(library); }

DynamicLibrary DynamicLibrary::Open(const std::string& path, Binding binding) {
  DynamicLibrary library;
  library.library_.Reset(dlopen(path.c_str(), Mode(binding)));
  return library;
}

void* DynamicLibrary::FindSymbol(const char* name) const { return dlsym(library_.Get(), name); }

}  // namespace platform
