#pragma once

#include <string>

#include "roster/base/export.h"
#include "roster/base/result.h"

namespace roster {

/// Keeps the registry at a path as it is now beside it, under its own name with ".damaged-" and the time in
/// UTC, for a program that is about to save over something that the library cannot use. The registry itself
/// stays in its place. Returns the copy's path; a file that is kept under such a name already is not kept
/// twice. The error tells both paths and the system's text; nothing has been made then. May be called from
/// any thread.
ROSTER_EXPORT Result<std::string> keepRegistryCopy(const std::string& path);

}  // namespace roster
