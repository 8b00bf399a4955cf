#ifndef DIAG_LOGGER_H_
#define DIAG_LOGGER_H_

#include <fstream>
#include <string>

/// The process-wide log writer. Lines go to "log.txt"; each is flushed as soon as it is written.
class Logger {
 public:
  /// Returns the process-wide logger. The first call creates it and opens the log file at
  /// `directory` followed by the file's name, keeping what the file holds; later calls ignore
  /// `directory`. A file that cannot be opened is not reported: Log() then writes nothing.
  static Logger* GetLogger(std::string directory);

  /// Writes one line: UTC time, a space, `message`. Any thread may call it; lines stay whole.
  void Log(std::string message);

 private:
  Logger() = default;

  struct EndOfLogging;

  static Logger* m_pThis;
  static std::string m_sFilename;
  static std::ofstream m_LogFile;
  static EndOfLogging endOfLogging_;
};

namespace Utils {

/// Returns the current time in UTC as "year-month-day hours:minutes:seconds", or "Cannot retrieve
/// time!".
std::string GetUtcTime();

}  // namespace Utils

#endif  // DIAG_LOGGER_H_
