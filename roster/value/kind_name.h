#pragma once

#include <string>
#include <string_view>

#include "roster/value/value.h"

namespace roster {

/// The kind with its article: "an array". Nil is "something that cannot be read".
std::string_view kindName(Value::Kind kind);

/// What a value is instead of what was expected: "it is an integer, not a text".
std::string isNot(const Value& value, std::string_view expected);

}  // namespace roster
