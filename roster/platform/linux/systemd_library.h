#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "roster/base/result.h"

namespace roster {

/// What this library calls of libsystemd: `busWait` is sd_bus_wait, `eventRun` is sd_event_run.
struct SystemdFunctions {
  decltype(&sd_bus_call_method_async) busCallMethodAsync = nullptr;
  decltype(&sd_bus_close_unref) busCloseUnref = nullptr;
  decltype(&sd_bus_message_append_basic) busMessageAppendBasic = nullptr;
  decltype(&sd_bus_message_close_container) busMessageCloseContainer = nullptr;
  decltype(&sd_bus_message_is_method_error) busMessageIsMethodError = nullptr;
  decltype(&sd_bus_message_new_signal) busMessageNewSignal = nullptr;
  decltype(&sd_bus_message_open_container) busMessageOpenContainer = nullptr;
  decltype(&sd_bus_message_unref) busMessageUnref = nullptr;
  decltype(&sd_bus_open_system) busOpenSystem = nullptr;
  decltype(&sd_bus_process) busProcess = nullptr;
  decltype(&sd_bus_send) busSend = nullptr;
  decltype(&sd_bus_slot_unref) busSlotUnref = nullptr;
  decltype(&sd_bus_wait) busWait = nullptr;
  decltype(&sd_event_add_io) eventAddIo = nullptr;
  decltype(&sd_event_default) eventDefault = nullptr;
  decltype(&sd_event_run) eventRun = nullptr;
  decltype(&sd_event_source_disable_unref) eventSourceDisableUnref = nullptr;
  decltype(&sd_event_unref) eventUnref = nullptr;
};

/// The functions of the system's libsystemd, which is opened by the first call and then stays. Nothing links
/// it: it brings a handful of libraries along, and most programs only read accounts. Fails with the loader's
/// text when it cannot be opened or lacks one of the functions; the next call tries again. May be called from
/// any thread.
Result<const SystemdFunctions*> systemdFunctions();

}  // namespace roster
