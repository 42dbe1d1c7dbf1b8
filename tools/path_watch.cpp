#include "tools/path_watch.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <system_error>

#include "tools/command_error.h"

namespace roster::tool {

namespace {

namespace fs = std::filesystem;

/// A link or a folder is made at once, a file counts when it has been written. Permissions decide what can be
/// read.
constexpr std::uint32_t ofEntries =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ATTRIB;
constexpr std::uint32_t ofFolderItself = IN_DELETE_SELF | IN_MOVE_SELF;

/// As the system follows them.
constexpr int mostLinks = 40;

CommandError watchError(const std::string& path, int number) {
  // The system's own text would speak of the disk.
  const std::string why = number == ENOSPC ? "there are too many watches (fs.inotify.max_user_watches)"
                                           : std::generic_category().message(number);
  return {"could not watch " + path, why};
}

int makeQueue(const std::string& path) {
  const int number = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (number == -1) throw watchError(path, errno);
  return number;
}

/// Puts the components of a path before those that are still to be followed.
void prepend(const fs::path& path, std::deque<std::string>& components) {
  const fs::path relative = path.relative_path();
  components.insert(components.begin(), relative.begin(), relative.end());
}

}  // namespace

PathWatch::PathWatch(std::string path) : path_(std::move(path)), queue_(makeQueue(path_)) { followPath(); }

/// Watches every folder on the way: only its parent tells that a folder was moved, removed or made. Each is
/// watched before it is looked into, so that whatever changes behind our back is heard of and followed anew.
void PathWatch::followPath() {
  Watches watches;
  std::deque<std::string> components;
  prepend(path_, components);
  fs::path folder = "/";
  for (int links = 0; !components.empty() && links <= mostLinks;) {
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
  for (const auto& [number, names] : watches_) {
    // It may have ended by itself, with its folder.
    if (!watches.contains(number)) inotify_rm_watch(queue_.number(), number);
  }
  watches_ = std::move(watches);
}

/// Whether the folder is there.
bool PathWatch::watchFolder(const std::string& folder, const std::string& name, Watches& watches) const {
  const int number =
      inotify_add_watch(queue_.number(), folder.c_str(), ofEntries | ofFolderItself | IN_ONLYDIR);
  if (number != -1) {
    watches[number].insert(name);
    return true;
  }
  const int reason = errno;
  if (reason == ENOENT || reason == ENOTDIR) return false;
  // Folders near the root may be there to pass through only. They seldom change; the last one always does.
  std::error_code ignored;
  const fs::path next = fs::path(folder) / name;
  if (reason == EACCES && fs::is_directory(next, ignored)) return true;
  throw watchError(folder, reason);
}

bool PathWatch::takeEvents() {
  constexpr std::size_t capacity = 65536;
  alignas(inotify_event) std::array<char, capacity> buffer{};
  const ssize_t length = read(queue_.number(), buffer.data(), buffer.size());
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
