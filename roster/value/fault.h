#pragma once

#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// Why a container that was read from a file cannot be used as it stands.
enum class Fault : std::uint8_t {
  none,            ///< It can be followed to its leaves.
  containsItself,  ///< Following it would never end.
  tooDeep,         ///< It is nested deeper than the library follows.
  tooLarge,        ///< Its shared parts unfold to more values than the library follows.
  unknownObject,   ///< It holds an object of a kind that property lists do not have.
  uid,             ///< It holds a UID, which only archives of objects have.
  outOfBounds,     ///< It reaches beyond the end of the file.
  badReference,    ///< It refers to an object that is not there.
  badKey,          ///< A key of a dictionary is no text.
  badText,         ///< It holds a text that cannot be decoded.
  badNumber,       ///< It holds a number that does not fit.
  badScalar,       ///< It held a number, a date or data whose text means none; that has been left out.
  overlaps,        ///< It overlaps another object of the file.
};

/// The fault in words that continue "a value that ...": "contains itself". The text lives for ever.
ROSTER_EXPORT std::string_view describe(Fault fault);

/// Thrown by a walk over a collection that was changed meanwhile. The change itself has been made; the walk
/// cannot go on.
class ROSTER_EXPORT EnumerationMutation : public std::logic_error {
 public:
  /// The exception with its one message.
  EnumerationMutation() : std::logic_error("a collection was changed while it was being enumerated") {}
};

}  // namespace roster
