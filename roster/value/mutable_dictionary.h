#pragma once

#include <string_view>
#include <utility>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// A dictionary that can be changed. Values and Dictionaries made from it, and handles shared with it, all
/// stand for the one dictionary and see its changes; `deepCopy` gives one that does not. It starts as a copy
/// of another one at the cost of a reference: entries are copied only when the first of them changes. One
/// that is put into itself, directly or through others, is never freed.
class ROSTER_EXPORT MutableDictionary : public Dictionary {
 public:
  /// A dictionary of its own, empty.
  MutableDictionary();
  /// A dictionary of its own with the entries of another, which may itself be live. The copy is shallow: live
  /// dictionaries among the values stay live in it.
  static MutableDictionary copyOf(const Dictionary& initial);
  /// One more handle of this dictionary: changes made by either are seen by both.
  MutableDictionary share();

  /// Not copied by accident: say `copyOf` or `share`.
  MutableDictionary(const MutableDictionary&) = delete;
  /// Not copied by accident: say `copyOf` or `share`.
  MutableDictionary& operator=(const MutableDictionary&) = delete;
  /// Takes over the handle. The other one may then only be assigned to or destroyed.
  MutableDictionary(MutableDictionary&&) noexcept = default;
  /// Takes over the handle. The other one may then only be assigned to or destroyed.
  MutableDictionary& operator=(MutableDictionary&&) noexcept = default;
  /// Gives up the handle; the dictionary lives on where it was put.
  ~MutableDictionary() = default;

  /// Puts the value under the key, in the key's old position if it had one. A nil value removes the key.
  void set(std::string_view key, Value value);
  /// Does nothing when there is no such key.
  void remove(std::string_view key);

 private:
  ROSTER_HIDDEN explicit MutableDictionary(Value live) : Dictionary(std::move(live)) {}
};

}  // namespace roster
