#ifndef DIAG_CONFIGURATION_FILE_H_
#define DIAG_CONFIGURATION_FILE_H_

#include <string>

class Logger;

namespace Utils {

/// Reads the configuration file at `path` and switches logging on when one of its lines is exactly
/// "Logging=true". A file that cannot be read changes nothing.
/// @param logger receives a logger that writes into `logDirectory` (which ends in "/" or is empty)
///     when logging is switched on.
/// @return 0
int ParseConfigFile(const std::string& path, Logger*& logger, std::string logDirectory);

/// Sets `logger` to the process-wide logger.
void ActivateLogger(Logger*& logger, std::string logDirectory);

}  // namespace Utils

#endif  // DIAG_CONFIGURATION_FILE_H_
