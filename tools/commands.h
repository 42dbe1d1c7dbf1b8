#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace roster::tool {

enum ExitStatus : int { done = 0, failed = 1, wrongUsage = 2 };

/// Ends a command with a message about what failed and why, and with the program's exit status.
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

/// The options and arguments of a command line; each command uses those that it takes.
struct Options {
  bool isJson = false;
  bool isVerbose = false;
  bool isDryRun = false;
  bool isForced = false;
  std::string identifier;
  std::vector<std::string> types;
  std::string type;
  std::string accountClass;
  std::string parent;
  /// Assignments, keys or dataclasses.
  std::vector<std::string> words;
  std::string file;
};

// The commands. Each returns the exit status when it could do its work, and throws CommandError when not.

int list(const Options& options);
int show(const Options& options);
int add(const Options& options);
int deleteAccount(const Options& options);
int set(const Options& options);
int unset(const Options& options);
int enable(const Options& options);
int disable(const Options& options);
int types(const Options& options);
int dataclasses(const Options& options);
int dump(const Options& options);
int check(const Options& options);
int migrate(const Options& options);
int waitForMigration(const Options& options);
int watch(const Options& options);
int creators(const Options& options);

}  // namespace roster::tool
