#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "diag/configuration_file.h"
#include "tests/support/fake_platform.h"

namespace {

constexpr char kPath[] = "/configfile.txt";

/// The expected effect of the file: a line's key ends at its first "=", and its value follows.
bool SwitchesLoggingOn(const std::string& contents) {
  std::istringstream lines(contents);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t sign = line.find('=');
    if (sign == std::string::npos || sign == 0) continue;
    if (line.substr(0, sign) == "Logging" && line.substr(sign + 1) == "true") return true;
  }
  return false;
}

void Check(const std::string& contents) {
  fake::World::Reset().AddFile(kPath, contents);
  Logger* logger = nullptr;
  // The log file cannot be opened there.
  const int code = Utils::ParseConfigFile(kPath, logger, "/nowhere/at/all/");
  if (code != 0 || (logger != nullptr) != SwitchesLoggingOn(contents)) std::abort();
  if (fake::World::Current().openFiles != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string contents(data, data + size);
  Check(contents);
  // Across the end of a chunk.
  Check(std::string(4090, 'x') + contents);
  return 0;
}
