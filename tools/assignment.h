#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "roster/value/value.h"

namespace roster::tool {

/// A property and the value that a command line gives it.
struct Assignment {
  std::string key;
  Value value;
};

/// Reads KEY=TEXT, which takes the text literally, and KEY:=JSON. The first "=" splits: a key has none, and
/// does not end with ":" (in a text assignment). Anything else is a CommandError of wrong usage.
Assignment parseAssignment(const std::string& word);
std::vector<Assignment> parseAssignments(const std::vector<std::string>& words);

}  // namespace roster::tool
