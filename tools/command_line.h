#pragma once

namespace roster::tool {

/// Runs the command that the arguments name and returns the program's exit status.
int runCommandLine(int argumentCount, const char* const* arguments);

}  // namespace roster::tool
