#include <dlfcn.h>

#include <mutex>
#include <string>

#include "roster/base/process_wide.h"
#include "roster/platform/event_loop.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/resources.h"

namespace roster {

namespace {

/// The engine's library and its functions, each found at its first use and then kept. A failure is not kept.
class WebEngine {
 public:
  Result<bool (*)()> isThreadLockHeld() { return link(isThreadLockHeld_, "webEngineThreadLockIsHeld"); }
  Result<void (*)()> takeThreadLock() { return link(takeThreadLock_, "webEngineTakeThreadLock"); }

 private:
  template <class Function>
  Result<Function> link(Function& function, const char* name) {
    const std::lock_guard guard(lock_);
    if (function != nullptr) return function;
    if (library_ == nullptr) {
      const std::string path = resourcePath("WebEngine", "so");
      if (path.empty())
        return Error(std::errc::no_such_file_or_directory, "there is no resource WebEngine.so");
      library_ = dlopen(path.c_str(), RTLD_NOW);
    }
    if (library_ != nullptr) function = reinterpret_cast<Function>(dlsym(library_, name));
    if (function == nullptr) return Error(std::errc::no_such_file_or_directory, loaderError());
    return function;
  }

  std::mutex lock_;
  void* library_ = nullptr;
  bool (*isThreadLockHeld_)() = nullptr;
  void (*takeThreadLock_)() = nullptr;
};

}  // namespace

Result<bool> isWebEngineThreadLockHeld() {
  const auto isHeld = immortalInstance<WebEngine>().isThreadLockHeld();
  if (!isHeld) return isHeld.error();
  return (*isHeld)();
}

Result<> takeWebEngineThreadLock() {
  const auto take = immortalInstance<WebEngine>().takeThreadLock();
  if (!take) return take.error();
  (*take)();
  return {};
}

}  // namespace roster
