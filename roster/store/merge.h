#pragma once

#include "roster/value/value.h"

namespace roster {

/// What one account's properties become when three versions meet: as they are in memory, as they were when
/// this store last loaded or saved them, and as another writer may have left them in the file.
///
/// A property that memory changed, added or removed since the original wins; every other one is as the file
/// has it. Values are compared and taken whole. Without an original or a file version the result is memory
/// itself.
Dictionary mergeProperties(const Dictionary& inMemory, const Dictionary& original, const Dictionary& onDisk);

}  // namespace roster
