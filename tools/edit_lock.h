#pragma once

#include "tools/descriptor.h"

namespace roster::tool {

/// Lets one rosterctl at a time load, change and save the registry, so that none of two saves at the same
/// moment is lost; programs that do not take the lock are merged with as ever. The lock is on the registry's
/// folder and ends with its holder. Without a folder, or one that may be opened, there is no lock: there is
/// nothing to change then, or the save says what is wrong.
class EditLock {
 public:
  enum class Folder { asItIs, madeIfMissing };
  /// Waits until nobody else holds the lock.
  explicit EditLock(Folder folder);

 private:
  Descriptor folder_;
};

}  // namespace roster::tool
