#pragma once

#include <string>
#include <vector>

#include "roster/value/value.h"
#include "tools/commands.h"

namespace roster::tool {

/// A property and the value that a command line gives it.
struct Assignment {
  std::string key;
  Value value;
};

/// Throws CommandError of wrong usage when the value is not of the type that belongs to the key, unless the
/// options force it.
void requireOwnType(const Assignment& assignment, const Options& options);

/// Reads words of the form KEY=TEXT, which takes the text literally, or KEY:=JSON. The first "=" ends the
/// key, so a key contains none. Throws CommandError of wrong usage for anything else.
std::vector<Assignment> parseAssignments(const std::vector<std::string>& words);

}  // namespace roster::tool
