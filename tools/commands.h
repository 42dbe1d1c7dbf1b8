#pragma once

#include <string>
#include <vector>

namespace roster::tool {

/// What the command line said. Each command uses the fields that its arguments fill.
struct Options {
  bool isJson = false;
  bool isVerbose = false;
  bool isDryRun = false;
  std::string identifier;
  std::vector<std::string> types;
  std::string type;
  std::string accountClass;
  std::string parent;
  /// Assignments, keys or dataclasses.
  std::vector<std::string> words;
  std::string file;
};

// The commands. Each returns the exit status of a command that did its work, and throws CommandError when it
// could not.

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
