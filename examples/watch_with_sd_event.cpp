#include <roster/roster.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <iostream>

/// Watches the registry from an sd-event loop, as a daemon does, and prints each change until it is
/// interrupted. With GLib or Qt it is the same descriptor, given to g_unix_fd_add or to a QSocketNotifier.

namespace {

int printChanges(sd_event_source*, int, std::uint32_t, void* data) {
  const auto done =
      static_cast<roster::RegistryWatch*>(data)->dispatch([](const roster::AccountChange& change) {
        constexpr const char* words[] = {"added", "modified", "removed"};
        std::cout << words[change.type] << ' ' << change.identifier().str() << std::endl;
        for (const auto& child : childChanges(change))
          std::cout << "  its child " << child.identifier().str() << " was " << words[child.type]
                    << std::endl;
      });
  if (!done) std::cerr << done.error().message << '\n';
  return 0;
}

}  // namespace

int main() {
  // Without a store it tells what is in the file; with one, `watchFor` brings it into the store as well.
  const auto watch = roster::RegistryWatch::watch();
  if (!watch) {
    std::cerr << watch.error().message << '\n';
    return 1;
  }
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  sd_event* loop = nullptr;
  if (sd_event_default(&loop) < 0) return 1;
  // Without a handler of ours, the signal ends the loop.
  if (sd_event_add_signal(loop, nullptr, SIGINT, nullptr, nullptr) < 0) return 1;
  if (sd_event_add_io(loop, nullptr, (*watch)->descriptor(), EPOLLIN, printChanges, watch->get()) < 0)
    return 1;
  const int result = sd_event_loop(loop);
  sd_event_unref(loop);
  return result < 0 ? 1 : 0;
}
