#include "roster/platform/named_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <atomic>

#include "roster/platform/device.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/file_descriptor.h"
#include "roster/platform/linux/new_file.h"

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
int makeFolder(const std::string& folder) {
  constexpr mode_t everybodysOwnFiles = S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;
  if (fileCalls().mkdir(folder.c_str(), everybodysOwnFiles) == -1) return errno == EEXIST ? 0 : errno;
  // What the process masks out of new files must not keep other users out.
  const FileDescriptor made(
      fileCalls().openat(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0));
  return made && fileCalls().fchmod(made.number(), everybodysOwnFiles) == 0 ? 0 : errno;
}

/// Makes the file under another name and gives it its own name only when every user may open it: another
/// process must not find it half made.
int makeFile(const std::string& path) {
  constexpr mode_t everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
  static std::atomic<unsigned> counter = 0;
  NewFile file;
  std::string name;
  int number = 0;
  do {  // An earlier process with this identifier may have died here and left its file behind.
    name = path + "." + std::to_string(getpid()) + "." + std::to_string(counter++) + ".new";
    number = file.create(AT_FDCWD, name);
  } while (number == EEXIST);
  if (number == 0) number = file.setMode(everybody);
  if (number == 0 && fileCalls().linkat(AT_FDCWD, name.c_str(), AT_FDCWD, path.c_str(), 0) == -1) {
    number = errno;
  }
  return number == EEXIST ? 0 : number;
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
    int number = makeFolder(folder);
    if (number == 0) number = makeFile(path);
    if (number != 0) return systemError("create", path, number);
    file = openFile(path);
  }
  if (!file) return systemError("open", path, errno);
  struct stat status {};
  if (fileCalls().fstat(file.number(), &status) == -1) return systemError("examine", path, errno);
  if (!S_ISREG(status.st_mode))
    return Error(std::errc::invalid_argument, "could not use " + path + ": it is not a regular file");
  if (retrying([&] { return flock(file.number(), LOCK_EX); }) == -1) return systemError("lock", path, errno);
  return std::shared_ptr<NamedLock>(std::make_shared<FileLock>(std::move(file)));
}

}  // namespace roster
