#include "platform/linux/bundle_layout.h"

#include <strings.h>
#include <sys/stat.h>

#include <utility>

#include "platform/files.h"
#include "platform/linux/random_access_file.h"

namespace platform {
namespace {

constexpr std::uint64_t kMaxInformationSize = std::uint64_t{4} << 20;

struct LayoutPaths {
  const char* marker;  ///< the subdirectory that identifies the layout
  const char* resourceRoot;
  const char* informationDirectory;
  const char* executableDirectories[3];  ///< in order of preference; null when there are fewer
};

constexpr LayoutPaths kContents = {
    "Contents", "Contents", "Contents", {"Contents/MacOS", "Contents", ""}};
constexpr LayoutPaths kResources = {"Resources", "", "Resources", {"", nullptr, nullptr}};
constexpr LayoutPaths kSupportFiles = {
    "Support Files",
    "Support Files",
    "Support Files",
    {"Support Files/Executables/MacOS", "Support Files/Executables", ""}};
constexpr LayoutPaths kFlat = {nullptr, "", "", {"MacOS", "", nullptr}};

constexpr const LayoutPaths* kLayouts[] = {&kContents, &kResources, &kSupportFiles};
constexpr const LayoutPaths* kFrameworkLayouts[] = {&kResources, &kContents, &kSupportFiles};

/// `path` below `directory`; the directory itself for an empty path.
std::string Below(const std::string& directory, const std::string& path) {
  return path.empty() ? directory : JoinPath(directory, path);
}

/// Calls `visit` with each entry of `directory` until it returns true.
template <typename Visit>
void VisitEntries(const std::string& directory, const Visit& visit) {
  DirectoryReader reader;
  if (reader.Open(directory) != 0) return;
  while (const char* const name = reader.Next()) {
    if (visit(name)) return;
  }
}

bool IsDirectoryOrLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && (S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode));
}

/// @return the index in `layouts` of the layout whose marker has this name, or `count`.
template <std::size_t count>
std::size_t RankOfMarker(const LayoutPaths* const (&layouts)[count], const char* name) {
  std::size_t rank = 0;
  while (rank < count && strcasecmp(layouts[rank]->marker, name) != 0) ++rank;
  return rank;
}

template <std::size_t count>
const LayoutPaths& DetectLayout(const LayoutPaths* const (&layouts)[count],
                                const std::string& directory) {
  std::size_t best = count;
  VisitEntries(directory, [&](const char* name) {
    const std::size_t rank = RankOfMarker(layouts, name);
    if (rank < best && IsDirectoryOrLink(JoinPath(directory, name))) best = rank;
    return best == 0;
  });
  return best < count ? *layouts[best] : kFlat;
}

const LayoutPaths& LayoutOf(const std::string& directory) {
  return strcasecmp(PathExtension(directory).c_str(), "framework") == 0
             ? DetectLayout(kFrameworkLayouts, directory)
             : DetectLayout(kLayouts, directory);
}

std::optional<std::string> FindInformation(const std::string& directory) {
  std::optional<std::string> platformName;
  std::optional<std::string> name;
  VisitEntries(directory, [&](const char* entry) {
    if (strcasecmp(entry, "Info-macos.plist") == 0) platformName = entry;
    // Where case matters, the usual spelling wins.
    if (strcasecmp(entry, "Info.plist") == 0 && name != "Info.plist") name = entry;
    return platformName.has_value();
  });
  if (platformName) return JoinPath(directory, *platformName);
  if (name) return JoinPath(directory, *name);
  return std::nullopt;
}

std::string ExecutableName(const PropertyListValue& information, const std::string& directory) {
  const PropertyListValue* name = information.Find("CFBundleExecutable");
  if (name == nullptr) name = information.Find("NSExecutable");
  if (name != nullptr && name->kind == PropertyListValue::Kind::kString && !name->text.empty()) {
    return name->text;
  }
  std::string last = LastPathComponent(directory);
  if (const std::string extension = PathExtension(last); !extension.empty()) {
    last.resize(last.size() - extension.size() - 1);
  }
  return last;
}

}  // namespace

BundleLayout FindBundleLayout(const std::string& directory, PropertyListBudget& lists) {
  const LayoutPaths& paths = LayoutOf(directory);
  BundleLayout layout;
  layout.isFlat = &paths == &kFlat;
  layout.resourceRoot = Below(directory, paths.resourceRoot);
  layout.information.kind = PropertyListValue::Kind::kDictionary;
  layout.informationPath = FindInformation(Below(directory, paths.informationDirectory));
  if (layout.informationPath) {
    RandomAccessFile file;
    std::string bytes;
    if (file.Open(*layout.informationPath) == 0 && file.ReadAll(bytes, kMaxInformationSize) == 0) {
      auto information = ParsePropertyList(bytes, lists);
      layout.informationBytes = std::move(bytes);
      if (information && information->kind == PropertyListValue::Kind::kDictionary) {
        layout.information = std::move(*information);
      }
    }
  }
  const std::string name = ExecutableName(layout.information, directory);
  for (const char* const subdirectory : paths.executableDirectories) {
    if (subdirectory == nullptr || layout.executable) break;
    const std::string path = JoinPath(Below(directory, subdirectory), name);
    if (FileExists(path)) layout.executable = path;
  }
  return layout;
}

}  // namespace platform
