#include "roster/base/limits.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

class DeepCopy {
 public:
  Value copy(const Value& value, std::size_t depth) {
    if (!ValueAccess::holdsLiveDictionaries(value)) return value;
    if (depth > limits::maximumDepth || work_++ > limits::unfoldingAllowance) {
      failed_ = true;
      return {};
    }
    if (value.isArray()) return copyArray(*value.array(), depth);
    // A live dictionary and its copy share the entries until it changes.
    if (value.isLiveDictionary()) return copy(ValueAccess::dictionary(ValueAccess::contents(value)), depth);
    return copyEntries(ValueAccess::dictionaryNode(value).entries, depth);
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

  Value copyEntries(OrderedMap<Value> entries, std::size_t depth) {
    for (std::size_t position = entries.firstPosition(); position < entries.endPosition();
         position = entries.nextPosition(position)) {
      Value& value = entries.valueAt(position);
      if (ValueAccess::holdsLiveDictionaries(value)) value = copy(value, depth + 1);
      if (failed_) return {};
    }
    return ValueAccess::makeDictionary(std::move(entries), Fault::none);
  }

  std::uint64_t work_ = 0;
  bool failed_ = false;
};

}  // namespace

Value Value::deepCopy() const {
  DeepCopy walk;
  Value result = walk.copy(*this, 0);
  return walk.hasFailed() ? Value() : result;
}

}  // namespace roster
