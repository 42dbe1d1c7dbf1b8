#pragma once

#include <string>

#include "roster/value/value.h"

namespace roster {

/// What the file, a property list of a dictionary, holds now. It is read again only after it changed;
/// otherwise a call costs one stat. A file that cannot be used counts as empty and is one line in the system
/// log each time it changes. May be called from any thread.
Dictionary currentDictionary(const std::string& path);

}  // namespace roster
