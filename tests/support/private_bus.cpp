#include "tests/support/private_bus.h"

#include <systemd/sd-bus.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace roster::testing {

namespace {

constexpr std::uint64_t maximumWait = 30'000'000;  // microseconds

int require(int result, const char* operation) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), operation);
  return result;
}

std::vector<std::string> contents(sd_bus_message* message) {
  std::vector<std::string> parts{sd_bus_message_get_path(message), sd_bus_message_get_member(message)};
  const char* text = nullptr;
  while (sd_bus_message_read_basic(message, 's', &text) > 0) parts.emplace_back(text);
  return parts;
}

}  // namespace

PrivateBus::PrivateBus(const TemporaryDevice& device) {
  const std::string file = device.writeFile(
      "run/bus.conf", "<busconfig><listen>unix:path=" + device.busSocket() +
                          "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                          "<allow own=\"*\"/><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                          "<allow eavesdrop=\"true\"/></policy></busconfig>");
  // The bus prints its process identifier once it listens.
  const std::string command = "exec dbus-daemon --nofork --print-pid=1 --config-file='" + file + "'";
  output_ = popen(command.c_str(), "re");  // NOLINT(cert-env33-c): the path is the test's own
  std::array<char, 32> line{};
  if (output_ == nullptr || std::fgets(line.data(), line.size(), output_) == nullptr)
    throw std::runtime_error("could not start dbus-daemon");
  daemon_ = std::stoi(line.data());
}

PrivateBus::~PrivateBus() {
  kill(daemon_, SIGTERM);
  pclose(output_);
}

SignalListener::SignalListener(const std::string& interface) {
  sd_bus* bus = nullptr;
  require(sd_bus_open_system(&bus), "could not open the test's bus");
  bus_ = {bus, sd_bus_close_unref};
  const std::string match = "type='signal',interface='" + interface + "'";
  const auto hear = [](sd_bus_message* message, void* heard, sd_bus_error*) {
    static_cast<decltype(heard_)*>(heard)->push_back(contents(message));
    return 0;
  };
  // Returns when the bus has confirmed it.
  require(sd_bus_add_match(bus, nullptr, match.c_str(), hear, &heard_), "could not listen");
}

std::vector<std::string> SignalListener::next() {
  while (heard_.empty()) {
    if (require(sd_bus_process(bus_.get(), nullptr), "could not process the test's bus") > 0) continue;
    if (require(sd_bus_wait(bus_.get(), maximumWait), "could not wait for the test's bus") == 0)
      throw std::runtime_error("no signal came");
  }
  std::vector<std::string> first = heard_.front();
  heard_.erase(heard_.begin());
  return first;
}

}  // namespace roster::testing
