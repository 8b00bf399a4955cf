#include "platform/process_table.h"

#include <sys/sysctl.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

namespace platform {
namespace {

/// A buffer for the argument area of a process, as large as the kernel ever makes one: a megabyte.
/// It is allocated once, since a search of the table reads hundreds of areas. It still contains the
/// bytes of the previous read.
class ArgumentArea {
 public:
  ArgumentArea() {
    int name[] = {CTL_KERN, KERN_ARGMAX};
    int capacity = 0;
    std::size_t size = sizeof(capacity);
    if (sysctl(name, std::size(name), &capacity, &size, nullptr, 0) != 0 || capacity <= 0) return;
    bytes_.reset(new (std::nothrow) char[static_cast<std::size_t>(capacity)]);
    if (bytes_) capacity_ = static_cast<std::size_t>(capacity);
  }

  /// @param size receives the number of bytes that were read.
  /// @return false when the area cannot be read.
  bool Read(int processId, std::size_t& size) {
    int name[] = {CTL_KERN, KERN_PROCARGS2, processId};
    size = capacity_;
    return bytes_ && sysctl(name, std::size(name), bytes_.get(), &size, nullptr, 0) == 0;
  }

  const char* Bytes() const { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
};

}  // namespace

ProcessRecord::ProcessRecord(int processId, const char* shortName) : processId_(processId) {
  const std::size_t length = strnlen(shortName, sizeof(shortName_) - 1);
  std::memcpy(shortName_, shortName, length);
  shortName_[length] = '\0';
}

std::string ProcessRecord::ShortName() const { return shortName_; }

bool ListProcesses(std::vector<ProcessRecord>& records) {
  int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
  std::size_t size = 0;
  if (sysctl(name, std::size(name), nullptr, &size, nullptr, 0) != 0) return false;
  const std::unique_ptr<kinfo_proc[]> table(new (std::nothrow)
                                                kinfo_proc[size / sizeof(kinfo_proc) + 1]);
  if (!table || sysctl(name, std::size(name), table.get(), &size, nullptr, 0) != 0) return false;
  const std::size_t count = size / sizeof(kinfo_proc);
  records.clear();
  records.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    records.emplace_back(table[index].kp_proc.p_pid, table[index].kp_proc.p_comm);
  }
  return true;
}

bool ExecutablePath(int processId, std::string& path) {
  static ArgumentArea area;
  // The area begins with the count of the arguments, followed by the path.
  constexpr std::size_t kPathOffset = sizeof(std::int32_t);
  std::size_t size = 0;
  if (!area.Read(processId, size)) return false;
  path.clear();
  if (size > kPathOffset) {
    const char* const text = area.Bytes() + kPathOffset;
    path.assign(text, strnlen(text, size - kPathOffset));
  }
  return true;
}

}  // namespace platform
