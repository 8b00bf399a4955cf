#include <memory>
#include <new>
#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "app/options.h"
#include "platform/standard_streams.h"

int main(int argc, const char** argv) {
  if (argc < kMinArgumentCount || argc > kMaxArgumentCount) return kEINVAL;
  platform::EnsureStandardDescriptors();
  const std::unique_ptr<KXTool> tool(new (std::nothrow) KXTool(argc, argv));
  if (tool == nullptr) return kENOMEM;
  std::string result;
  return tool->Run(result);
}
