#include "roster/platform/linux/new_file.h"

#include <fcntl.h>

namespace roster {

namespace {

constexpr mode_t forOwner = S_IRUSR | S_IWUSR;
constexpr mode_t allPermissions = S_ISUID | S_ISGID | S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;

int numberOf(int result) { return result == -1 ? errno : 0; }

/// Whether giving a file away failed because this process has no right to, and not because the disk is
/// failing.
bool isLackOfRight(int number) { return number == EPERM || number == EINVAL; }

}  // namespace

NewFile::~NewFile() {
  if (!name_.empty()) fileCalls().unlinkat(folder_, name_.c_str(), 0);
}

int NewFile::create(int folder, std::string name) {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_ = FileDescriptor(retrying([&] { return fileCalls().openat(folder, name.c_str(), flags, forOwner); }));
  if (!file_) return errno;
  folder_ = folder;
  name_ = std::move(name);
  return 0;
}

int NewFile::write(std::span<const std::byte> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count =
        retrying([&] { return fileCalls().write(file_.number(), bytes.data(), bytes.size()); });
    if (count < 0) return errno;
    if (count == 0) return ENOSPC;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return 0;
}

int NewFile::adoptAccess(const struct stat& model) const {
  struct stat own {};
  if (fileCalls().fstat(file_.number(), &own) == -1) return errno;
  mode_t mode = model.st_mode & allPermissions;
  if (own.st_uid != model.st_uid || own.st_gid != model.st_gid) {
    int number = numberOf(fileCalls().fchown(file_.number(), model.st_uid, model.st_gid));
    if (isLackOfRight(number)) {
      // With the old group kept, group and others are who they were; otherwise the mode would speak of other
      // people.
      constexpr auto sameOwner = static_cast<uid_t>(-1);
      mode &= S_IRWXU | S_IRWXG | S_IRWXO;
      number = own.st_gid == model.st_gid
                   ? 0
                   : numberOf(fileCalls().fchown(file_.number(), sameOwner, model.st_gid));
      if (isLackOfRight(number)) {
        mode &= S_IRWXU;
        number = 0;
      }
    }
    if (number != 0) return number;
  }
  return numberOf(fileCalls().fchmod(file_.number(), mode));
}

int NewFile::restrictAccess() const { return setMode(forOwner); }

int NewFile::setMode(mode_t mode) const { return numberOf(fileCalls().fchmod(file_.number(), mode)); }

int NewFile::sync() const {
  return numberOf(retrying([&] { return fileCalls().fsync(file_.number()); }));
}

int NewFile::close() { return file_.close() ? 0 : errno; }

}  // namespace roster
