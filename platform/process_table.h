#ifndef PLATFORM_PROCESS_TABLE_H_
#define PLATFORM_PROCESS_TABLE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace platform {

/// One entry of the process table.
class ProcessRecord {
 public:
  /// @param shortName may be null where the host reads short names on demand.
  ProcessRecord(int processId, const char* shortName);

  int ProcessId() const { return processId_; }

  /// The command name, cut to 16 characters or fewer by the kernel; empty when the process is gone.
  std::string ShortName() const;

 private:
  int processId_;
  char shortName_[17];
};

/// Reads the process table of the whole machine.
/// @param records is replaced.
/// @return false when the table cannot be read.
bool ListProcesses(std::vector<ProcessRecord>& records);

/// Path of the file that process `processId` executes, without the mark of a deleted file.
/// @param path is replaced on success and untouched otherwise. It is empty for a process whose
///     arguments hold no path (macOS).
/// @return false when there is none (kernel threads, zombies, processes that have ended) or it may
///     not be read. Not thread-safe.
bool ExecutablePath(int processId, std::string& path);

}  // namespace platform

#endif  // PLATFORM_PROCESS_TABLE_H_
