#pragma once

#include "roster/value/value.h"

namespace roster::tool {

/// Writes a value, which must be sound to its leaves, to the standard output as a tree for people: a line for
/// each property or element, what they hold indented below. A text stands without quotes unless it could be
/// taken for a value of another kind.
void printTree(const Value& value);

}  // namespace roster::tool
