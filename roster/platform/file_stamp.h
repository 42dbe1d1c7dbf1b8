#pragma once

#include <cstdint>

namespace roster {

/// Tells one state of a file from another without reading it. That there is no file is a state too, the one
/// that a stamp has by default.
///
/// Files that this library writes never share a stamp: a new file may get the number of one that is gone, and
/// the kernel's own times are only as fine as its tick, but each of them gets its time of modification with
/// the full resolution of the clock. What others write into a file in place has only the kernel's times: two
/// such changes within a tick that leave the size alone look like one.
struct FileStamp {
  bool exists = false;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  /// Of the content, in nanoseconds since 1970.
  std::int64_t modificationTime = 0;
  /// Of the content, the access or the names, in nanoseconds since 1970. It also moves when the file is
  /// renamed, and nobody can set it back.
  std::int64_t changeTime = 0;

  friend bool operator==(const FileStamp&, const FileStamp&) = default;

  /// Whether only the access and the names may differ: the same file, with the content it had.
  bool hasContentOf(const FileStamp& other) const {
    FileStamp renamed = *this;
    renamed.changeTime = other.changeTime;
    return renamed == other;
  }
};

}  // namespace roster
