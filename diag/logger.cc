#include "diag/logger.h"

#include <mutex>
#include <utility>

#include "diag/utils.h"

namespace {

/// Keeps the lines of concurrent Log() calls whole.
std::mutex lineLock;

}  // namespace

Logger* Logger::m_pThis = nullptr;
std::string Logger::m_sFilename = "log.txt";
std::ofstream Logger::m_LogFile;

Logger* logger = nullptr;

Logger* Logger::GetLogger(std::string directory) {
  if (m_pThis == nullptr) {
    m_pThis = new Logger();
    m_LogFile.open(directory + m_sFilename, std::ios::out | std::ios::app);
  }
  return m_pThis;
}

void Logger::Log(std::string message) {
  const std::lock_guard<std::mutex> lock(lineLock);
  if (m_pThis == nullptr || !m_LogFile.is_open()) return;
  m_LogFile << Utils::GetUtcTime() << ' ' << message << '\n';
  m_LogFile.flush();
}
