#include "queries/scan_summary.h"

#include <cstdlib>
#include <rapidxml/rapidxml.hpp>

namespace queries {
namespace {

/// The text of an attribute that is present and not empty; else null.
const char* AttributeText(const rapidxml::xml_node<>& node, const char* name) {
  const rapidxml::xml_attribute<>* const attribute = node.first_attribute(name);
  return attribute == nullptr || attribute->value_size() == 0 ? nullptr : attribute->value();
}

/// atol() of a 64-bit platform: saturates, and yields 0 when there are no digits.
std::int64_t LeadingNumber(const char* text) { return std::strtoll(text, nullptr, 10); }

/// startTime × 1000 + duration in two's complement, then in whole seconds.
std::int64_t EndOfScan(std::int64_t startSeconds, std::int64_t durationMilliseconds) {
  const std::uint64_t milliseconds = static_cast<std::uint64_t>(startSeconds) * 1000U +
                                     static_cast<std::uint64_t>(durationMilliseconds);
  return static_cast<std::int64_t>(milliseconds) / 1000;
}

}  // namespace

SummaryResult ReadScanSummary(std::string& xml, std::int64_t& endTime) {
  rapidxml::xml_document<> document;
  document.parse<0>(xml.data());
  const rapidxml::xml_node<>* const root = document.first_node();
  if (root == nullptr) return SummaryResult::kNoRoot;
  const rapidxml::xml_node<>* const summary = root->first_node("ScanSummary");
  if (summary == nullptr) return SummaryResult::kNoScanSummary;
  const char* const startTime = AttributeText(*summary, "startTime");
  if (startTime == nullptr) return SummaryResult::kNoStartTime;
  const char* const duration = AttributeText(*summary, "duration");
  if (duration == nullptr) return SummaryResult::kNoDuration;
  endTime = EndOfScan(LeadingNumber(startTime), LeadingNumber(duration));
  return SummaryResult::kRead;
}

}  // namespace queries
