// Lists the processes once, as the detection does, and prints how many have a name.

#include <cstdio>
#include <string>
#include <vector>

#include "app/kx_tool.h"
#include "platform/process_table.h"

int main(int argc, const char** argv) {
  KXTool tool(argc, argv);
  std::vector<platform::ProcessRecord> records;
  if (!platform::ListProcesses(records)) return 1;
  std::size_t named = 0;
  for (const platform::ProcessRecord& record : records) {
    std::string name;
    if (!tool.GetProcessName(name, record.ProcessId())) name = record.ShortName();
    if (!name.empty()) ++named;
  }
  std::printf("%zu\n", named);
  return 0;
}
