#pragma once

#include <stdexcept>
#include <string>

namespace roster::tool {

enum ExitStatus : int { done = 0, failed = 1, wrongUsage = 2 };

/// Ends a command: says what did not work, and why, on the standard error, and gives the exit status.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& message, ExitStatus status = failed)
      : std::runtime_error(message), status_(status) {}
  CommandError(const std::string& what, const std::string& why, ExitStatus status = failed)
      : CommandError(what + ": " + why, status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace roster::tool
