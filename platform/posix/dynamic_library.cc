#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include <utility>

namespace platform {
namespace {

int Mode(Binding binding) { return binding == Binding::kNow ? RTLD_NOW : RTLD_LAZY | RTLD_GLOBAL; }

}  // namespace

DynamicLibrary::~DynamicLibrary() { Close(); }

DynamicLibrary::DynamicLibrary(DynamicLibrary&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)) {}

DynamicLibrary& DynamicLibrary::operator=(DynamicLibrary&& other) noexcept {
  std::swap(handle_, other.handle_);
  return *this;
}

DynamicLibrary DynamicLibrary::Open(const std::string& path, Binding binding) {
  DynamicLibrary library;
  library.handle_ = dlopen(path.c_str(), Mode(binding));
  return library;
}

void* DynamicLibrary::FindSymbol(const char* name) const { return dlsym(handle_, name); }

void DynamicLibrary::Close() {
  if (handle_ != nullptr) dlclose(std::exchange(handle_, nullptr));
}

}  // namespace platform
