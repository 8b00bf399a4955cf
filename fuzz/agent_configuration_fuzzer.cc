#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "tests/support/fake_platform.h"

namespace {

constexpr char kPath[] = "/agcfng.jso";

KXTool& Tool() {
  static const char* arguments[] = {"/opt/kx/KXTool", "-detect"};
  static auto& tool = *new KXTool(2, arguments);
  return tool;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fake::World::Reset().AddFile(kPath, std::string(data, data + size));
  std::string companyId;
  std::string groupId;
  std::string endpointId;
  const int code =
      Tool().GetEndpointInformation(&companyId, &groupId, &endpointId, kPath, false, nullptr);
  // An invalid file yields nothing.
  const bool isEmpty = companyId.empty() && groupId.empty() && endpointId.empty();
  if (code != kSuccess && (code != kEBADF || !isEmpty)) std::abort();
  return 0;
}
