#include "roster/platform/linux/file_replacement.h"

#include <fcntl.h>

#include <array>
#include <climits>

#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/linux/temporary_files.h"

namespace roster {

namespace {

constexpr mode_t folderMode = 0755;

/// The file that is meant by the path, behind all symbolic links.
Result<std::string> linkTarget(std::string path) {
  constexpr int maximumLinks = 40;
  for (int links = 0; links < maximumLinks; ++links) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = fileCalls().readlink(path.c_str(), target.data(), target.size());
    // Not a link, or nothing that could be looked at; what is wrong with it shows when the folder is opened.
    if (length == -1) return path;
    const std::string_view text(target.data(), static_cast<std::size_t>(length));
    if (text.size() == target.size()) return systemError("follow the link", path, ENAMETOOLONG);
    path = text.starts_with('/') ? std::string(text) : joinPath(folderOf(path), text);
  }
  return systemError("follow the link", path, ELOOP);
}

std::string fileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

Result<> makeFolders(const std::string& path) {
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string ancestor = path.substr(0, end);
    if (fileCalls().mkdir(ancestor.c_str(), folderMode) == -1 && errno != EEXIST) {
      return systemError("create the folder", ancestor, errno);
    }
    if (end == std::string::npos) return {};
  }
}

FileDescriptor openFolder(const std::string& path) {
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  return FileDescriptor(retrying([&] { return fileCalls().openat(AT_FDCWD, path.c_str(), flags, 0); }));
}

/// Nothing when there is no file yet.
Result<std::optional<struct stat>> inspectOldFile(const FileDescriptor& folder, const std::string& path) {
  using OldFile = std::optional<struct stat>;
  struct stat status {};
  if (fileCalls().fstatat(folder.fd(), fileName(path).c_str(), &status, AT_SYMLINK_NOFOLLOW) == -1) {
    if (errno == ENOENT) return OldFile();
    return systemError("examine", path, errno);
  }
  if (!S_ISREG(status.st_mode))
    return Error(std::errc::invalid_argument, "could not write " + path + ": it is not a regular file");
  return OldFile(status);
}

}  // namespace

Result<FileDescriptor> openOrMakeFolder(const std::string& path) {
  FileDescriptor folder = openFolder(path);
  if (!folder && errno == ENOENT) {
    if (const Result<> made = makeFolders(path); !made) return made.error();
    folder = openFolder(path);
  }
  if (!folder) return systemError("open the folder", path, errno);
  return folder;
}

Result<FileReplacement> FileReplacement::create(const std::string& path) {
  Result<std::string> target = linkTarget(path);
  if (!target) return target.error();
  const std::string name = fileName(*target);
  if (name.empty() || name == "." || name == "..")
    return Error(std::errc::invalid_argument, "could not write " + *target + ": it does not name a file");
  Result<FileDescriptor> folder = openOrMakeFolder(folderOf(*target));
  if (!folder) return folder.error();
  const Result<std::optional<struct stat>> oldFile = inspectOldFile(*folder, *target);
  if (!oldFile) return oldFile.error();
  removeStaleTemporaries(*folder, folderOf(*target));
  Result<NewFile> temporary = NewFile::createTemporary(folder->fd(), *target);
  if (!temporary) return temporary.error();
  return FileReplacement(path, *std::move(target), *std::move(folder), *oldFile, *std::move(temporary));
}

FileReplacement::FileReplacement(std::string givenPath, std::string path, FileDescriptor folder,
                                 std::optional<struct stat> oldFile, NewFile temporary)
    : givenPath_(std::move(givenPath)),
      path_(std::move(path)),
      folder_(std::move(folder)),
      oldFile_(oldFile),
      model_(oldFile),
      temporary_(std::move(temporary)) {}

/// Looks along the path as it was given, so that a link or a folder that leads elsewhere by now is seen too.
Result<> FileReplacement::requireExpected() const {
  if (!expected_) return {};
  const Result<FileStamp> found = fileStamp(givenPath_);
  if (!found) return found.error();
  if (*found == *expected_) return {};
  return Error(std::errc::operation_canceled,
               "could not replace " + path_ + ": another program has changed it meanwhile");
}

Result<> FileReplacement::takePlace(std::optional<FileStamp>* written) {
  const Result<FileStamp> stamp = written == nullptr ? Result<FileStamp>(FileStamp()) : temporary_.stamp();
  if (!stamp) return stamp.error();
  if (Result<> done = temporary_.close(); !done) return done;
  if (Result<> done = requireExpected(); !done) return done;
  const int folderFd = folder_.fd();
  const std::string name = fileName(path_);
  if (fileCalls().renameat(folderFd, temporary_.name().c_str(), folderFd, name.c_str()) == -1)
    return systemError("replace", path_, errno);
  temporary_.keep();
  if (written == nullptr) return {};
  *written = *stamp;
  // Renaming is a change of the file, and only its time is taken: the file that is found may be another one.
  struct stat status {};
  if (fileCalls().fstatat(folderFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      stampOf(status).hasContentOf(*stamp)) {
    *written = stampOf(status);
  }
  return {};
}

Result<> FileReplacement::commit(std::optional<FileStamp>* written) {
  temporary_.setTime();
  if (Result<> done = model_ ? temporary_.adoptAccess(*model_) : temporary_.restrictAccess(); !done)
    return done;
  if (Result<> done = temporary_.sync(); !done) return done;
  if (Result<> done = takePlace(written); !done) return done;
  // Some file systems have no syncing of folders, and say so.
  if (retrying([&] { return fileCalls().fsync(folder_.fd()); }) == -1 && errno != EINVAL)
    return systemError("sync the folder", folderOf(path_), errno);
  return {};
}

}  // namespace roster
