#pragma once

#include <string>
#include <vector>

#include "roster/value/value.h"

namespace roster::tool {

/// A property and the value that a command line gives it.
struct Assignment {
  std::string key;
  Value value;
};

/// Reads words of the form KEY=TEXT, which takes the text literally, or KEY:=JSON. The first "=" ends the
/// key, so a key contains none. Throws CommandError of wrong usage for anything else.
std::vector<Assignment> parseAssignments(const std::vector<std::string>& words);

}  // namespace roster::tool
