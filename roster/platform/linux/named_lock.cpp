#include "roster/platform/named_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <optional>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_replacement.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

/// flock(2) belongs to the open file, so one opened for each object makes every object a holder of its own.
class FileLock : public NamedLock {
 public:
  explicit FileLock(FileDescriptor file) : file_(std::move(file)) {}

  void release() override { file_ = FileDescriptor(); }

 private:
  FileDescriptor file_;
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

/// Opens what stands at the path, for nothing but locking. Without O_NONBLOCK, opening a pipe would wait.
FileDescriptor openFile(const std::string& path) {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return FileDescriptor(retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), flags, 0); }));
}

Result<FileDescriptor> openOrMakeFile(const std::string& path, const struct stat* model) {
  FileDescriptor file = openFile(path);
  if (!file && errno == ENOENT) {
    const std::string folder = folderOf(path);
    if (const Result<FileDescriptor> made = openOrMakeFolder(folder); !made) return made.error();
    if (const Result<> made = makeFile(folder, path, model); !made) return made.error();
    file = openFile(path);
  }
  if (!file) return systemError("open", path, errno);
  return file;
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

Result<std::shared_ptr<NamedLock>> takeNamedLock(std::string_view name, const std::string& modelPath) {
  const std::string path = joinPath(deviceRoot() + "/var/lib/roster", name);
  const std::optional<struct stat> found = modelPath.empty() ? std::nullopt : modelOf(modelPath);
  const struct stat* model = found ? &*found : nullptr;
  while (true) {
    Result<FileDescriptor> file = openOrMakeFile(path, model);
    if (!file) return file.error();
    struct stat status {};
    if (fileCalls().fstat(file->fd(), &status) == -1) return systemError("examine", path, errno);
    if (!S_ISREG(status.st_mode))
      return Error(std::errc::invalid_argument, "could not use " + path + ": it is not a regular file");
    if (retrying([&] { return flock(file->fd(), LOCK_EX); }) == -1) return systemError("lock", path, errno);
    if (!isStillAt(path, status)) continue;
    // The folder only stands in for a file that has yet to be made.
    if (model != nullptr && fileType(modelPath) == FileType::regular && hasToFollow(status, *model))
      static_cast<void>(adoptAccess(file->fd(), *model, path));
    return std::shared_ptr<NamedLock>(std::make_shared<FileLock>(*std::move(file)));
  }
}

}  // namespace roster
