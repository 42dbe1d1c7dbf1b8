#include "roster/platform/linux/file_replacement.h"

#include <fcntl.h>

#include <array>
#include <chrono>
#include <climits>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

constexpr mode_t folderMode = 0755;

/// Fresh, so that no other process can have made a file of this name beforehand, and hidden from listings.
std::string temporaryName() {
  constexpr std::string_view symbols = "0123456789abcdef";
  std::uint64_t bits = 0;
  if (!drawRandomBytes(std::as_writable_bytes(std::span(&bits, 1)))) {
    // Without random bytes somebody may guess the name, and the file is then not made.
    bits = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  std::string name = ".roster-";
  for (int digit = 0; digit < 16; ++digit, bits >>= 4U) name += symbols[bits & 0xFU];
  return name + ".tmp";
}

std::string folderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(slash == 0 ? "/" : path.substr(0, slash));
}

int openFolderAt(const std::string& path) {
  return retrying(
      [&] { return fileCalls().openat(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); });
}

Result<> makeFolders(const std::string& path) {
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string ancestor = path.substr(0, end);
    if (fileCalls().mkdir(ancestor.c_str(), folderMode) == -1 && errno != EEXIST) {
      return systemError("create the folder", ancestor, errno);
    }
    if (end == std::string::npos) return {};
  }
}

}  // namespace

Result<> FileReplacement::begin() {
  if (const Result<> done = resolveLinks(); !done) return done;
  if (const Result<> done = splitPath(); !done) return done;
  if (const Result<> done = openFolder(); !done) return done;
  if (const Result<> done = inspectOldFile(); !done) return done;
  return createTemporary();
}

Result<> FileReplacement::resolveLinks() {
  constexpr int mostLinks = 40;
  for (int links = 0; links < mostLinks; ++links) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = fileCalls().readlink(path_.c_str(), target.data(), target.size());
    // Not a link, or nothing that could be looked at; what is wrong with it shows when the folder is opened.
    if (length == -1) return {};
    const std::string_view text(target.data(), static_cast<std::size_t>(length));
    if (text.size() == target.size()) return systemError("follow the link", path_, ENAMETOOLONG);
    path_ = text.starts_with('/') ? std::string(text) : joinPath(folderOf(path_), text);
  }
  return systemError("follow the link", path_, ELOOP);
}

Result<> FileReplacement::splitPath() {
  folderPath_ = folderOf(path_);
  name_ = path_.substr(path_.rfind('/') + 1);
  if (name_.empty() || name_ == "." || name_ == "..") {
    return Error(std::errc::invalid_argument, "could not write " + path_ + ": it does not name a file");
  }
  return {};
}

Result<> FileReplacement::openFolder() {
  folder_ = FileDescriptor(openFolderAt(folderPath_));
  if (!folder_ && errno == ENOENT) {
    if (const Result<> done = makeFolders(folderPath_); !done) return done;
    folder_ = FileDescriptor(openFolderAt(folderPath_));
  }
  if (!folder_) return systemError("open the folder", folderPath_, errno);
  return {};
}

Result<> FileReplacement::inspectOldFile() {
  struct stat status {};
  if (fileCalls().fstatat(folder_.number(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == -1) {
    if (errno == ENOENT) return {};
    return systemError("examine", path_, errno);
  }
  if (!S_ISREG(status.st_mode))
    return Error(std::errc::invalid_argument, "could not write " + path_ + ": it is not a regular file");
  oldFile_ = status;
  return {};
}

Result<> FileReplacement::createTemporary() {
  constexpr int attempts = 16;
  int number = EEXIST;
  for (int attempt = 0; attempt < attempts && number == EEXIST; ++attempt) {
    number = temporary_.create(folder_.number(), temporaryName());
  }
  if (number != 0) return systemError("create a temporary file in", folderPath_, number);
  return {};
}

Result<> FileReplacement::write(std::span<const std::byte> bytes) {
  const int number = temporary_.write(bytes);
  if (number != 0) return systemError("write a temporary file beside", path_, number);
  return {};
}

Result<> FileReplacement::commit() {
  int number = oldFile_ ? temporary_.adoptAccess(*oldFile_) : temporary_.restrictAccess();
  if (number != 0) return systemError("set owner and mode of a temporary file beside", path_, number);
  number = temporary_.sync();
  if (number != 0) return systemError("sync a temporary file beside", path_, number);
  number = temporary_.close();
  if (number != 0) return systemError("close a temporary file beside", path_, number);
  const int folder = folder_.number();
  if (fileCalls().renameat(folder, temporary_.name().c_str(), folder, name_.c_str()) == -1) {
    return systemError("replace", path_, errno);
  }
  temporary_.keep();
  // Some file systems have no syncing of folders, and say so.
  if (retrying([&] { return fileCalls().fsync(folder); }) == -1 && errno != EINVAL) {
    return systemError("sync the folder", folderPath_, errno);
  }
  return {};
}

}  // namespace roster
