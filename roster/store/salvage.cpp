#include "roster/store/salvage.h"

#include <algorithm>
#include <vector>

#include "roster/base/limits.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

namespace {

/// How far down a faulty element is taken apart: its properties, their elements, and the properties of those.
/// A child account is an element of a property.
constexpr int salvageDepth = 3;

}  // namespace

Salvage::Salvage(const Array& accounts) : isDamaged_(Value(accounts).fault() != Fault::none) {}

Value Salvage::usable(const Value& element) {
  return isDamaged_ ? usablePart(element, salvageDepth, false) : element;
}

Value Salvage::usablePart(const Value& value, int levels, bool isRepeated) {
  if (value.fault() == Fault::none) return fits(value, isRepeated) ? value : Value();
  if (levels == 0 || !isAffordable(value, isRepeated)) return {};
  return value.isArray() ? usableArray(*value.array(), levels, isRepeated)
                         : usableDictionary(*value.dictionary(), levels, isRepeated);
}

Value Salvage::usableArray(const Array& array, int levels, bool isRepeated) {
  std::vector<Value> elements;
  for (const Value& element : array) {
    Value part = usablePart(element, levels - 1, isRepeated);
    if (!part.isNil()) elements.push_back(std::move(part));
  }
  return Array(std::move(elements));
}

Value Salvage::usableDictionary(const Dictionary& dictionary, int levels, bool isRepeated) {
  MutableDictionary entries;
  for (const DictionaryEntry& entry : dictionary) {
    if (entry.key.isNil()) continue;
    Value part = usablePart(entry.value, levels - 1, isRepeated);
    if (!part.isNil()) entries.set(entry.key, std::move(part));
  }
  return Value(entries).deepCopy();
}

/// Whether a sound value can be taken whole.
bool Salvage::fits(const Value& value, bool isRepeated) {
  if (!isAffordable(value, isRepeated)) return false;
  const auto fitsToo = [&](const Value& part) { return fits(part, isRepeated); };
  if (value.isArray()) {
    const Array array = *value.array();
    return std::all_of(array.begin(), array.end(), fitsToo);
  }
  if (!value.isDictionary()) return true;
  const Dictionary dictionary = *value.dictionary();
  return std::all_of(dictionary.begin(), dictionary.end(),
                     [&](const DictionaryEntry& entry) { return fitsToo(entry.value); });
}

/// What is met for the first time is bounded by the size of the file; what is met again, with all that it
/// holds, is counted.
bool Salvage::isAffordable(const Value& value, bool& isRepeated) {
  if (!isRepeated && (value.isArray() || value.isDictionary())) {
    isRepeated = !met_.insert(value.identity()).second;
  }
  return !isRepeated || ++repetitions_ <= limits::unfoldingAllowance;
}

}  // namespace roster
