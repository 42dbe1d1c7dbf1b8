#include "platform/linux/system_bus.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <system_error>

namespace roster {

namespace {

/// How long the bus may take for one signal. Whoever sends one is in the middle of something else.
constexpr std::chrono::microseconds patience = std::chrono::seconds(2);

/// sd-bus reports failures as negated error numbers.
Error busError(std::string_view operation, int result) {
  return {std::string(operation) + ": " + std::generic_category().message(-result)};
}

struct MessageCloser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

}  // namespace

void SystemBus::Closer::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

Result<SystemBus> SystemBus::open() {
  sd_bus* bus = nullptr;
  const int result = sd_bus_open_system(&bus);
  if (result < 0) return busError("could not open the system bus", result);
  return SystemBus(bus);
}

std::optional<Error> SystemBus::send(const BusSignal& signal, std::initializer_list<std::string> arguments) {
  if (auto error = queue(signal, arguments)) return error;
  return deliver();
}

std::optional<Error> SystemBus::queue(const BusSignal& signal, std::initializer_list<std::string> arguments) {
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_signal(bus_.get(), &created, signal.path, signal.interface, signal.member);
  const std::unique_ptr<sd_bus_message, MessageCloser> message(created);
  for (const std::string& argument : arguments) {
    if (result >= 0) result = sd_bus_message_append_basic(message.get(), 's', argument.c_str());
  }
  if (result < 0) return busError("could not make the signal", result);
  result = sd_bus_send(bus_.get(), message.get(), nullptr);
  if (result < 0) return busError("could not send to the system bus", result);
  return std::nullopt;
}

/// sd_bus_flush would wait for as long as the bus likes.
std::optional<Error> SystemBus::deliver() {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + patience;
  while (true) {
    int result = sd_bus_process(bus_.get(), nullptr);
    if (result < 0) return busError("could not talk to the system bus", result);
    std::uint64_t unsent = 0;
    if (sd_bus_is_ready(bus_.get()) > 0 && sd_bus_get_n_queued_write(bus_.get(), &unsent) >= 0 &&
        unsent == 0) {
      return std::nullopt;
    }
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return busError("the system bus does not answer", -ETIMEDOUT);
    if (result > 0) continue;
    result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) return busError("could not wait for the system bus", result);
  }
}

}  // namespace roster
