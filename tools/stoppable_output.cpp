#include "tools/stoppable_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <utility>

namespace roster::tool {

StoppableOutput::StoppableOutput(std::ostream& stream, int fd, const StopSignals& stop)
    : stream_(stream), own_(stream.rdbuf()), fd_(fd), stop_(stop) {
  stream_.flush();
  stream_.rdbuf(this);
}

StoppableOutput::~StoppableOutput() { stream_.rdbuf(own_); }

StoppableOutput::int_type StoppableOutput::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    pending_ += traits_type::to_char_type(character);
  }
  return traits_type::not_eof(character);
}

std::streamsize StoppableOutput::xsputn(const char* text, std::streamsize length) {
  pending_.append(text, static_cast<std::size_t>(length));
  return length;
}

int StoppableOutput::sync() {
  const std::string text = std::exchange(pending_, {});
  // Where there is room at all, a pipe takes this much without a wait.
  constexpr std::size_t maximumAtOnce = PIPE_BUF;
  for (std::string_view rest = text; !rest.empty();) {
    if (isUnwanted_ || !waitForRoom()) return -1;
    const ssize_t written = write(fd_, rest.data(), std::min(rest.size(), maximumAtOnce));
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      isUnwanted_ = errno == EPIPE;
      return -1;
    }
  }
  return 0;
}

/// Returns whether a write can be tried; when not, it is given up.
bool StoppableOutput::waitForRoom() {
  std::array<pollfd, 2> all{{{fd_, POLLOUT, 0}, {stop_.fd(), POLLIN, 0}}};
  while (poll(all.data(), all.size(), -1) == -1) {
    if (errno != EINTR) return false;
  }
  const auto& [output, stop] = all;
  isUnwanted_ = output.revents == 0 && stop.revents != 0;
  return !isUnwanted_;
}

}  // namespace roster::tool
