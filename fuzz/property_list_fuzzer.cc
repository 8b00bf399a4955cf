#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/linux/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  platform::ParsePropertyList(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
