#pragma once

#include <span>
#include <string>

#include "roster/platform/linux/file_descriptor.h"

namespace roster {

/// A file that this process has just made and may take back: unless it is kept, it is removed with this
/// object.
class NewFile {
 public:
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // Each returns the system's error number, 0 on success.

  /// Makes the file, which must not exist, for its owner alone. `folder` must stay open as long as this
  /// object lives.
  int create(int folder, std::string name);
  int write(std::span<const std::byte> bytes) const;
  /// Takes over owner, group and mode. Who may not give a file away keeps it; the mode then grants nothing to
  /// others that they did not have.
  int adoptAccess(const struct stat& model) const;
  /// Makes the access that of a file of its owner alone.
  int restrictAccess() const;
  /// Gives it this mode, whatever the process masks out of new files.
  int setMode(mode_t mode) const;
  int sync() const;
  int close();

  const std::string& name() const { return name_; }
  void keep() { name_.clear(); }

 private:
  FileDescriptor file_;
  int folder_ = -1;
  std::string name_;
};

}  // namespace roster
