#include "roster/platform/named_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/new_file.h"
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

/// The folder is the device's /tmp; below another root it may have to be made, with the access that /tmp has.
Result<> makeFolder(const std::string& folder) {
  constexpr mode_t everybodysOwnFiles = S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  if (fileCalls().mkdir(folder.c_str(), everybodysOwnFiles) == -1) {
    if (errno == EEXIST) return {};
    return systemError("create", folder, errno);
  }
  // What the process masks out of new files must not keep other users out.
  const FileDescriptor made(fileCalls().openat(AT_FDCWD, folder.c_str(), flags, 0));
  if (!made || fileCalls().fchmod(made.fd(), everybodysOwnFiles) == -1)
    return systemError("set the mode of", folder, errno);
  return {};
}

/// A new file beside the path, under a name that nobody uses.
Result<NewFile> makeFileBeside(const std::string& path) {
  static std::atomic<unsigned> counter = 0;
  while (true) {
    std::string name = path + "." + std::to_string(getpid()) + "." + std::to_string(counter++) + ".new";
    Result<NewFile> file = NewFile::create(AT_FDCWD, std::move(name), path);
    // An earlier process with this identifier may have died here and left its file behind.
    if (file || file.error().code != std::errc::file_exists) return file;
  }
}

/// Makes the file under another name and gives it its own name only when every user may open it: another
/// process must not find it half made.
Result<> makeFile(const std::string& path) {
  constexpr mode_t everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
  const Result<NewFile> file = makeFileBeside(path);
  if (!file) return file.error();
  if (Result<> done = file->setMode(everybody); !done) return done;
  if (fileCalls().linkat(AT_FDCWD, file->name().c_str(), AT_FDCWD, path.c_str(), 0) == -1 && errno != EEXIST)
    return systemError("create", path, errno);
  return {};
}

/// Opens what stands at the path, for nothing but locking. Without O_NONBLOCK, opening a pipe would wait.
FileDescriptor openFile(const std::string& path) {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return FileDescriptor(retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), flags, 0); }));
}

}  // namespace

Result<std::shared_ptr<NamedLock>> takeNamedLock(std::string_view name) {
  const std::string folder = deviceRoot() + "/tmp";
  const std::string path = joinPath(folder, name);
  FileDescriptor file = openFile(path);
  if (!file && errno == ENOENT) {
    if (const Result<> done = makeFolder(folder); !done) return done.error();
    if (const Result<> done = makeFile(path); !done) return done.error();
    file = openFile(path);
  }
  if (!file) return systemError("open", path, errno);
  struct stat status {};
  if (fileCalls().fstat(file.fd(), &status) == -1) return systemError("examine", path, errno);
  if (!S_ISREG(status.st_mode))
    return Error(std::errc::invalid_argument, "could not use " + path + ": it is not a regular file");
  if (retrying([&] { return flock(file.fd(), LOCK_EX); }) == -1) return systemError("lock", path, errno);
  return std::shared_ptr<NamedLock>(std::make_shared<FileLock>(std::move(file)));
}

}  // namespace roster
