#include "roster/store/salvage.h"

#include <vector>

#include "roster/base/limits.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

Value Salvage::usable(const Value& element) {
  return element.fault() == Fault::none ? element : usablePart(element, depth).value;
}

Salvage::Part Salvage::usablePart(const Value& value, std::size_t levels) {
  if (value.isNil()) return {};
  if (value.fault() == Fault::none) return {value, sizeOf(value)};
  if (levels == 0) return {};
  const auto known = parts_[levels - 1].find(value.identity());
  if (known != parts_[levels - 1].end()) return known->second;
  Part part = value.isArray() ? usableElements(*value.array(), levels - 1)
                              : usableEntries(*value.dictionary(), levels - 1);
  parts_[levels - 1].emplace(value.identity(), part);
  return part;
}

Salvage::Part Salvage::usableElements(const Array& array, std::size_t levels) {
  std::vector<Value> elements;
  std::uint64_t size = 1;
  for (const Value& element : array) {
    Part part = usablePart(element, levels);
    if (part.value.isNil() || size + part.size > limits::unfoldingAllowance) continue;
    size += part.size;
    elements.push_back(std::move(part.value));
  }
  return {Array(std::move(elements)), size};
}

Salvage::Part Salvage::usableEntries(const Dictionary& dictionary, std::size_t levels) {
  MutableDictionary entries;
  std::uint64_t size = 1;
  for (const DictionaryEntry& entry : dictionary) {
    if (entry.key.isNil()) continue;
    Part part = usablePart(entry.value, levels);
    if (part.value.isNil() || size + part.size + 1 > limits::unfoldingAllowance) continue;
    size += part.size + 1;
    entries.set(entry.key, std::move(part.value));
  }
  return {Value(entries).deepCopy(), size};
}

/// Goes no deeper than the library follows, since the value is sound.
std::uint64_t Salvage::sizeOf(const Value& sound) {
  if (!sound.isArray() && !sound.isDictionary()) return 1;
  const auto known = sizes_.find(sound.identity());
  if (known != sizes_.end()) return known->second;
  std::uint64_t size = 1;
  if (const std::optional<Array> array = sound.array()) {
    for (const Value& element : *array) size += sizeOf(element);
  } else {
    const Dictionary entries = *sound.dictionary();
    for (const DictionaryEntry& entry : entries) size += 1 + sizeOf(entry.value);
  }
  sizes_.emplace(sound.identity(), size);
  return size;
}

bool ChildrenAllowance::covers(const Value& children) {
  const std::optional<Array> list = children.array();
  if (!list || met_.insert(children.identity()).second) return true;
  repetitions_ += list->size();
  return repetitions_ <= limits::unfoldingAllowance;
}

}  // namespace roster
