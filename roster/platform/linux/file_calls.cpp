#include "roster/platform/linux/file_calls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace roster {

namespace {

FileCalls& current() {
  static FileCalls calls{
      .openat = [](int folder, const char* path, int flags,
                   mode_t mode) { return ::openat(folder, path, flags, mode); },
      .close = ::close,
      .fstat = ::fstat,
      .fstatat = ::fstatat,
      .readlink = ::readlink,
      .read = ::read,
      .write = ::write,
      .fchown = ::fchown,
      .fchmod = ::fchmod,
      .futimens = ::futimens,
      .fsync = ::fsync,
      .mkdir = ::mkdir,
      .linkat = ::linkat,
      .renameat = ::renameat,
      .unlinkat = ::unlinkat,
  };
  return calls;
}

}  // namespace

const FileCalls& fileCalls() { return current(); }

FileCallsOverride::FileCallsOverride(const FileCalls& calls) : previous_(current()) { current() = calls; }

FileCallsOverride::~FileCallsOverride() { current() = previous_; }

}  // namespace roster
