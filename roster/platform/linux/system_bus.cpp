#include "roster/platform/linux/system_bus.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>

#include "roster/platform/linux/systemd_library.h"

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

/// Whether the bus has replied to a call.
struct Reply {
  const SystemdFunctions* systemd = nullptr;
  bool hasCome = false;
};

/// Notes that the bus has replied. When the connection ends, sd-bus itself replies to all open calls; that
/// does not count.
int noteReply(sd_bus_message* message, void* context, sd_bus_error* /*unused*/) {
  auto& reply = *static_cast<Reply*>(context);
  if (reply.systemd->busMessageIsMethodError(message, SD_BUS_ERROR_NO_REPLY) <= 0) reply.hasCome = true;
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
    result_ = systemd_.busMessageAppendBasic(message_, 's', std::string(text).c_str());
  }
}

void BusArguments::number(std::int32_t number) {
  if (result_ >= 0) result_ = systemd_.busMessageAppendBasic(message_, 'i', &number);
}

void BusArguments::open(char type, const char* contents) {
  if (result_ >= 0) result_ = systemd_.busMessageOpenContainer(message_, type, contents);
}

void BusArguments::close() {
  if (result_ >= 0) result_ = systemd_.busMessageCloseContainer(message_);
}

Result<SystemBus> SystemBus::open() {
  constexpr const char* operation = "could not open the system bus";
  const Result<const SystemdFunctions*> systemd = systemdFunctions();
  if (!systemd)
    return Error(systemd.error().code, std::string(operation).append(": ").append(systemd.error().message));
  sd_bus* bus = nullptr;
  const int result = (*systemd)->busOpenSystem(&bus);
  if (result < 0) return busError(operation, result);
  return SystemBus(**systemd, Connection(bus, (*systemd)->busCloseUnref));
}

Result<> SystemBus::send(const BusSignal& signal, const std::function<void(BusArguments&)>& append) {
  Result<> queued = queue(signal, append);
  if (!queued) return queued;
  return deliver();
}

Result<> SystemBus::queue(const BusSignal& signal, const std::function<void(BusArguments&)>& append) {
  sd_bus_message* created = nullptr;
  int result =
      systemd_->busMessageNewSignal(bus_.get(), &created, signal.path, signal.interface, signal.member);
  const std::unique_ptr<sd_bus_message, decltype(systemd_->busMessageUnref)> message(
      created, systemd_->busMessageUnref);
  BusArguments arguments(*systemd_, message.get(), result);
  append(arguments);
  result = arguments.result_;
  if (result < 0) return busError("could not make the signal", result);
  result = systemd_->busSend(bus_.get(), message.get(), nullptr);
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
  Reply reply{.systemd = systemd_};
  sd_bus_slot* created = nullptr;
  int result = systemd_->busCallMethodAsync(bus_.get(), &created, bus, "/org/freedesktop/DBus", bus, "GetId",
                                            &noteReply, &reply, "");
  const std::unique_ptr<sd_bus_slot, decltype(systemd_->busSlotUnref)> slot(created, systemd_->busSlotUnref);
  if (result < 0) return busError("could not send to the system bus", result);
  while (true) {
    result = systemd_->busProcess(bus_.get(), nullptr);
    if (result < 0) return busError("could not talk to the system bus", result);
    if (reply.hasCome) return {};
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return busError("the system bus does not answer", -ETIMEDOUT);
    if (result > 0) continue;
    result = systemd_->busWait(bus_.get(), static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) return busError("could not wait for the system bus", result);
  }
}

}  // namespace roster
