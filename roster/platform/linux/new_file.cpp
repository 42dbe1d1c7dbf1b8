#include "roster/platform/linux/new_file.h"

#include <fcntl.h>

#include <array>
#include <ctime>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/linux/temporary_files.h"

namespace roster {

namespace {

constexpr mode_t forOwner = S_IRUSR | S_IWUSR;
constexpr mode_t allPermissions = S_ISUID | S_ISGID | S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;
constexpr const char* accessAction = "set owner and mode of";

FileDescriptor openNew(int folderFd, const std::string& name) {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  return FileDescriptor(
      retrying([&] { return fileCalls().openat(folderFd, name.c_str(), flags, forOwner); }));
}

/// False when this process has no right to.
Result<bool> changeOwner(int fd, uid_t owner, gid_t group, const std::string& description) {
  if (fileCalls().fchown(fd, owner, group) == 0) return true;
  // Anything else is a failing disk and not a lack of rights.
  if (errno == EPERM || errno == EINVAL) return false;
  return systemError(accessAction, description, errno);
}

Result<> changeMode(int fd, mode_t mode, const std::string& description) {
  if (fileCalls().fchmod(fd, mode) == -1) return systemError(accessAction, description, errno);
  return {};
}

}  // namespace

Result<> adoptAccess(int fd, const struct stat& model, const std::string& description) {
  struct stat own {};
  if (fileCalls().fstat(fd, &own) == -1) return systemError(accessAction, description, errno);
  mode_t mode = model.st_mode & allPermissions;
  if (own.st_uid != model.st_uid || own.st_gid != model.st_gid) {
    const Result<bool> isChanged = changeOwner(fd, model.st_uid, model.st_gid, description);
    if (!isChanged) return isChanged.error();
    if (!*isChanged) {
      constexpr auto sameOwner = static_cast<uid_t>(-1);
      mode &= S_IRWXU | S_IRWXG | S_IRWXO;
      const Result<bool> hasGroup = own.st_gid == model.st_gid
                                        ? Result<bool>(true)
                                        : changeOwner(fd, sameOwner, model.st_gid, description);
      if (!hasGroup) return hasGroup.error();
      // In another group, "group" and "others" are other people than the model's mode speaks of.
      if (!*hasGroup) mode &= S_IRWXU;
    }
  }
  return changeMode(fd, mode, description);
}

Result<NewFile> NewFile::create(int folderFd, std::string name, std::string description) {
  FileDescriptor file = openNew(folderFd, name);
  if (!file) return systemError("create", description, errno);
  return NewFile(std::move(file), folderFd, std::move(name), std::move(description));
}

Result<NewFile> NewFile::createTemporary(int folderFd, const std::string& path) {
  constexpr int maximumAttempts = 16;
  for (int attempt = 1;; ++attempt) {
    std::string name = temporaryName();
    FileDescriptor descriptor = openNew(folderFd, name);
    int errorNumber = errno;
    if (descriptor) {
      NewFile file(std::move(descriptor), folderFd, std::move(name), "a temporary file beside " + path);
      file.isClaimed_ = claimTemporary(file.file_);
      if (file.isClaimed_) return file;
      errorNumber = EEXIST;  // As if somebody had had the name before.
    }
    if (errorNumber != EEXIST || attempt == maximumAttempts)
      return systemError("create a temporary file in", folderOf(path), errorNumber);
  }
}

NewFile::NewFile(FileDescriptor file, int folderFd, std::string name, std::string description)
    : file_(std::move(file)),
      folderFd_(folderFd),
      name_(std::move(name)),
      description_(std::move(description)) {}

NewFile::NewFile(NewFile&& other) noexcept
    : file_(std::move(other.file_)),
      folderFd_(other.folderFd_),
      name_(std::exchange(other.name_, {})),
      description_(std::move(other.description_)),
      claim_(std::move(other.claim_)),
      isClaimed_(other.isClaimed_) {}

NewFile::~NewFile() {
  if (!name_.empty()) fileCalls().unlinkat(folderFd_, name_.c_str(), 0);
}

Result<> NewFile::write(std::span<const std::byte> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = retrying([&] { return fileCalls().write(file_.fd(), bytes.data(), bytes.size()); });
    if (count <= 0) return systemError("write", description_, count == 0 ? ENOSPC : errno);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return {};
}

Result<> NewFile::restrictAccess() const { return setMode(forOwner); }

Result<> NewFile::setMode(mode_t mode) const { return changeMode(file_.fd(), mode, description_); }

void NewFile::setTime() const {
  struct timespec now {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::array<struct timespec, 2> accessAndModification = {now, now};
  // Where it fails, the kernel's coarser time remains.
  static_cast<void>(fileCalls().futimens(file_.fd(), accessAndModification.data()));
}

Result<FileStamp> NewFile::stamp() const {
  struct stat status {};
  if (fileCalls().fstat(file_.fd(), &status) == -1) return systemError("examine", description_, errno);
  return stampOf(status);
}

Result<> NewFile::sync() const {
  if (retrying([&] { return fileCalls().fsync(file_.fd()); }) == -1)
    return systemError("sync", description_, errno);
  return {};
}

Result<> NewFile::close() {
  // The file stays open, and with it the claim, while its first descriptor tells what closing has to tell.
  if (isClaimed_) claim_ = FileDescriptor(fcntl(file_.fd(), F_DUPFD_CLOEXEC, 0));
  if (isClaimed_ && !claim_) return systemError("keep open", description_, errno);
  if (!file_.close()) return systemError("close", description_, errno);
  return {};
}

}  // namespace roster
