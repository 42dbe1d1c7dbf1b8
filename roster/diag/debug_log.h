#pragma once

#include <span>
#include <string_view>

#include "roster/base/export.h"
#include "roster/platform/system_log.h"

namespace roster {

/// Whether the trace of changes and saves is on: the user's preference "RSLoggingEnabled" for the running
/// program, by its boolean value. Read once per process, at the first call; a later change takes effect in a
/// new process. May be called from any thread.
ROSTER_EXPORT bool getRSLoggingEnabled();

/// Writes one message to the system log when the trace is on. The format is the system log's. May be called
/// from any thread.
ROSTER_EXPORT void RSLog(std::string_view format, std::span<const LogArgument> arguments);

/// The same, with the arguments one by one.
template <class... Arguments>
void RSLog(std::string_view format, const Arguments&... arguments) {
  if (getRSLoggingEnabled()) systemLog(format, arguments...);
}

}  // namespace roster
