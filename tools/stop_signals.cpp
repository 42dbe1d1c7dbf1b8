#include "tools/stop_signals.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "tools/command_error.h"

namespace roster::tool {

namespace {

int blockAndQueue() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  const int reason = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int number = reason == 0 ? signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK) : -1;
  if (number == -1) {
    throw CommandError("could not wait for signals",
                       std::generic_category().message(reason == 0 ? errno : reason));
  }
  return number;
}

}  // namespace

StopSignals::StopSignals() : queue_(blockAndQueue()) {}

}  // namespace roster::tool
