#ifndef SDK_SCAN_EVENTS_H_
#define SDK_SCAN_EVENTS_H_

#include "platform/thread.h"

class KXTool;

/// Routine of the event thread: takes the tool's product events one by one until one of them
/// decides the scan's outcome, the completion arrives, or `stopThread` is set.
/// @param tool the KXTool, or null to end at once
/// @return null
void* ProcessProductEvents(void* tool);

namespace sdk {

/// The event thread of a watched scan. The destructor ends and joins it.
class EventThread {
 public:
  EventThread() = default;
  ~EventThread();
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

  /// Enables the queuing of product events and starts processing them for `tool`.
  /// @return 0, or the errno-style number of the failure.
  int Start(KXTool& tool);

  /// Waits until the thread has ended by itself. Returns at once when none was started.
  /// @return 0, or the errno-style number of the failure.
  int Join() { return thread_.IsJoinable() ? thread_.Join() : 0; }

 private:
  platform::Thread thread_;
};

}  // namespace sdk

#endif  // SDK_SCAN_EVENTS_H_
