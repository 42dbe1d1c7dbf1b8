#pragma once

#include <string_view>

#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster::tool {

/// The property-list value of a JSON text in the notation that tools/json_writer.h describes. Integers from
/// -2^63 to 2^64-1 stay integers, and a number with a point or an exponent is a real. The error completes
/// "KEY: ..."; null, repeated keys and integers beyond that range are errors.
Result<Value> valueFromJson(std::string_view text);

}  // namespace roster::tool
