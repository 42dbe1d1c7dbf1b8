#include "roster/platform/linux/dictionary_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>

#include "roster/base/process_wide.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

/// Nanoseconds since the epoch, the unit of a file's times.
using FileTime = std::chrono::nanoseconds;

/// Tells one state of a file from another without reading it.
struct FileStamp {
  int errorNumber = 0;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  FileTime modified{};
  FileTime changed{};
  friend bool operator==(const FileStamp&, const FileStamp&) = default;

  bool isMissing() const { return errorNumber == ENOENT || errorNumber == ENOTDIR; }
};

FileTime fileTime(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

FileStamp stampOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {.errorNumber = errno};
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified = fileTime(status.st_mtim),
          .changed = fileTime(status.st_ctim)};
}

class DictionaryCache {
 public:
  /// Fails once for each state of a file that cannot be used; that state counts as empty from then on.
  Result<Dictionary> contents(const std::string& path) {
    const std::lock_guard guard(lock_);
    const FileStamp stamp = stampOf(path);
    if (stamp.isMissing()) {
      entries_.erase(path);
      return Dictionary();
    }
    const auto known = entries_.find(path);
    const bool isSameStamp = known != entries_.end() && known->second.stamp == stamp;
    if (isSameStamp && known->second.isSettled) return known->second.contents;

    // Taken before the file is read: what changes it after that moment, not before, must change the stamp.
    const FileTime now = std::chrono::system_clock::now().time_since_epoch();
    Result<Dictionary> file = readDictionaryFile(path);
    const Dictionary contents = file ? *file : Dictionary();
    if (entries_.size() >= maximumEntries) entries_.clear();
    entries_.insert_or_assign(path, Entry{stamp, isSettled(stamp, now), contents});
    const bool isNews = !file && !isSameStamp && !isMissingFile(file.error());
    if (isNews) return file;
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
    return stamp.errorNumber == 0 && stamp.changed + coarsestStep < now;
  }

  static constexpr std::size_t maximumEntries = 64;
  std::mutex lock_;
  std::map<std::string, Entry> entries_;
};

}  // namespace

Dictionary currentDictionary(const std::string& path) {
  const Result<Dictionary> contents = immortalInstance<DictionaryCache>().contents(path);
  if (contents) return *contents;
  // Without the cache's lock: the receiver of log lines may ask for a dictionary itself.
  systemLog("%@", contents.error().message);
  return {};
}

}  // namespace roster
