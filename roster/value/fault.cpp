#include "roster/value/fault.h"

namespace roster {

std::string_view describe(Fault fault) {
  switch (fault) {
    case Fault::none:
      return "is sound";
    case Fault::containsItself:
      return "contains itself";
    case Fault::tooDeep:
      return "is nested too deeply";
    case Fault::tooLarge:
      return "refers to its own parts so often that it unfolds to too many values";
    case Fault::unknownObject:
      return "holds an object of an unknown kind";
    case Fault::uid:
      return "holds a UID, which has no place in a property list of this kind";
    case Fault::outOfBounds:
      return "reaches beyond the end of the file";
    case Fault::badReference:
      return "refers to an object that is not there";
    case Fault::badKey:
      return "has a dictionary key that is not a string";
    case Fault::badText:
      return "holds a string that is not valid text";
    case Fault::badNumber:
      return "holds a number out of range";
    case Fault::badScalar:
      return "holds a number, a date or data that cannot be read";
    case Fault::overlaps:
      return "overlaps another part of the file";
  }
  return "is damaged";
}

}  // namespace roster
