#include "roster/platform/linux/system_bus.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>

namespace roster {

namespace {

/// How long the bus may take for one signal. Whoever sends one is in the middle of something else.
constexpr std::chrono::microseconds timeout = std::chrono::seconds(2);

/// What an array of a message may hold. A bus that is sent more closes the connection and does not say why.
constexpr std::size_t maximumText = std::size_t{64} << 20;

/// sd-bus reports failures as negated error numbers.
Error busError(std::string_view operation, int result) {
  const std::error_code code(-result, std::generic_category());
  return {code, std::string(operation) + ": " + code.message()};
}

struct MessageCloser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

struct SlotCloser {
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// Notes that the bus has replied to a call. When the connection ends, sd-bus itself replies to all open
/// calls; that does not count.
int noteAnswer(sd_bus_message* answer, void* isAnswered, sd_bus_error* /*unused*/) {
  if (sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) <= 0)
    *static_cast<bool*>(isAnswered) = true;
  return 0;
}

}  // namespace

void BusArguments::text(std::string_view text) {
  if (result_ < 0) return;
  textSize_ += text.size();
  if (textSize_ > maximumText) {
    result_ = -EMSGSIZE;
  } else if (text.find('\0') != std::string_view::npos) {
    result_ = -EINVAL;  // It would end there.
  } else {
    result_ = sd_bus_message_append_basic(message_, 's', std::string(text).c_str());
  }
}

void BusArguments::number(std::int32_t number) {
  if (result_ >= 0) result_ = sd_bus_message_append_basic(message_, 'i', &number);
}

void BusArguments::open(char type, const char* contents) {
  if (result_ >= 0) result_ = sd_bus_message_open_container(message_, type, contents);
}

void BusArguments::close() {
  if (result_ >= 0) result_ = sd_bus_message_close_container(message_);
}

void SystemBus::Closer::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

Result<SystemBus> SystemBus::open() {
  sd_bus* bus = nullptr;
  const int result = sd_bus_open_system(&bus);
  if (result < 0) return busError("could not open the system bus", result);
  return SystemBus(bus);
}

Result<> SystemBus::send(const BusSignal& signal, const std::function<void(BusArguments&)>& append) {
  Result<> queued = queue(signal, append);
  if (!queued) return queued;
  return deliver();
}

Result<> SystemBus::queue(const BusSignal& signal, const std::function<void(BusArguments&)>& append) {
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_signal(bus_.get(), &created, signal.path, signal.interface, signal.member);
  const std::unique_ptr<sd_bus_message, MessageCloser> message(created);
  BusArguments arguments(message.get(), result);
  append(arguments);
  result = arguments.result_;
  if (result < 0) return busError("could not make the signal", result);
  result = sd_bus_send(bus_.get(), message.get(), nullptr);
  if (result < 0) return busError("could not send to the system bus", result);
  return {};
}

/// A signal that has been written may still be refused. So the bus is asked something, and its answer,
/// whatever it is, says that it has taken all that went before. sd_bus_call would wait for as long as the bus
/// likes.
Result<> SystemBus::deliver() {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + timeout;
  constexpr const char* bus = "org.freedesktop.DBus";
  bool isAnswered = false;
  sd_bus_slot* created = nullptr;
  int result = sd_bus_call_method_async(bus_.get(), &created, bus, "/org/freedesktop/DBus", bus, "GetId",
                                        &noteAnswer, &isAnswered, "");
  const std::unique_ptr<sd_bus_slot, SlotCloser> slot(created);
  if (result < 0) return busError("could not send to the system bus", result);
  while (true) {
    result = sd_bus_process(bus_.get(), nullptr);
    if (result < 0) return busError("could not talk to the system bus", result);
    if (isAnswered) return {};
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return busError("the system bus does not answer", -ETIMEDOUT);
    if (result > 0) continue;
    result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) return busError("could not wait for the system bus", result);
  }
}

}  // namespace roster
