#pragma once

// The lock that a device's web engine keeps for its threads, one per process. It belongs to one thread at a
// time. The engine takes it before it runs, and releases it when a turn of the thread's event loop ends. This
// library is for devices without a web engine, and an example for those whose engine brings its own.

#if defined(__cplusplus)
extern "C" {
#else
#include <stdbool.h>
#endif

/// Whether the calling thread holds the lock.
bool webEngineThreadLockIsHeld(void);

/// Takes the lock for the calling thread, waiting until no other thread has it. Without effect when the
/// thread holds it already.
void webEngineTakeThreadLock(void);

/// Releases the lock. Without effect when the calling thread does not hold it.
void webEngineReleaseThreadLock(void);

#if defined(__cplusplus)
}
#endif
