#include "roster/platform/linux/systemd_library.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>

#include "roster/base/process_wide.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

constexpr const char* libraryName = "libsystemd.so.0";

struct LibraryCloser {
  void operator()(void* library) const { dlclose(library); }
};

/// Looks functions up in one library, until one is missing.
class FunctionFinder {
 public:
  explicit FunctionFinder(void* library) : library_(library) {}

  template <class Function>
  void find(Function& function, const char* name) {
    if (!found_) return;
    function = reinterpret_cast<Function>(dlsym(library_, name));
    if (function == nullptr) found_ = Error(std::errc::function_not_supported, loaderError());
  }

  const Result<>& found() const { return found_; }

 private:
  void* library_;
  Result<> found_;
};

Result<SystemdFunctions> functionsOf(void* library) {
  FunctionFinder finder(library);
  SystemdFunctions functions;
  finder.find(functions.busCallMethodAsync, "sd_bus_call_method_async");
  finder.find(functions.busCloseUnref, "sd_bus_close_unref");
  finder.find(functions.busMessageAppendBasic, "sd_bus_message_append_basic");
  finder.find(functions.busMessageCloseContainer, "sd_bus_message_close_container");
  finder.find(functions.busMessageIsMethodError, "sd_bus_message_is_method_error");
  finder.find(functions.busMessageNewSignal, "sd_bus_message_new_signal");
  finder.find(functions.busMessageOpenContainer, "sd_bus_message_open_container");
  finder.find(functions.busMessageUnref, "sd_bus_message_unref");
  finder.find(functions.busOpenSystem, "sd_bus_open_system");
  finder.find(functions.busProcess, "sd_bus_process");
  finder.find(functions.busSend, "sd_bus_send");
  finder.find(functions.busSlotUnref, "sd_bus_slot_unref");
  finder.find(functions.busWait, "sd_bus_wait");
  finder.find(functions.eventAddIo, "sd_event_add_io");
  finder.find(functions.eventDefault, "sd_event_default");
  finder.find(functions.eventRun, "sd_event_run");
  finder.find(functions.eventSourceDisableUnref, "sd_event_source_disable_unref");
  finder.find(functions.eventUnref, "sd_event_unref");
  if (!finder.found()) return finder.found().error();
  return functions;
}

/// The library, once it has been opened.
class SystemdLibrary {
 public:
  Result<const SystemdFunctions*> functions() {
    const std::lock_guard guard(lock_);
    if (library_ == nullptr) {
      // A program that uses the library itself gets the same one here, and so the same event loops.
      std::unique_ptr<void, LibraryCloser> opened(dlopen(libraryName, RTLD_NOW | RTLD_LOCAL));
      if (!opened) return Error(std::errc::no_such_file_or_directory, loaderError());
      Result<SystemdFunctions> found = functionsOf(opened.get());
      if (!found) return found.error();
      functions_ = *found;
      library_ = std::move(opened);
    }
    return &functions_;
  }

 private:
  std::mutex lock_;
  std::unique_ptr<void, LibraryCloser> library_;
  SystemdFunctions functions_;
};

}  // namespace

Result<const SystemdFunctions*> systemdFunctions() { return immortalInstance<SystemdLibrary>().functions(); }

}  // namespace roster
