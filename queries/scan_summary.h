#ifndef QUERIES_SCAN_SUMMARY_H_
#define QUERIES_SCAN_SUMMARY_H_

#include <cstdint>
#include <string>

namespace queries {

/// The outcome of reading a scan summary.
enum class SummaryResult {
  kRead,
  kNoRoot,         ///< no element at all
  kNoScanSummary,  ///< the root element has no child element "ScanSummary"
  kNoStartTime,    ///< its attribute "startTime" is missing or empty
  kNoDuration,     ///< its attribute "duration" is missing or empty
};

/// Reads the end of a scan from the text of its summary, an XML document.
///
/// @param xml is parsed in place and unusable afterwards
/// @param endTime receives startTime (seconds) plus duration (milliseconds), in whole seconds,
///     truncated toward zero; the sum wraps around in 64 bits. Only for kRead.
/// @throws rapidxml::parse_error for text that is not XML. Extremely deep nesting exhausts the
///     stack.
SummaryResult ReadScanSummary(std::string& xml, std::int64_t& endTime);

}  // namespace queries

#endif  // QUERIES_SCAN_SUMMARY_H_
