#pragma once

/// Marks what a client may link against. The library is compiled with hidden visibility, so a name without
/// this mark stays inside and may change from one release to the next; a name with it is part of the
/// interface that SOVERSION promises. On a class it exports the members, the vtable and the type information
/// together, which is what lets an exception be caught, and a class be derived from, on the client's side of
/// the boundary.
///
/// Templates and inline functions need no mark: each client compiles its own copy.
#define ROSTER_EXPORT __attribute__((visibility("default")))

/// Takes a member of an exported class back out of the interface.
#define ROSTER_HIDDEN __attribute__((visibility("hidden")))
