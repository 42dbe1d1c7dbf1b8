#include "roster/platform/event_loop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <systemd/sd-event.h>

#include <memory>

#include "roster/platform/linux/process_handle.h"

namespace roster {

namespace {

struct LoopReleaser {
  void operator()(sd_event* loop) const { sd_event_unref(loop); }
};
struct SourceReleaser {
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};

int noteNothing(sd_event_source* /*source*/, int /*file*/, std::uint32_t /*events*/, void* /*unused*/) {
  return 0;
}

/// False when the loop could not be run.
bool runOnce(std::chrono::microseconds atMost, const FileDescriptor& process) {
  sd_event* found = nullptr;
  if (sd_event_default(&found) < 0) return false;
  const std::unique_ptr<sd_event, LoopReleaser> loop(found);
  sd_event_source* added = nullptr;
  if (process && sd_event_add_io(loop.get(), &added, process.number(), EPOLLIN, &noteNothing, nullptr) < 0) {
    return false;
  }
  const std::unique_ptr<sd_event_source, SourceReleaser> source(added);
  return sd_event_run(loop.get(), static_cast<std::uint64_t>(atMost.count())) >= 0;
}

}  // namespace

void runEventLoop(std::chrono::microseconds atMost, std::int32_t watchedProcess) {
  using namespace std::chrono;
  const FileDescriptor process = processHandle(watchedProcess);
  if (!process && errno == ESRCH) return;
  if (runOnce(atMost, process)) return;
  pollfd end{.fd = process.number(), .events = POLLIN, .revents = 0};
  poll(&end, 1, static_cast<int>(ceil<milliseconds>(atMost).count()));
}

}  // namespace roster
