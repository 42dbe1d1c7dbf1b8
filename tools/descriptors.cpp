#include "tools/descriptors.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "roster/store/accounts_manager.h"
#include "tools/commands.h"

namespace roster::tool {

namespace {

int openFolder(EditLock::Folder folder) {
  const std::filesystem::path path =
      std::filesystem::path(AccountsManager::fullPathToRosterPlist()).parent_path();
  std::error_code ignored;
  if (folder == EditLock::Folder::madeIfMissing) std::filesystem::create_directories(path, ignored);
  return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

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

EditLock::EditLock(Folder folder) : folder_(openFolder(folder)) {
  if (folder_.fd() == -1) return;
  while (flock(folder_.fd(), LOCK_EX) == -1 && errno == EINTR) {
  }
}

StopSignals::StopSignals() : queue_(blockAndQueue()) {}

}  // namespace roster::tool
