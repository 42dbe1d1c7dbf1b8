#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// Why the library makes no use of a value, or of an element of it, under a key of an account's properties:
/// "it is an integer, not a text", "its element 2 is data, not a text". Nothing when the value is of the
/// key's own type, and for every key whose values are the clients' affair. May be called from any thread.
ROSTER_EXPORT std::optional<std::string> mismatchWithKey(const Value& value, std::string_view key);

}  // namespace roster
