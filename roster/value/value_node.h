#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "roster/value/ordered_map.h"
#include "roster/value/value.h"

namespace roster {

struct StringNode final : Node {
  explicit StringNode(std::string_view content) : text(content) {}
  const std::string text;
};

struct DataNode final : Node {
  explicit DataNode(std::span<const std::byte> content) : bytes(content.begin(), content.end()) {}
  const std::vector<std::byte> bytes;
};

struct ArrayNode final : Node {
  ArrayNode(std::vector<Value> content, Fault contentFault);
  const std::vector<Value> elements;
  const Fault fault;
  /// Whether a live dictionary can be reached, so that a deep copy has something to copy.
  const bool holdsLiveDictionaries;
};

/// A dictionary of its own: immutable when it is made by a builder, changing when a MutableDictionary holds
/// it.
struct DictionaryNode final : Node {
  DictionaryNode(OrderedMap<Value> content, Fault contentFault);
  explicit DictionaryNode(Dictionary initial) : base(std::move(initial)), isLive(true) {}

  /// The entries, once they differ from `base`.
  mutable std::unique_ptr<OrderedMap<Value>> own;
  /// What the dictionary holds as long as there are no `own` entries; never a live dictionary.
  mutable Dictionary base;
  /// Counts what makes a walk over the entries miss or repeat one.
  mutable std::uint64_t changes = 0;
  const Fault fault = Fault::none;
  const bool isLive = false;
  const bool holdsLiveDictionaries = false;

  /// The entries to change, copied from `base` the first time.
  OrderedMap<Value>& ownEntries() const;
  /// Makes the entries the new base, which others may share from then on. Walks over them go on undisturbed.
  void freeze() const;
};

/// The seams through which readers, writers and walkers of values see their representation.
struct ValueAccess {
  static Value make(Value::Kind kind, const Node* node) { return {kind, node}; }
  static Value make(Value::Kind kind, const Document* document, std::uint32_t object) {
    return {kind, document, object};
  }
  static bool isInDocument(const Value& value) { return value.home_ == Value::Home::document; }
  static const Node* node(const Value& value) {
    return value.home_ == Value::Home::none ? nullptr : value.payload_.node;
  }
  static std::uint32_t object(const Value& value) { return value.object_; }
  static const Document& document(const Value& value);
  /// An array or dictionary whose contents a fault was found in.
  static Value makeArray(std::vector<Value> elements, Fault fault);
  static Value makeDictionary(OrderedMap<Value> entries, Fault fault);
  static bool isLiveDictionary(const Value& value);
  static bool holdsLiveDictionaries(const Value& value);
  /// The value that really holds a dictionary's entries: behind a live one that was never changed, what it
  /// copied.
  static const Value& holder(const Value& dictionary);
  /// The text of a string value, which lives as long as any copy of it.
  static std::string_view text(const Value& string);
  static Array array(Value value) { return Array(std::move(value)); }
  static Dictionary dictionary(Value value) { return Dictionary(std::move(value)); }
  static const Value& value(const Dictionary& dictionary) { return dictionary.value_; }
  static const Value& value(const Array& array) { return array.value_; }
  static String string(Value value) { return String(std::move(value)); }
};

}  // namespace roster
