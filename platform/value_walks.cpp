#include <cmath>

#include "platform/limits.h"
#include "platform/value_node.h"

namespace roster {

namespace {

/// Two numbers are equal when they are the same number: a real never equals an integer that it cannot represent.
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
    if (isNumber(left) && isNumber(right)) return equalNumbers(left, right);
    if (left.kind() != right.kind()) return false;
    if (left.isIdenticalTo(right)) return true;
    if (depth > limits::maximumDepth || work_++ > limits::comparisonWork) return false;
    switch (left.kind()) {
      case Value::Kind::date: {
        const double a = left.date()->secondsSinceReference;
        const double b = right.date()->secondsSinceReference;
        return a == b || (std::isnan(a) && std::isnan(b));
      }
      case Value::Kind::string: return left.string() == right.string();
      case Value::Kind::data: {
        const auto a = *left.bytes();
        const auto b = *right.bytes();
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
      }
      case Value::Kind::array: return equalArrays(*left.array(), *right.array(), depth);
      case Value::Kind::dictionary: return equalDictionaries(*left.dictionary(), *right.dictionary(), depth);
      default: return false;  // equal scalars are identical
    }
  }

 private:
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
      const Value other = right.find(entry.key);
      if (other.isNil() || !equal(entry.value, other, depth + 1)) return false;
    }
    return true;
  }

  std::uint64_t work_ = 0;
};

class DeepCopy {
 public:
  Value copy(const Value& value, std::size_t depth) {
    if (!ValueAccess::holdsLiveDictionaries(value)) return value;
    if (depth > limits::maximumDepth || work_++ > limits::unfoldingAllowance) {
      failed_ = true;
      return {};
    }
    if (value.isArray()) return copyArray(*value.array(), depth);
    return copyDictionary(*value.dictionary(), depth);
  }
  bool hasFailed() const { return failed_; }

 private:
  Value copyArray(const Array& array, std::size_t depth) {
    std::vector<Value> elements;
    elements.reserve(array.size());
    for (const Value& element : array) {
      elements.push_back(copy(element, depth + 1));
      if (failed_) return {};
    }
    return ValueAccess::makeArray(std::move(elements), Fault::none);
  }

  Value copyDictionary(const Dictionary& dictionary, std::size_t depth) {
    const auto& node = *static_cast<const DictionaryNode*>(ValueAccess::node(ValueAccess::value(dictionary)));
    if (!node.own) return copy(node.base, depth + 1);
    OrderedMap<Value> entries;
    entries.reserve(dictionary.size());
    bool isChangedFromWithin = false;
    for (const DictionaryEntry& entry : dictionary) {
      isChangedFromWithin = isChangedFromWithin || ValueAccess::holdsLiveDictionaries(entry.value);
      entries.append(entry.key, copy(entry.value, depth + 1));
      if (failed_) return {};
    }
    Value frozen = ValueAccess::makeDictionary(std::move(entries), Fault::none);
    // From here on the live dictionary stands on its copy, so that the next copy costs nothing until it changes.
    if (node.isLive && !isChangedFromWithin) node.rebase(ValueAccess::dictionary(frozen));
    return frozen;
  }

  std::uint64_t work_ = 0;
  bool failed_ = false;
};

}  // namespace

bool operator==(const Value& left, const Value& right) { return Comparison().equal(left, right, 0); }

Value Value::deepCopy() const {
  DeepCopy walk;
  Value result = walk.copy(*this, 0);
  return walk.hasFailed() ? Value() : result;
}

}  // namespace roster
