#include "tests/support/private_bus.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace roster::testing {

namespace {

constexpr std::uint64_t longTime = 30'000'000;  // microseconds

void require(int result, const char* operation) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), operation);
}

std::string configuration(const std::string& socket) {
  return "<busconfig><listen>unix:path=" + socket +
         "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/><allow own=\"*\"/>"
         "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/></policy></busconfig>";
}

std::vector<std::string> contents(sd_bus_message* message) {
  std::vector<std::string> parts{sd_bus_message_get_path(message), sd_bus_message_get_member(message)};
  const char* text = nullptr;
  while (sd_bus_message_read_basic(message, 's', &text) > 0) parts.emplace_back(text);
  return parts;
}

}  // namespace

PrivateBus::PrivateBus(const TemporaryDevice& device) {
  const std::string file = device.writeFile("run/bus.conf", configuration(device.busSocket()));
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  // The bus prints its address once it listens.
  std::array<std::string, 4> words{"dbus-daemon", "--config-file=" + file, "--nofork", "--print-address=1"};
  std::array<char*, 5> arguments{words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  const int error = posix_spawnp(&daemon_, "dbus-daemon", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe[1]);
  std::array<char, 512> address{};
  const ssize_t size = error == 0 ? read(pipe[0], address.data(), address.size()) : 0;
  close(pipe[0]);
  if (error != 0) throw std::system_error(error, std::generic_category(), "could not start dbus-daemon");
  if (size <= 0) {
    waitpid(daemon_, nullptr, 0);
    throw std::runtime_error("dbus-daemon did not start");
  }
}

PrivateBus::~PrivateBus() {
  kill(daemon_, SIGTERM);
  waitpid(daemon_, nullptr, 0);
}

void SignalListener::Closer::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

SignalListener::SignalListener(const std::string& interface) {
  sd_bus* bus = nullptr;
  require(sd_bus_open_system(&bus), "could not open the test's bus");
  bus_.reset(bus);
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
    const int processed = sd_bus_process(bus_.get(), nullptr);
    require(processed, "could not process the test's bus");
    if (processed > 0) continue;
    const int woken = sd_bus_wait(bus_.get(), longTime);
    require(woken, "could not wait for the test's bus");
    if (woken == 0) throw std::runtime_error("no signal came");
  }
  std::vector<std::string> first = heard_.front();
  heard_.erase(heard_.begin());
  return first;
}

}  // namespace roster::testing
