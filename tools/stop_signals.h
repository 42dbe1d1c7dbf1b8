#pragma once

#include "tools/descriptor.h"

namespace roster::tool {

/// Turns the requests to end, SIGINT and SIGTERM, into something that can be waited for together with other
/// things: from its making on neither ends the process by itself.
class StopSignals {
 public:
  StopSignals();

  /// Becomes readable, and stays so, when one of them has come.
  int descriptor() const { return queue_.number(); }

 private:
  Descriptor queue_;
};

}  // namespace roster::tool
