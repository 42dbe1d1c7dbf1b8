#include "roster/platform/path_watch.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

namespace fs = std::filesystem;

/// A link or a folder is complete when it is created, a file when it has been written and closed. A change of
/// permissions changes what can be read.
constexpr std::uint32_t ofEntries =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ATTRIB;
constexpr std::uint32_t ofFolderItself = IN_DELETE_SELF | IN_MOVE_SELF;

/// As many as the system itself follows.
constexpr int maximumLinks = 40;

Error watchError(const std::string& path, int errorNumber) {
  Error error = systemError("watch", path, errorNumber);
  // The system's own text would speak of the disk.
  if (errorNumber == ENOSPC)
    error.message = "could not watch " + path + ": there are too many watches (fs.inotify.max_user_watches)";
  return error;
}

/// Puts the components of a path before those that are still to be followed.
void prepend(const fs::path& path, std::deque<std::string>& components) {
  const fs::path relative = path.relative_path();
  components.insert(components.begin(), relative.begin(), relative.end());
}

class InotifyWatch : public PathWatch {
 public:
  explicit InotifyWatch(std::string path)
      : path_(std::move(path)),
        queue_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
        wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        both_(epoll_create1(EPOLL_CLOEXEC)) {}

  Result<> begin() {
    if (!queue_ || !wakeUp_ || !both_) return watchError(path_, errno);
    for (const FileDescriptor* each : {&queue_, &wakeUp_}) {
      epoll_event event{};
      event.events = EPOLLIN;
      if (epoll_ctl(both_.fd(), EPOLL_CTL_ADD, each->fd(), &event) == -1) return watchError(path_, errno);
    }
    return followPath();
  }

  int descriptor() const override { return both_.fd(); }
  Result<bool> takeEvents() override;
  void wake() override { static_cast<void>(eventfd_write(wakeUp_.fd(), 1)); }

 private:
  /// The names that count in each watched folder, by its watch.
  using Watches = std::map<int, std::set<std::string, std::less<>>>;

  Result<> followPath();
  Result<bool> watchFolder(const std::string& folder, const std::string& name, Watches& watches) const;
  Result<bool> takeQueued() const;

  std::string path_;
  FileDescriptor queue_;
  FileDescriptor wakeUp_;
  FileDescriptor both_;
  Watches watches_;
  /// Whether the path could not be followed the last time.
  bool isLost_ = false;
  /// Whether something has happened that `takeEvents` could not tell yet.
  bool isConcerned_ = false;
};

/// Watches every folder on the way: only its parent tells that a folder was moved, removed or made. Each is
/// watched before it is looked into, so that a change that happens meanwhile is noticed and the path followed
/// again.
Result<> InotifyWatch::followPath() {
  isLost_ = true;
  Watches watches;
  std::deque<std::string> components;
  prepend(path_, components);
  fs::path folder = "/";
  for (int links = 0; !components.empty() && links <= maximumLinks;) {
    const std::string name = components.front();
    components.pop_front();
    if (name.empty() || name == ".") continue;
    if (name == "..") {
      folder = folder.parent_path();
      continue;
    }
    const Result<bool> isThere = watchFolder(folder, name, watches);
    if (!isThere) return isThere.error();
    if (!*isThere) break;
    std::error_code noLink;
    const fs::path target = fs::read_symlink(folder / name, noLink);
    if (noLink) {
      folder /= name;
    } else {
      if (target.is_absolute()) folder = "/";
      prepend(target, components);
      ++links;
    }
  }
  for (const auto& [watch, names] : watches_) {
    // It fails when the watch has ended by itself, with its folder.
    if (!watches.contains(watch)) inotify_rm_watch(queue_.fd(), watch);
  }
  watches_ = std::move(watches);
  isLost_ = false;
  return {};
}

/// Returns whether the folder exists.
Result<bool> InotifyWatch::watchFolder(const std::string& folder, const std::string& name,
                                       Watches& watches) const {
  const int watch = inotify_add_watch(queue_.fd(), folder.c_str(), ofEntries | ofFolderItself | IN_ONLYDIR);
  if (watch != -1) {
    watches[watch].insert(name);
    return true;
  }
  const int errorNumber = errno;
  if (errorNumber == ENOENT || errorNumber == ENOTDIR) return false;
  // Folders near the root may permit passing through only. They seldom change; the last folder often does.
  std::error_code ignored;
  const fs::path next = fs::path(folder) / name;
  if (errorNumber == EACCES && fs::is_directory(next, ignored)) return true;
  return watchError(folder, errorNumber);
}

Result<bool> InotifyWatch::takeEvents() {
  eventfd_t calls = 0;
  const bool isWoken = eventfd_read(wakeUp_.fd(), &calls) == 0;
  Result<bool> isPathConcerned = takeQueued();
  if (!isPathConcerned) return isPathConcerned;
  isConcerned_ = isConcerned_ || isWoken || *isPathConcerned;
  if (*isPathConcerned || isLost_) {
    if (const Result<> followed = followPath(); !followed) return followed.error();
  }
  return std::exchange(isConcerned_, false);
}

Result<bool> InotifyWatch::takeQueued() const {
  constexpr std::size_t capacity = 65536;
  alignas(inotify_event) std::array<char, capacity> buffer{};
  const ssize_t length = retrying([&] { return read(queue_.fd(), buffer.data(), buffer.size()); });
  if (length == -1) {
    if (errno == EAGAIN) return false;
    return watchError(path_, errno);
  }
  bool isConcerned = false;
  for (std::size_t offset = 0; offset < static_cast<std::size_t>(length);) {
    inotify_event event{};
    std::memcpy(&event, buffer.data() + offset, sizeof event);
    const std::string_view name = event.len == 0 ? "" : buffer.data() + offset + sizeof event;
    offset += sizeof event + event.len;
    const auto watch = watches_.find(event.wd);
    const bool isOverflow = (event.mask & IN_Q_OVERFLOW) != 0;
    // A folder's own events have no name.
    if (isOverflow || (watch != watches_.end() && (name.empty() || watch->second.contains(name))))
      isConcerned = true;
  }
  return isConcerned;
}

}  // namespace

Result<std::unique_ptr<PathWatch>> watchPath(std::string path) {
  auto watch = std::make_unique<InotifyWatch>(std::move(path));
  if (const Result<> begun = watch->begin(); !begun) return begun.error();
  return std::unique_ptr<PathWatch>(std::move(watch));
}

}  // namespace roster
