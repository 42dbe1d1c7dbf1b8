#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>

#include "roster/base/process_wide.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"
#include "roster/plist/property_list.h"

namespace roster {

namespace {

/// Nanoseconds since the epoch, the unit of a file's times.
using FileTime = std::chrono::nanoseconds;

/// Tells one state of a file from another without reading it.
struct FileStamp {
  int error = 0;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  FileTime modified{};
  FileTime changed{};
  friend bool operator==(const FileStamp&, const FileStamp&) = default;

  bool isMissing() const { return error == ENOENT || error == ENOTDIR; }
};

FileTime fileTime(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

FileStamp stampOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {.error = errno};
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified = fileTime(status.st_mtim),
          .changed = fileTime(status.st_ctim)};
}

class DictionaryCache {
 public:
  /// `complaint` becomes what the system log should hear, if anything.
  Dictionary contents(const std::string& path, std::string& complaint) {
    const std::lock_guard guard(lock_);
    const FileTime now = std::chrono::system_clock::now().time_since_epoch();
    const FileStamp stamp = stampOf(path);
    if (stamp.isMissing()) {
      entries_.erase(path);
      return {};
    }
    const auto known = entries_.find(path);
    const bool isSameStamp = known != entries_.end() && known->second.stamp == stamp;
    if (isSameStamp && known->second.isSettled) return known->second.contents;

    const Result<Dictionary> file = readDictionaryFile(path);
    if (!isSameStamp && !file && !isMissingFile(file.error())) complaint = file.error().message;
    const Dictionary contents = file ? *file : Dictionary();
    if (entries_.size() >= maximumEntries) entries_.clear();
    entries_.insert_or_assign(path, Entry{stamp, isSettled(stamp, now), contents});
    return contents;
  }

 private:
  struct Entry {
    FileStamp stamp;
    bool isSettled = false;
    Dictionary contents;
  };

  /// File times advance in steps, up to two seconds on some file systems: a file can change again within the
  /// step of its last change and keep its stamp. Only an older stamp proves that the contents are the ones
  /// that were read.
  static bool isSettled(const FileStamp& stamp, FileTime now) {
    constexpr auto coarsestStep = std::chrono::seconds(2);
    return stamp.error == 0 && stamp.changed + coarsestStep < now;
  }

  static constexpr std::size_t maximumEntries = 64;
  std::mutex lock_;
  std::map<std::string, Entry> entries_;
};

}  // namespace

Dictionary currentDictionary(const std::string& path) {
  std::string complaint;
  Dictionary contents = immortalInstance<DictionaryCache>().contents(path, complaint);
  // Without the lock, since whoever receives log lines may ask for a dictionary itself.
  if (!complaint.empty()) systemLog("%@", complaint);
  return contents;
}

}  // namespace roster
