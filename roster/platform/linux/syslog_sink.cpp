#include "roster/platform/syslog_sink.h"

#include <syslog.h>

#include <algorithm>
#include <limits>

namespace roster {

void writeToSyslog(std::string_view line) {
  constexpr std::size_t longest = std::numeric_limits<int>::max();
  syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(std::min(line.size(), longest)), line.data());
}

}  // namespace roster
