#include "diag/logger.h"

#include <array>
#include <ctime>
#include <mutex>
#include <utility>

#include "diag/global_logger.h"
#include "platform/clock.h"
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

/// Destroyed just before the stream; Log() does not use the stream from then on.
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
    // The stream alone would block until a FIFO has a reader, and would create a file that anyone
    // can write to if the process's umask allows it.
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

std::string Utils::GetUtcTime() {
  const auto now = static_cast<std::time_t>(platform::WallClockSeconds());
  std::tm utc{};
  if (gmtime_r(&now, &utc) == nullptr) return "Cannot retrieve time!";
  std::array<char, 80> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %X", &utc)};
}
