#pragma once

#include <map>
#include <set>
#include <string>

#include "tools/descriptors.h"

namespace roster::tool {

/// Notices when a path may lead to something else: when a file there is written, replaced, removed or made,
/// and when that happens to a folder or a symbolic link on the way. No part of the path need exist.
///
/// Failures, such as a folder that may not be watched, are thrown as CommandError.
class PathWatch {
 public:
  /// Begins to watch; whatever happens from then on is noticed. The path is absolute.
  explicit PathWatch(std::string path);

  /// Becomes readable when something has happened.
  int fd() const { return queue_.fd(); }
  /// Takes the events so far, without waiting, and returns whether any of them concerns the path.
  [[nodiscard]] bool takeEvents();

 private:
  /// The names that count in each watched folder, by its watch.
  using Watches = std::map<int, std::set<std::string, std::less<>>>;

  void followPath();
  bool watchFolder(const std::string& folder, const std::string& name, Watches& watches) const;

  std::string path_;
  Descriptor queue_;
  Watches watches_;
};

}  // namespace roster::tool
