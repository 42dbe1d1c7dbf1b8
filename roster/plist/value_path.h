#pragma once

#include <cstddef>
#include <span>

#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// That a part of a value cannot be written, why, and where it stands: `a value at "Accounts"[3]
/// (work)."Note" contains itself`, with the identifiers of list elements that have one. The steps lead from
/// the part to the root. Each is the index of a part among all that its container holds, of a dictionary
/// first the keys and then the values. The place of a key is its dictionary; after many steps the place is
/// clipped.
Error unwritableValue(const Value& root, std::span<const std::size_t> stepsToRoot, Fault fault);

}  // namespace roster
