#include "diag/debug_log.h"

#include <atomic>

#include "platform/device.h"

namespace roster {

namespace {

// Two threads that make the first call at once may both read the preference: both find the same answer.
std::atomic<bool> _haveCheckedRSLoggingEnabled = false;
std::atomic<bool> _RSLoggingEnabled = false;

}  // namespace

bool getRSLoggingEnabled() {
  if (_haveCheckedRSLoggingEnabled.load(std::memory_order_acquire)) return _RSLoggingEnabled;
  _RSLoggingEnabled = preference("RSLoggingEnabled").booleanValue();
  _haveCheckedRSLoggingEnabled.store(true, std::memory_order_release);
  return _RSLoggingEnabled;
}

}  // namespace roster
