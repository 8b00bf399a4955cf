#include "diag/utils.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "platform/clock.h"
#include "platform/files.h"

namespace {

/// The one line that means something: key, first "=" and value, compared byte for byte.
constexpr std::string_view kLoggingOn = "Logging=true";

constexpr std::size_t kChunkSize = 4096;

/// Calls `takeLine` for each line of `file`, without its newline. A line longer than kLoggingOn is
/// handed over cut, still longer than kLoggingOn, so that memory stays small whatever the file is.
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

char ToLower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
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

std::string Utils::GetUtcTime() {
  const auto now = static_cast<std::time_t>(platform::WallClockSeconds());
  std::tm utc{};
  if (gmtime_r(&now, &utc) == nullptr) return "Cannot retrieve time!";
  std::array<char, 80> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %X", &utc)};
}

bool Utils::EqualsIgnoringCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return ToLower(a) == ToLower(b); });
}
