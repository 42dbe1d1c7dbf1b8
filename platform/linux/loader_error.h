#pragma once

#include <dlfcn.h>

#include <string>

namespace roster {

/// The loader's own text about what has just failed in this thread.
inline std::string loaderError() {
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): kept for each thread apart
  return text == nullptr ? "the loader does not say why" : text;
}

}  // namespace roster
