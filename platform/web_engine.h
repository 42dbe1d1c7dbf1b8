#pragma once

#include "platform/result.h"

namespace roster {

// The host's web engine has one lock per process for the threads that use it. Running a thread's event loop
// may let the lock go, so whoever runs the loop in the middle of something asks before and takes it again
// afterwards. The engine's library, the resource "WebEngine.so", is opened at the first call of either
// function and stays; the errors tell that it is missing, or which of its functions is. From any thread.

/// Whether the calling thread holds the lock.
Result<bool> isWebEngineThreadLockHeld();

/// Takes the lock for the calling thread, waiting for it.
std::optional<Error> takeWebEngineThreadLock();

}  // namespace roster
