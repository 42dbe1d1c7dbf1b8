#pragma once

#include <cstdint>

#include "platform/export.h"

namespace roster {

/// The command name of the sync-accounts daemon.
inline constexpr const char* syncDaemonName = "tesserad";

/// The identifier of the first process, in the order of identifiers, whose command name equals the given one
/// in its first 16 characters; -1 when there is none or the processes cannot be listed.
ROSTER_EXPORT std::int32_t _PIDForProcessNamed(const char* name);

}  // namespace roster
