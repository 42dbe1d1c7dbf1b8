#include "roster/diag/debug_log.h"

#include <atomic>

#include "roster/platform/device.h"

namespace roster {

bool getRSLoggingEnabled() {
  // Two threads that make the first call at once may both read the preference: both find the same answer.
  static std::atomic<bool> _haveCheckedRSLoggingEnabled = false;
  static std::atomic<bool> _RSLoggingEnabled = false;
  if (_haveCheckedRSLoggingEnabled.load(std::memory_order_acquire)) return _RSLoggingEnabled;
  _RSLoggingEnabled = preference("RSLoggingEnabled").booleanValue();
  _haveCheckedRSLoggingEnabled.store(true, std::memory_order_release);
  return _RSLoggingEnabled;
}

void RSLog(std::string_view format, std::span<const LogArgument> arguments) {
  if (getRSLoggingEnabled()) writeSystemLog(format, arguments);
}

}  // namespace roster
