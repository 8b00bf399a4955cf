#include "install/service_processes.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "app/kx_tool.h"
#include "platform/clock.h"
#include "platform/process_table.h"

namespace install {

ServiceTable MakeServiceTable() {
  return {
      {2, {"KXCoreIssues", "KXLDaemon", "KXUpdDaemon"}},
      {1, {"PrivHelperTool", "CoreIssues", "UpdDaemon", "Daemon", "upgrade"}},
  };
}

bool IsGroupRunning(const ServiceTable& services, const std::vector<std::string>& processNames) {
  return std::any_of(services.begin(), services.end(), [&](const auto& group) {
    const std::unordered_set<std::string>& names = group.second;
    const std::ptrdiff_t running =
        std::count_if(processNames.begin(), processNames.end(),
                      [&](const std::string& name) { return names.count(name) != 0; });
    return static_cast<std::size_t>(running) == names.size();
  });
}

}  // namespace install

namespace {

constexpr int kMaxPolls = 10;
constexpr unsigned kPauseBeforePoll = 5;  // seconds

}  // namespace

bool KXTool::GetProcessName(std::string& name, int pid) {
  std::string path;
  if (!platform::ExecutablePath(pid, path)) return false;
  name = path.substr(path.rfind('/') + 1);
  return true;
}

bool KXTool::CheckRunningProcesses() {
  const install::ServiceTable services = install::MakeServiceTable();
  for (int poll = 0; poll < kMaxPolls; ++poll) {
    platform::Sleep(kPauseBeforePoll);
    std::vector<platform::ProcessRecord> records;
    if (!platform::ListProcesses(records) || records.empty()) return false;
    std::vector<std::string> names;
    names.reserve(records.size());
    for (const platform::ProcessRecord& record : records) {
      std::string name;
      if (!GetProcessName(name, record.ProcessId())) name = record.ShortName();
      names.push_back(std::move(name));
    }
    if (install::IsGroupRunning(services, names)) return true;
  }
  return false;
}
