#pragma once

#include <dlfcn.h>
#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <span>
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

/// The loader's own text about what has just failed in this thread.
inline std::string loaderError() {
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): kept for each thread apart
  return text == nullptr ? "the loader does not say why" : text;
}

/// Fills the bytes with fresh ones of the kernel's. False when it gives none; the bytes are then as they
/// were, or partly filled.
inline bool drawRandomBytes(std::span<std::byte> bytes) {
  ssize_t drawn = 0;
  do {
    drawn = getrandom(bytes.data(), bytes.size(), 0);
  } while (drawn < 0 && errno == EINTR);
  return drawn == static_cast<ssize_t>(bytes.size());
}

}  // namespace roster
