#pragma once

#include <chrono>
#include <cstdint>

namespace roster {

/// Runs the calling thread's event loop, its default sd-event loop, until one of its sources has been
/// handled, the process with the identifier has ended, or the time has passed, whichever is first. The
/// caller's own sources fire meanwhile. A loop that cannot be run, as when the caller is in the middle of
/// handling one of its sources, leaves the waiting.
void runEventLoop(std::chrono::microseconds atMost, std::int32_t watchedProcess);

}  // namespace roster
