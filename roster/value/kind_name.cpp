#include "roster/value/kind_name.h"

namespace roster {

std::string_view kindName(Value::Kind kind) {
  switch (kind) {
    case Value::Kind::nil:
      return "something that cannot be read";
    case Value::Kind::boolean:
      return "a boolean";
    case Value::Kind::integer:
      return "an integer";
    case Value::Kind::real:
      return "a real number";
    case Value::Kind::date:
      return "a date";
    case Value::Kind::string:
      return "a text";
    case Value::Kind::data:
      return "data";
    case Value::Kind::array:
      return "an array";
    case Value::Kind::dictionary:
      return "a dictionary";
  }
  return "a value";
}

std::string isNot(const Value& value, std::string_view expected) {
  return "it is " + std::string(kindName(value.kind())) + ", not " + std::string(expected);
}

}  // namespace roster
