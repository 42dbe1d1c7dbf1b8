#pragma once

#include <sys/types.h>

#include <string>

#include "roster/platform/linux/file_calls.h"

namespace roster {

/// An open file that is there to be locked with flock(2). Such a lock belongs to the open file and not to a
/// process: a child that fork(2) makes has the file open too and would keep the lock when this process dies.
/// So the file is closed in every such child, with all others of its kind, before fork(2) returns there; a
/// child that comes about without fork handlers (`_Fork`, clone(2)) keeps it. A program that is executed
/// never has it.
class LockDescriptor {
 public:
  /// Nothing is open yet.
  LockDescriptor();
  LockDescriptor(const LockDescriptor&) = delete;
  LockDescriptor& operator=(const LockDescriptor&) = delete;
  ~LockDescriptor() { release(); }

  /// Opens the file in place of the former one, for nothing but locking. False, with the cause in errno, when
  /// that fails. What is opened may be anything but a symbolic link; a pipe is not waited for.
  [[nodiscard]] bool open(const std::string& path);

  /// The descriptor, -1 when there is none.
  int fd() const { return file_.fd(); }

  /// Whether it is open, and not merely inherited. May be called from any thread.
  bool isOpen() const;

  /// Unlocks the file and closes it. A child that shares it cannot keep the lock then. May be called from any
  /// thread.
  void release();

 private:
  friend class OpenLocks;

  FileDescriptor file_;
  pid_t process_ = 0;
};

}  // namespace roster
