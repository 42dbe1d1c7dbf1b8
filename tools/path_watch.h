#pragma once

#include <map>
#include <set>
#include <string>

#include "tools/descriptor.h"

namespace roster::tool {

/// Hears when something else may stand at a path: when a file there is written, replaced, removed or made,
/// and when that happens to a folder or a symbolic link on the way. Nothing of the way need be there.
///
/// Failures, such as a folder that may not be watched, are thrown as CommandError.
class PathWatch {
 public:
  /// Begins to watch; what happens from then on is heard of. The path is absolute.
  explicit PathWatch(std::string path);

  /// Becomes readable when something has happened.
  int descriptor() const { return queue_.number(); }
  /// Takes what has happened so far, without waiting. Whether any of it concerns the path.
  bool takeEvents();

 private:
  /// The names that count in a watched folder, by the number of the watch.
  using Watches = std::map<int, std::set<std::string, std::less<>>>;

  void followPath();
  bool watchFolder(const std::string& folder, const std::string& name, Watches& watches) const;

  std::string path_;
  Descriptor queue_;
  Watches watches_;
};

}  // namespace roster::tool
