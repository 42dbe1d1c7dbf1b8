#include <algorithm>
#include <cmath>

#include "roster/base/limits.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

/// Two numbers are equal when they are the same number: a real never equals an integer that it cannot
/// represent.
bool equalNumbers(const Value& left, const Value& right) {
  if (left.kind() == Value::Kind::integer && right.kind() == Value::Kind::integer) {
    return left.isIdenticalTo(right);
  }
  if (left.kind() == Value::Kind::real && right.kind() == Value::Kind::real) {
    return *left.real() == *right.real() || (std::isnan(*left.real()) && std::isnan(*right.real()));
  }
  const Value& whole = left.kind() == Value::Kind::integer ? left : right;
  const double real = left.kind() == Value::Kind::integer ? *right.real() : *left.real();
  if (std::trunc(real) != real) return false;
  constexpr double two63 = 9223372036854775808.0;
  if (real >= -two63 && real < two63) return whole.integer() == static_cast<std::int64_t>(real);
  if (real >= two63 && real < 2 * two63) return whole.unsignedInteger() == static_cast<std::uint64_t>(real);
  return false;
}

bool isNumber(const Value& value) {
  return value.kind() == Value::Kind::integer || value.kind() == Value::Kind::real;
}

class Comparison {
 public:
  bool equal(const Value& left, const Value& right, std::size_t depth) {
    if (!canAfford(1)) return false;
    if (isNumber(left) && isNumber(right)) return equalNumbers(left, right);
    if (left.kind() != right.kind()) return false;
    if (left.isIdenticalTo(right)) return true;
    if (depth > limits::maximumDepth) return false;
    if (left.fault() != Fault::none || right.fault() != Fault::none) return false;
    switch (left.kind()) {
      case Value::Kind::date: {
        const double a = left.date()->secondsSinceReference;
        const double b = right.date()->secondsSinceReference;
        return a == b || (std::isnan(a) && std::isnan(b));
      }
      case Value::Kind::string:
        return equalSequences(ValueAccess::text(left), ValueAccess::text(right));
      case Value::Kind::data:
        return equalSequences(*left.bytes(), *right.bytes());
      case Value::Kind::array:
        return equalArrays(*left.array(), *right.array(), depth);
      case Value::Kind::dictionary:
        return equalDictionaries(*left.dictionary(), *right.dictionary(), depth);
      default:
        return false;  // equal scalars are identical
    }
  }

 private:
  bool canAfford(std::uint64_t work) {
    work_ += work;
    return work_ <= limits::comparisonWork;
  }

  /// Long texts cost work: many containers may share one, and every comparison of it reads it whole.
  bool canAffordBytes(std::size_t count) { return canAfford(count / limits::bytesPerComparison); }

  template <class Sequence>
  bool equalSequences(const Sequence& left, const Sequence& right) {
    return left.size() == right.size() && canAffordBytes(left.size()) &&
           std::equal(left.begin(), left.end(), right.begin());
  }

  bool equalArrays(const Array& left, const Array& right, std::size_t depth) {
    if (left.size() != right.size()) return false;
    auto other = right.begin();
    for (const Value& element : left) {
      if (!equal(element, *other, depth + 1)) return false;
      ++other;
    }
    return true;
  }

  bool equalDictionaries(const Dictionary& left, const Dictionary& right, std::size_t depth) {
    if (left.size() != right.size()) return false;
    for (const DictionaryEntry& entry : left) {
      if (!canAffordBytes(entry.key.view().size())) return false;
      const Value other = right.find(entry.key);
      if (other.isNil() || !equal(entry.value, other, depth + 1)) return false;
    }
    return true;
  }

  std::uint64_t work_ = 0;
};

}  // namespace

bool operator==(const Value& left, const Value& right) { return Comparison().equal(left, right, 0); }

}  // namespace roster
