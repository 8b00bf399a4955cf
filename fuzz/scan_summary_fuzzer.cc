#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <rapidxml/rapidxml.hpp>
#include <string>

#include "queries/scan_summary.h"

namespace {

/// Inputs with more elements are skipped, because deep nesting can exhaust the stack.
constexpr std::ptrdiff_t kMaxElements = 2000;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (std::count(data, data + size, '<') > kMaxElements) return 0;
  std::string xml(data, data + size);
  xml.shrink_to_fit();  // so that reading past the text is noticed
  std::int64_t endTime = 0;
  try {
    queries::ReadScanSummary(xml, endTime);
  } catch (const rapidxml::parse_error&) {
    // Most inputs are not XML.
  }
  return 0;
}
