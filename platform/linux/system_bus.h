#pragma once

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "platform/result.h"

struct sd_bus;

namespace roster {

/// Which signal is sent.
struct BusSignal {
  const char* path;
  const char* interface;
  const char* member;
};

/// A connection of its own to the system bus (the one DBUS_SYSTEM_BUS_ADDRESS names, if it is set), for one
/// thread. It is closed when the object goes.
class SystemBus {
 public:
  /// Starts connecting; does not wait for the bus. The error names the cause.
  static Result<SystemBus> open();

  /// Sends a signal with text arguments and returns once the bus has it. Fails when that takes longer than a
  /// few seconds, so that a bus that does not answer holds nobody up; the signal may then be lost.
  std::optional<Error> send(const BusSignal& signal, std::initializer_list<std::string> arguments);

 private:
  struct Closer {
    void operator()(sd_bus* bus) const;
  };
  explicit SystemBus(sd_bus* bus) : bus_(bus) {}

  std::optional<Error> queue(const BusSignal& signal, std::initializer_list<std::string> arguments);
  std::optional<Error> deliver();

  std::unique_ptr<sd_bus, Closer> bus_;
};

}  // namespace roster
