#include "roster/platform/lock_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <thread>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_replacement.h"
#include "roster/platform/linux/lock_descriptor.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

/// flock(2) belongs to the open file, so one opened for each object makes every object a holder of its own.
class FileLock : public NamedLock {
 public:
  LockDescriptor& file() { return file_; }

  bool isHeld() const override { return file_.isOpen(); }
  void release() override { file_.release(); }

 private:
  LockDescriptor file_;
};

/// The file, or else a private one of the owner of the nearest folder above it that exists.
std::optional<struct stat> modelOf(std::string path) {
  constexpr mode_t forOwner = S_IRUSR | S_IWUSR;
  for (bool isFile = true; path.size() > 1; isFile = false, path = folderOf(path)) {
    struct stat status {};
    if (fileCalls().fstatat(AT_FDCWD, path.c_str(), &status, 0) == -1) continue;
    if (!isFile || !S_ISREG(status.st_mode)) status.st_mode = forOwner;
    return status;
  }
  return std::nullopt;
}

/// Makes the file without a name and names it when it has its access, so that nobody finds it half made and a
/// process that is killed leaves nothing behind. Where files must have names from the start it is made under
/// its own, and gets its access as soon as it is locked.
Result<> makeFile(const std::string& folder, const std::string& path, const struct stat* model) {
  constexpr mode_t forOwner = S_IRUSR | S_IWUSR;
  constexpr int unnamed = O_TMPFILE | O_RDWR | O_CLOEXEC;
  constexpr int named = O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC;
  const FileDescriptor file(
      retrying([&] { return fileCalls().openat(AT_FDCWD, folder.c_str(), unnamed, forOwner); }));
  if (file) {
    if (model != nullptr) static_cast<void>(adoptAccess(file.fd(), *model, path));
    const std::string link = "/proc/self/fd/" + std::to_string(file.fd());
    if (fileCalls().linkat(AT_FDCWD, link.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) return {};
    if (errno == EEXIST) return {};
  }
  const FileDescriptor other(
      retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), named, forOwner); }));
  if (!other && errno != EEXIST) return systemError("create", path, errno);
  return {};
}

Result<> openOrMakeFile(LockDescriptor& file, const std::string& path, const struct stat* model) {
  if (file.open(path)) return {};
  if (errno == ENOENT) {
    const std::string folder = folderOf(path);
    if (const Result<FileDescriptor> made = openOrMakeFolder(folder); !made) return made.error();
    if (Result<> made = makeFile(folder, path, model); !made) return made;
    if (file.open(path)) return {};
  }
  return systemError("open", path, errno);
}

/// Fails with EWOULDBLOCK when the deadline has passed. Who has just come pauses as long as who has been
/// waiting, or else a process that comes again and again would always be the first to find the lock free. In
/// a long wait a few milliseconds more do not matter.
int lockUntil(int fd, const Deadline& deadline) {
  using namespace std::chrono;
  if (!deadline) return retrying([&] { return flock(fd, LOCK_EX); });
  const steady_clock::time_point start = steady_clock::now();
  while (true) {
    const int result = retrying([&] { return flock(fd, LOCK_EX | LOCK_NB); });
    if (result == 0 || errno != EWOULDBLOCK) return result;
    const steady_clock::time_point now = steady_clock::now();
    if (now >= *deadline) {
      errno = EWOULDBLOCK;
      return -1;
    }
    const nanoseconds typical = now - start < 1s ? 1ms : 5ms;
    // The last digits of the clock are chance enough to keep those who wait from coming all at once.
    const nanoseconds pause = typical / 2 + now.time_since_epoch() % typical;
    std::this_thread::sleep_for(std::min<nanoseconds>(pause, *deadline - now));
  }
}

/// Whether the path names the very file: what was locked may have been moved or replaced meanwhile, and
/// somebody else may then hold the lock that everybody sees.
bool isStillAt(const std::string& path, const struct stat& file) {
  struct stat found {};
  return fileCalls().fstatat(AT_FDCWD, path.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
         found.st_dev == file.st_dev && found.st_ino == file.st_ino;
}

/// Whether the lock's file has to follow a change of the model's access. One with another name as well may be
/// somebody else's file.
bool hasToFollow(const struct stat& file, const struct stat& model) {
  constexpr mode_t permissions = S_ISUID | S_ISGID | S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;
  return file.st_nlink == 1 && (file.st_uid != model.st_uid || file.st_gid != model.st_gid ||
                                (file.st_mode & permissions) != (model.st_mode & permissions));
}

}  // namespace

std::string lockFilePath(std::string_view name) { return joinPath(deviceRoot() + "/var/lib/roster", name); }

Result<std::shared_ptr<NamedLock>> takeNamedLock(std::string_view name, const std::string& modelPath) {
  return takeLockFile(lockFilePath(name), modelPath, std::nullopt);
}

Result<std::shared_ptr<NamedLock>> takeLockFile(const std::string& path, const std::string& modelPath,
                                                const Deadline& deadline) {
  const std::optional<struct stat> found = modelPath.empty() ? std::nullopt : modelOf(modelPath);
  const struct stat* model = found ? &*found : nullptr;
  const auto lock = std::make_shared<FileLock>();
  LockDescriptor& file = lock->file();
  while (true) {
    if (const Result<> opened = openOrMakeFile(file, path, model); !opened) return opened.error();
    struct stat status {};
    if (fileCalls().fstat(file.fd(), &status) == -1) return systemError("examine", path, errno);
    if (!S_ISREG(status.st_mode))
      return Error(std::errc::invalid_argument, "could not use " + path + ": it is not a regular file");
    if (lockUntil(file.fd(), deadline) == -1)
      return systemError("lock", path, errno == EWOULDBLOCK ? ETIMEDOUT : errno);
    if (!isStillAt(path, status)) continue;
    // The folder only stands in for a file that has yet to be made.
    if (model != nullptr && fileType(modelPath) == FileType::regular && hasToFollow(status, *model))
      static_cast<void>(adoptAccess(file.fd(), *model, path));
    return std::shared_ptr<NamedLock>(lock);
  }
}

}  // namespace roster
