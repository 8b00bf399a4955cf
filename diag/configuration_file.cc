#include "diag/configuration_file.h"

#include <array>
#include <string_view>
#include <utility>

#include "diag/logger.h"
#include "platform/files.h"

namespace {

/// The only line with a meaning: key, first "=" and value, compared byte for byte.
constexpr std::string_view kLoggingOn = "Logging=true";

constexpr std::size_t kChunkSize = 4096;

/// Calls `takeLine` for each line of `file`, without its newline. A line longer than kLoggingOn is
/// passed on truncated, but still longer than kLoggingOn, so that memory use does not depend on the
/// file.
template <typename TakeLine>
void ForEachLine(platform::InputFile& file, const TakeLine& takeLine) {
  std::array<char, kChunkSize> chunk;
  std::size_t count = 0;
  std::string line;
  while (file.Read(chunk.data(), chunk.size(), count) == 0 && count > 0) {
    for (const char byte : std::string_view(chunk.data(), count)) {
      if (byte == '\n') {
        takeLine(line);
        line.clear();
      } else if (line.size() <= kLoggingOn.size()) {
        line += byte;
      }
    }
  }
  takeLine(line);
}

}  // namespace

int Utils::ParseConfigFile(const std::string& path, Logger*& logger, std::string logDirectory) {
  platform::InputFile file;
  if (file.Open(path) != 0) return 0;
  ForEachLine(file, [&](const std::string& line) {
    if (line == kLoggingOn) ActivateLogger(logger, logDirectory);
  });
  return 0;
}

void Utils::ActivateLogger(Logger*& logger, std::string logDirectory) {
  logger = Logger::GetLogger(std::move(logDirectory));
}
