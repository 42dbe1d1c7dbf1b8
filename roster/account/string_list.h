#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "roster/value/value.h"

namespace roster {

/// A list of strings out of a property list: dataclasses or actions.
using StringList = std::vector<std::string>;

/// The strings of an array value, in order; elements of other types are left out. Nothing when the
/// value is not an array.
inline std::optional<StringList> stringList(const Value& value) {
  const std::optional<Array> array = value.array();
  if (!array) return std::nullopt;
  StringList list;
  list.reserve(array->size());
  for (const Value& element : *array) {
    if (const String text = element.string()) list.push_back(text.str());
  }
  return list;
}

/// Whether the list has the text.
inline bool contains(const StringList& list, std::string_view text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

/// The list as an array value.
inline Value arrayValue(const StringList& list) {
  return Array(std::vector<Value>(list.begin(), list.end()));
}

}  // namespace roster
