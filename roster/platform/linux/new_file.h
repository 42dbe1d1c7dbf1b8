#pragma once

#include <span>
#include <string>
#include <utility>

#include "roster/base/result.h"
#include "roster/platform/file_stamp.h"
#include "roster/platform/linux/file_calls.h"

namespace roster {

/// Gives an open file the owner, group and mode of another file. A process that may not set owner or group
/// leaves them; the mode then grants nothing to people that the other file did not grant it to. `description`
/// is what errors call the file.
Result<> adoptAccess(int fd, const struct stat& model, const std::string& description);

/// A file that this process has just made and may take back: unless it is kept, it is removed with this
/// object. Errors name the operation, the file, and the system's reason.
class NewFile {
 public:
  /// Makes the file, for its owner alone. Fails with `std::errc::file_exists` when there is one. The folder's
  /// descriptor must stay open as long as the object lives; `description` is what errors call the file.
  static Result<NewFile> create(int folderFd, std::string name, std::string description);

  /// The same, under a hidden name that nothing has yet, for a file that is to take the place of `path`. The
  /// descriptor is that of the path's folder. As long as the object lives, `removeStaleTemporaries` leaves
  /// the file alone, also when it has been closed.
  static Result<NewFile> createTemporary(int folderFd, const std::string& path);

  NewFile(NewFile&& other) noexcept;
  NewFile& operator=(NewFile&&) = delete;
  ~NewFile();

  Result<> write(std::span<const std::byte> bytes) const;

  /// Takes over owner, group and mode of another file, as far as this process may set them.
  Result<> adoptAccess(const struct stat& model) const {
    return roster::adoptAccess(file_.fd(), model, description_);
  }

  /// Leaves the file to its owner alone, whatever the process masks out of new files.
  Result<> restrictAccess() const;

  /// Gives it this mode, whatever the process masks out of new files.
  Result<> setMode(mode_t mode) const;

  /// Gives it the present time as that of its last modification, with the full resolution of the clock where
  /// the file system has it.
  void setTime() const;

  /// Its state, under the name it has now.
  Result<FileStamp> stamp() const;

  Result<> sync() const;
  Result<> close();

  const std::string& name() const { return name_; }

  /// Leaves the file where it is.
  void keep() { name_.clear(); }

 private:
  NewFile(FileDescriptor file, int folderFd, std::string name, std::string description);

  FileDescriptor file_;
  int folderFd_;
  std::string name_;
  std::string description_;
  /// Keeps the claim of a temporary file that is closed.
  FileDescriptor claim_;
  bool isClaimed_ = false;
};

}  // namespace roster
