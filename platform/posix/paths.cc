#include "platform/posix/paths.h"

#include "platform/files.h"

namespace platform {
namespace {

constexpr char kSeparator = '/';

/// Length of `path` without the slashes at its end; a path of slashes keeps one.
std::size_t LengthWithoutTrailingSlashes(const std::string& path) {
  const std::size_t last = path.find_last_not_of(kSeparator);
  if (last != std::string::npos) return last + 1;
  return path.empty() ? 0 : 1;
}

/// Where the last component of `path`, which ends at `length`, begins.
std::size_t LastComponentStart(const std::string& path, std::size_t length) {
  if (length <= 1) return 0;
  const std::size_t slash = path.rfind(kSeparator, length - 1);
  return slash == std::string::npos ? 0 : slash + 1;
}

}  // namespace

std::string WithoutTrailingSlashes(const std::string& path) {
  return path.substr(0, LengthWithoutTrailingSlashes(path));
}

std::string WithTrailingSlash(const std::string& path) {
  const std::string item = WithoutTrailingSlashes(path);
  return item.back() == kSeparator ? item : item + kSeparator;
}

std::string LastPathComponent(const std::string& path) {
  const std::size_t length = LengthWithoutTrailingSlashes(path);
  const std::size_t start = LastComponentStart(path, length);
  return path.substr(start, length - start);
}

std::string PathExtension(const std::string& path) {
  const std::string component = LastPathComponent(path);
  const std::size_t dot = component.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  return component.substr(dot + 1);
}

std::string ParentPath(const std::string& path) {
  const std::size_t start = LastComponentStart(path, LengthWithoutTrailingSlashes(path));
  if (start == 0) return path.empty() || path.front() != kSeparator ? "" : "/";
  const std::string parent = path.substr(0, start);
  return WithoutTrailingSlashes(parent);
}

std::string JoinPath(const std::string& directory, const std::string& component) {
  if (directory.empty()) return component;
  std::string path = WithoutTrailingSlashes(directory);
  const std::size_t start = component.find_first_not_of(kSeparator);
  if (start == std::string::npos) return path;
  if (path.back() != kSeparator) path += kSeparator;
  return path.append(component, start, std::string::npos);
}

}  // namespace platform
