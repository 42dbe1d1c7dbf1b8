#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "roster/platform/linux/file_calls.h"

namespace roster::testing {

/// The library's file operations, each told to a test before it is done: its name, and the path that it names
/// or that its descriptor has. It fails with the error number that the test answers, unless that is 0.
class WatchedCalls {
 public:
  using Watcher = std::function<int(std::string_view call, const std::string& path)>;
  explicit WatchedCalls(Watcher watcher) : override_(watched(std::move(watcher))) {}

 private:
  static std::string pathOf(int, const char* path, auto...) { return path; }
  static std::string pathOf(int fd, auto...) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored);
  }
  template <auto member, class... Arguments>
  static void watch(FileCalls& calls, const char* name, auto(*)(Arguments...)) {
    static const char* called;
    called = name;
    calls.*member = [](Arguments... arguments) -> decltype((real_.*member)(arguments...)) {
      errno = watcher_(called, pathOf(arguments...));
      return errno == 0 ? (real_.*member)(arguments...) : -1;
    };
  }
  static FileCalls watched(Watcher watcher) {
    watcher_ = std::move(watcher);
    FileCalls calls = real_ = fileCalls();
    watch<&FileCalls::openat>(calls, "openat", calls.openat);
    watch<&FileCalls::close>(calls, "close", calls.close);
    watch<&FileCalls::fstat>(calls, "fstat", calls.fstat);
    watch<&FileCalls::fstatat>(calls, "fstatat", calls.fstatat);
    watch<&FileCalls::read>(calls, "read", calls.read);
    watch<&FileCalls::write>(calls, "write", calls.write);
    watch<&FileCalls::fsync>(calls, "fsync", calls.fsync);
    watch<&FileCalls::linkat>(calls, "linkat", calls.linkat);
    watch<&FileCalls::renameat>(calls, "renameat", calls.renameat);
    return calls;
  }

  // A plain function has no state of its own.
  static inline Watcher watcher_{};
  static inline FileCalls real_{};
  FileCallsOverride override_;
};

}  // namespace roster::testing
