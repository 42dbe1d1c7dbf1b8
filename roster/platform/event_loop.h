#pragma once

#include <chrono>
#include <cstdint>

#include "roster/base/result.h"

namespace roster {

/// Runs the calling thread's event loop, its default sd-event loop, until one of its sources has been
/// handled, the process with the identifier has ended, or the timeout is over, whichever is first. The
/// caller's own sources fire meanwhile. Where the loop cannot be run, as when the caller is in the middle of
/// handling one of its sources, or the system has no libsystemd, this only waits for the process or the
/// timeout.
void runEventLoop(std::chrono::microseconds timeout, std::int32_t watchedProcess);

// The host's web engine has one lock per process for the threads that use it. Running a thread's event loop
// may let the lock go, so whoever runs the loop in the middle of something asks before and takes it again
// afterwards. The engine's library, the resource "WebEngine.so", is opened at the first call of either
// function and stays; the errors tell that it is missing, or which of its functions is. From any thread.

/// Whether the calling thread holds the lock.
Result<bool> isWebEngineThreadLockHeld();

/// Takes the lock for the calling thread, waiting for it.
Result<> takeWebEngineThreadLock();

}  // namespace roster
