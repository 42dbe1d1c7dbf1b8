#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "roster/base/result.h"

struct sd_bus;
struct sd_bus_message;

namespace roster {

struct SystemdFunctions;

/// Which signal is sent.
struct BusSignal {
  const char* path;
  const char* interface;
  const char* member;
};

/// The arguments of a signal, appended one after the other. What cannot be sent (a text that is not UTF-8 or
/// holds a zero byte, more than fits into an array) fails the signal as a whole; what is appended after it is
/// ignored.
class BusArguments {
 public:
  void text(std::string_view text);
  void number(std::int32_t number);

  // Containers. `append` appends what they hold, and `contents` is the signature of that: of one element of
  // an array, of the two parts of an entry.

  template <class Append>
  void array(const char* contents, const Append& append) {
    container('a', contents, append);
  }
  template <class Append>
  void entry(const char* contents, const Append& append) {
    container('e', contents, append);
  }
  template <class Append>
  void variant(const char* contents, const Append& append) {
    container('v', contents, append);
  }

 private:
  friend class SystemBus;
  BusArguments(const SystemdFunctions& systemd, sd_bus_message* message, int result)
      : systemd_(systemd), message_(message), result_(result) {}

  template <class Append>
  void container(char type, const char* contents, const Append& append) {
    open(type, contents);
    append();
    close();
  }
  void open(char type, const char* contents);
  void close();

  const SystemdFunctions& systemd_;
  sd_bus_message* message_;
  int result_;
  std::size_t textSize_ = 0;
};

/// A connection of its own to the system bus (the one DBUS_SYSTEM_BUS_ADDRESS names, if it is set), for one
/// thread. It is closed when the object goes.
class SystemBus {
 public:
  /// Starts connecting; does not wait for the bus. The error names the cause.
  static Result<SystemBus> open();

  /// Sends a signal with the arguments that `append` gives it, and returns once the bus has it. Fails when
  /// that takes longer than a few seconds, so that a bus that does not answer cannot block the caller; the
  /// signal may then be lost. Nothing is sent when an argument cannot be.
  Result<> send(const BusSignal& signal, const std::function<void(BusArguments&)>& append);

 private:
  using Connection = std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)>;
  SystemBus(const SystemdFunctions& systemd, Connection bus) : systemd_(&systemd), bus_(std::move(bus)) {}

  Result<> queue(const BusSignal& signal, const std::function<void(BusArguments&)>& append);
  Result<> deliver();

  const SystemdFunctions* systemd_;
  Connection bus_;
};

}  // namespace roster
