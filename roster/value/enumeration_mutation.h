#pragma once

#include <stdexcept>

#include "roster/base/export.h"

namespace roster {

/// A collection was changed while it was being walked. The change itself has been made; the walk cannot go
/// on.
class ROSTER_EXPORT EnumerationMutation : public std::logic_error {
 public:
  EnumerationMutation() : std::logic_error("a collection was changed while it was being enumerated") {}
};

}  // namespace roster
