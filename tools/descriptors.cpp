#include "tools/descriptors.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "tools/commands.h"

namespace roster::tool {

namespace {

int blockAndQueue() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  const int errorNumber = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int fd = errorNumber == 0 ? signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK) : -1;
  if (fd == -1) {
    throw CommandError("could not wait for signals",
                       std::generic_category().message(errorNumber == 0 ? errno : errorNumber));
  }
  return fd;
}

}  // namespace

StopSignals::StopSignals() : queue_(blockAndQueue()) {}

}  // namespace roster::tool
