#pragma once

#include <memory>
#include <string>

#include "roster/base/result.h"

namespace roster {

/// Notices when a path may lead to something else: when a file there is written, replaced, removed or made,
/// and when that happens to a folder or a symbolic link on the way. No part of the path need exist. For one
/// thread at a time.
class PathWatch {
 public:
  PathWatch(const PathWatch&) = delete;
  PathWatch& operator=(const PathWatch&) = delete;
  virtual ~PathWatch() = default;

  /// Readable, for poll(2) and its like, when something has happened, or `wake` was called, since the last
  /// `takeEvents`.
  virtual int descriptor() const = 0;
  /// Takes the events so far, without waiting, and tells whether any of them concerns the path. After a
  /// failure, when a folder may not be watched for example, it says so again and the next call tries again.
  virtual Result<bool> takeEvents() = 0;
  /// Makes the next `takeEvents` tell that the path is concerned.
  virtual void wake() = 0;

 protected:
  PathWatch() = default;
};

/// Begins to watch; whatever happens from then on is noticed. The path is absolute.
Result<std::unique_ptr<PathWatch>> watchPath(std::string path);

}  // namespace roster
