#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

namespace roster {

/// Every system call through which this library reads and replaces files. Tests put a failing one in place of
/// a real one; nobody else changes them.
struct FileCalls {
  int (*openat)(int folder, const char* path, int flags, mode_t mode);
  int (*close)(int file);
  int (*fstat)(int file, struct stat* status);
  int (*fstatat)(int folder, const char* path, struct stat* status, int flags);
  ssize_t (*readlink)(const char* path, char* target, std::size_t size);
  ssize_t (*read)(int file, void* buffer, std::size_t size);
  ssize_t (*write)(int file, const void* buffer, std::size_t size);
  int (*fchown)(int file, uid_t owner, gid_t group);
  int (*fchmod)(int file, mode_t mode);
  int (*fsync)(int file);
  int (*mkdir)(const char* path, mode_t mode);
  int (*linkat)(int oldFolder, const char* oldPath, int newFolder, const char* newPath, int flags);
  int (*renameat)(int oldFolder, const char* oldPath, int newFolder, const char* newPath);
  int (*unlinkat)(int folder, const char* path, int flags);
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

}  // namespace roster
