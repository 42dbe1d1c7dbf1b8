#pragma once

#include <cstdlib>
#include <string>

namespace roster {

/// A variable that decides which files are used; empty when it is not set, and in set-uid programs, whose
/// caller must not redirect them. As with all of the environment, no thread may change it meanwhile.
inline std::string trustedEnvironment(const char* name) {
  const char* value = secure_getenv(name);
  return value != nullptr ? value : "";
}

/// A variable that decides how something looks; empty when it is not set. Its value may come from anybody.
inline std::string environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing in this library changes it
  return value != nullptr ? value : "";
}

}  // namespace roster
