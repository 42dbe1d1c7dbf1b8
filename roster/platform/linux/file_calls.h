#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <utility>

namespace roster {

/// Every system call through which this library reads and replaces files. Tests put a failing one in place of
/// a real one; nobody else changes them.
struct FileCalls {
  int (*openat)(int folderFd, const char* path, int flags, mode_t mode);
  int (*close)(int fd);
  int (*fstat)(int fd, struct stat* status);
  int (*fstatat)(int folderFd, const char* path, struct stat* status, int flags);
  ssize_t (*readlink)(const char* path, char* target, std::size_t size);
  ssize_t (*read)(int fd, void* buffer, std::size_t size);
  ssize_t (*write)(int fd, const void* buffer, std::size_t size);
  int (*fchown)(int fd, uid_t owner, gid_t group);
  int (*fchmod)(int fd, mode_t mode);
  int (*futimens)(int fd, const struct timespec times[2]);
  int (*fsync)(int fd);
  int (*mkdir)(const char* path, mode_t mode);
  int (*linkat)(int oldFolderFd, const char* oldPath, int newFolderFd, const char* newPath, int flags);
  int (*renameat)(int oldFolderFd, const char* oldPath, int newFolderFd, const char* newPath);
  int (*unlinkat)(int folderFd, const char* path, int flags);
};

/// The calls in use: the system's own, unless a test overrides them.
const FileCalls& fileCalls();

/// Puts other calls in place of the system's for as long as it lives. Meant for tests: no other thread may
/// use files while one is made or destroyed.
class FileCallsOverride {
 public:
  explicit FileCallsOverride(const FileCalls& calls);
  FileCallsOverride(const FileCallsOverride&) = delete;
  FileCallsOverride& operator=(const FileCallsOverride&) = delete;
  ~FileCallsOverride();

 private:
  FileCalls previous_;
};

/// A descriptor with one owner, closed with it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    FileDescriptor former(std::move(other));
    std::swap(fd_, former.fd_);
    return *this;
  }
  ~FileDescriptor() { static_cast<void>(close()); }

  explicit operator bool() const { return fd_ != -1; }
  int fd() const { return fd_; }

  /// False, with the cause in errno, when the system reports an error; the file is closed all the same.
  [[nodiscard]] bool close() { return fd_ == -1 || fileCalls().close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_ = -1;
};

}  // namespace roster
