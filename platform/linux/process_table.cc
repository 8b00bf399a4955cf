#include "platform/process_table.h"

#include <unistd.h>

#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>

#include "platform/files.h"

namespace platform {
namespace {

/// The kernel appends this to the path of a deleted file.
constexpr std::string_view kDeletedMark = " (deleted)";

std::string PathInTable(int processId, const char* name) {
  return "/proc/" + std::to_string(processId) + '/' + name;
}

/// @return the process id in `name`, or 0.
int ParseProcessId(std::string_view name) {
  int processId = 0;
  const char* const end = name.data() + name.size();
  const auto [next, error] = std::from_chars(name.data(), end, processId);
  return error == std::errc() && next == end && processId > 0 ? processId : 0;
}

}  // namespace

// Short names are read on demand because few callers need them.
ProcessRecord::ProcessRecord(int processId, const char*) : processId_(processId), shortName_() {}

std::string ProcessRecord::ShortName() const {
  InputFile file;
  char name[sizeof(shortName_)];
  std::size_t length = 0;
  if (file.Open(PathInTable(processId_, "comm")) != 0 ||
      file.Read(name, sizeof(name), length) != 0) {
    return "";
  }
  if (length > 0 && name[length - 1] == '\n') --length;
  return std::string(name, length);
}

bool ListProcesses(std::vector<ProcessRecord>& records) {
  DirectoryReader table;
  if (table.Open("/proc") != 0) return false;
  records.clear();
  while (const char* const name = table.Next()) {
    if (const int processId = ParseProcessId(name); processId != 0) {
      records.emplace_back(processId, nullptr);
    }
  }
  return table.Error() == 0;
}

bool ExecutablePath(int processId, std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(PathInTable(processId, "exe").c_str(), target, sizeof(target));
  if (length <= 0) return false;
  std::string_view text(target, static_cast<std::size_t>(length));
  if (text.size() > kDeletedMark.size() &&
      text.substr(text.size() - kDeletedMark.size()) == kDeletedMark) {
    text.remove_suffix(kDeletedMark.size());
  }
  path = text;
  return true;
}

}  // namespace platform
