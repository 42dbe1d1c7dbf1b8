#include "tools/path_watch.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <system_error>

#include "tools/commands.h"

namespace roster::tool {

namespace {

namespace fs = std::filesystem;

/// A link or a folder is complete when it is created, a file when it has been written and closed. A change of
/// permissions changes what can be read.
constexpr std::uint32_t ofEntries =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ATTRIB;
constexpr std::uint32_t ofFolderItself = IN_DELETE_SELF | IN_MOVE_SELF;

/// As many as the system itself follows.
constexpr int maximumLinks = 40;

CommandError watchError(const std::string& path, int errorNumber) {
  // The system's own text would speak of the disk.
  const std::string why = errorNumber == ENOSPC ? "there are too many watches (fs.inotify.max_user_watches)"
                                                : std::generic_category().message(errorNumber);
  return {"could not watch " + path, why};
}

int makeQueue(const std::string& path) {
  const int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (fd == -1) throw watchError(path, errno);
  return fd;
}

/// Puts the components of a path before those that are still to be followed.
void prepend(const fs::path& path, std::deque<std::string>& components) {
  const fs::path relative = path.relative_path();
  components.insert(components.begin(), relative.begin(), relative.end());
}

}  // namespace

PathWatch::PathWatch(std::string path) : path_(std::move(path)), queue_(makeQueue(path_)) { followPath(); }

/// Watches every folder on the way: only its parent tells that a folder was moved, removed or made. Each is
/// watched before it is looked into, so that a change that happens meanwhile is noticed and the path followed
/// again.
void PathWatch::followPath() {
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
    if (!watchFolder(folder, name, watches)) break;
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
}

/// Returns whether the folder exists.
bool PathWatch::watchFolder(const std::string& folder, const std::string& name, Watches& watches) const {
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
  throw watchError(folder, errorNumber);
}

bool PathWatch::takeEvents() {
  constexpr std::size_t capacity = 65536;
  alignas(inotify_event) std::array<char, capacity> buffer{};
  const ssize_t length = read(queue_.fd(), buffer.data(), buffer.size());
  if (length == -1) {
    if (errno == EAGAIN || errno == EINTR) return false;
    throw watchError(path_, errno);
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
    if (isOverflow || (watch != watches_.end() && (name.empty() || watch->second.contains(name)))) {
      isConcerned = true;
    }
  }
  if (isConcerned) followPath();
  return isConcerned;
}

}  // namespace roster::tool
