#include "diag/logger.h"

#include <mutex>
#include <utility>

#include "diag/global_logger.h"
#include "diag/utils.h"
#include "platform/files.h"

namespace {

/// Keeps the lines of concurrent Log() calls whole. Never destroyed, because an SDK thread may
/// still log while the process exits.
std::mutex& LineLock() {
  static std::mutex& lock = *new std::mutex;
  return lock;
}

}  // namespace

Logger* Logger::m_pThis = nullptr;
std::string Logger::m_sFilename = "log.txt";
std::ofstream Logger::m_LogFile;

/// Goes just before the stream does; Log() leaves the stream alone from then on.
struct Logger::EndOfLogging {
  EndOfLogging() = default;
  EndOfLogging(const EndOfLogging&) = delete;
  EndOfLogging& operator=(const EndOfLogging&) = delete;
  ~EndOfLogging() {
    const std::lock_guard<std::mutex> lock(LineLock());
    m_pThis = nullptr;
  }
};
Logger::EndOfLogging Logger::endOfLogging_;

Logger* logger = nullptr;

Logger* Logger::GetLogger(std::string directory) {
  if (m_pThis == nullptr) {
    static Logger theLogger;
    m_pThis = &theLogger;
    const std::string path = std::move(directory) + m_sFilename;
    // The stream alone would wait for the reader of a FIFO, and let anybody write to a file that it
    // creates where the process's mask does.
    platform::AppendedFile file;
    if (file.Open(path) == 0) m_LogFile.open(path, std::ios::out | std::ios::app);
  }
  return m_pThis;
}

void Logger::Log(std::string message) {
  const std::lock_guard<std::mutex> lock(LineLock());
  if (m_pThis == nullptr || !m_LogFile.is_open()) return;
  message.insert(0, Utils::GetUtcTime() + ' ');
  message += '\n';
  m_LogFile << message << std::flush;
}
