#include "roster/platform/event_loop.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/epoll.h>

#include <memory>
#include <mutex>
#include <string>

#include "roster/base/process_wide.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/linux/systemd_library.h"
#include "roster/platform/resources.h"

namespace roster {

namespace {

int noteNothing(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/, void* /*unused*/) {
  return 0;
}

/// False when the loop could not be run.
bool runOnce(std::chrono::microseconds timeout, const FileDescriptor& process) {
  const Result<const SystemdFunctions*> library = systemdFunctions();
  if (!library) return false;
  const SystemdFunctions& systemd = **library;
  sd_event* found = nullptr;
  if (systemd.eventDefault(&found) < 0) return false;
  const std::unique_ptr<sd_event, decltype(systemd.eventUnref)> loop(found, systemd.eventUnref);
  sd_event_source* added = nullptr;
  if (process && systemd.eventAddIo(loop.get(), &added, process.fd(), EPOLLIN, &noteNothing, nullptr) < 0) {
    return false;
  }
  const std::unique_ptr<sd_event_source, decltype(systemd.eventSourceDisableUnref)> source(
      added, systemd.eventSourceDisableUnref);
  return systemd.eventRun(loop.get(), static_cast<std::uint64_t>(timeout.count())) >= 0;
}

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

void runEventLoop(std::chrono::microseconds timeout, std::int32_t watchedProcess) {
  using namespace std::chrono;
  Result<FileDescriptor> opened = openProcess(watchedProcess);
  if (!opened && opened.error().code == std::errc::no_such_process) return;
  // A process that cannot be watched is waited for all the same.
  const FileDescriptor process = opened ? *std::move(opened) : FileDescriptor();
  if (runOnce(timeout, process)) return;
  pollfd end{.fd = process.fd(), .events = POLLIN, .revents = 0};
  poll(&end, 1, static_cast<int>(ceil<milliseconds>(timeout).count()));
}

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
